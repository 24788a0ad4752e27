# The layer checks fail on an upward use and pass on a downward one.
#   cmake -DVX_ROOT=<tree> -DWORK=<scratch dir> -DGENERATOR=<gen> -DMAKE_PROGRAM=<prog>
#         -DCXX=<compiler> -P tst_layercheck.cmake
# 1. The include check (cmake/checkincludes.cmake) over a scratch tree, with
#    the real table, one probe file per row; and over the real tree.
# 2. The link check (cmake/VxLayers.cmake) on the four-layer project of
#    linkfixture/: a layer calling a function of the layer above fails to
#    link with the check's message; a layer linking the one above fails to
#    configure.
cmake_minimum_required(VERSION 3.16)
file(REMOVE_RECURSE ${WORK})
set(failures "")

function(fail what)
    set(failures "${failures}\n  ${what}" PARENT_SCOPE)
endfunction()

# expect(<what> <OK, or regexes the output must match> COMMAND <command...>):
# runs the command; with OK it must succeed, else fail saying each regex.
function(expect what)
    cmake_parse_arguments(E "" "" "COMMAND" ${ARGN})
    set(expected ${E_UNPARSED_ARGUMENTS})
    execute_process(COMMAND ${E_COMMAND} RESULT_VARIABLE rc OUTPUT_VARIABLE out ERROR_VARIABLE out)
    if(expected STREQUAL "OK")
        if(NOT rc EQUAL 0)
            fail("${what} failed:\n${out}")
        endif()
    elseif(rc EQUAL 0)
        fail("${what} succeeded")
    else()
        foreach(regex IN LISTS expected)
            if(NOT out MATCHES "${regex}")
                fail("${what}: no '${regex}' in:\n${out}")
            endif()
        endforeach()
    endif()
    set(failures "${failures}" PARENT_SCOPE)
endfunction()

# --- 1. includes -----------------------------------------------------------
set(tree ${WORK}/tree)
foreach(h app/mainwindow.h dialogs/aboutdialog.h views/basicview.h stream/linequeue.h
          line/myline.h models/streamdatamodel.h tools/sim/scene.h tools/common/commandline.h
          tests/check.h)
    file(WRITE ${tree}/${h} "#pragma once\n")
endforeach()

# include_case(<probe file> <its line> <expected: OK or a regex of the complaint>)
function(include_case probe line expected)
    file(WRITE ${tree}/${probe} "${line}\n")
    expect("the include check of ${probe} with '${line}'" "${expected}"
        COMMAND ${CMAKE_COMMAND} -DVX_ROOT=${tree} -DVX_LAYERS=${VX_ROOT}/cmake/layers.txt
                -P ${VX_ROOT}/cmake/checkincludes.cmake)
    file(REMOVE ${tree}/${probe})
    set(failures "${failures}" PARENT_SCOPE)
endfunction()

# Allowed: down, two layers down, beside the file, generated, system headers.
include_case(app/probe.cpp [[#include "dialogs/aboutdialog.h"]] OK)
include_case(views/probe.cpp [[#include "line/myline.h"]] OK)
include_case(views/probe.cpp [[#include "basicview.h"]] OK)
include_case(dialogs/probe.cpp [[#include "ui_aboutdialog.h"]] OK)
include_case(line/probe.h [[#include <QString>]] OK)
include_case(tools/sim/probe.cpp [[#include "tools/common/commandline.h"]] OK)
# Refused: up, beside, outside every layer, however it is written.
include_case(dialogs/probe.cpp [[#include "app/mainwindow.h"]]
    "dialogs/probe.cpp: includes app/mainwindow.h, of app, a layer above dialogs")
include_case(models/probe.h [[#include "stream/linequeue.h"]]
    "includes stream/linequeue.h, of stream, a layer above models")
include_case(views/probe.cpp [[#include "stream/linequeue.h"]]
    "includes stream/linequeue.h, of stream, a layer beside views")
include_case(models/probe.cpp [[#include "../views/basicview.h"]]
    "includes views/basicview.h, of views, a layer above models")
include_case(line/probe.h [[#include <models/streamdatamodel.h>]]
    "includes models/streamdatamodel.h, of models, a layer above line")
include_case(settings/probe.h [[  #  include "app/mainwindow.h"]]
    "includes app/mainwindow.h, of app, a layer above settings")
include_case(tools/common/probe.cpp [[#include "tools/sim/scene.h"]]
    "includes tools/sim/scene.h, of tools/sim, a layer above tools/common")
include_case(capture/probe.cpp [[#include "tests/check.h"]]
    "includes tests/check.h, which lies in no layer")
include_case(dialogs/probe.ui [[<header>app/mainwindow.h</header>]]
    "dialogs/probe.ui: includes app/mainwindow.h, of app, a layer above dialogs")

# The tree itself keeps its layers.
expect("the include check of the tree" OK
    COMMAND ${CMAKE_COMMAND} -DVX_ROOT=${VX_ROOT} -P ${VX_ROOT}/cmake/checkincludes.cmake)

# --- 2. links --------------------------------------------------------------
set(fixture ${CMAKE_CURRENT_LIST_DIR}/linkfixture)
set(configure ${CMAKE_COMMAND} -S ${fixture} -G ${GENERATOR}
    -DCMAKE_MAKE_PROGRAM=${MAKE_PROGRAM} -DCMAKE_CXX_COMPILER=${CXX} -DVX_ROOT=${VX_ROOT})
set(dir ${WORK}/link)
expect("configuring the fixture" OK COMMAND ${configure} -B ${dir})
if(EXISTS ${dir}/CMakeCache.txt)
    foreach(layer base good top)
        expect("layercheck_${layer}_lib" OK
            COMMAND ${CMAKE_COMMAND} --build ${dir} --target layercheck_${layer}_lib)
    endforeach()
    expect("layercheck_bad_lib"
        "topValue" "layer check failed: bad_lib \\(bad/\\) uses a symbol" "bad may use: base"
        COMMAND ${CMAKE_COMMAND} --build ${dir} --target layercheck_bad_lib)
endif()
expect("configuring the fixture with bad_lib linking top_lib"
    "layer check: bad_lib \\(bad/\\) links top_lib \\(top/\\), which is not below it"
    COMMAND ${configure} -B ${WORK}/plantedlink -DPLANT_LINK=ON)

if(failures)
    message(FATAL_ERROR "layer check test failed:${failures}")
endif()
message("layer check test: every upward use was refused, every downward one passed")
