# The include check of the layers:
#   cmake -DVX_ROOT=<tree> [-DVX_LAYERS=<table>] [-DVX_STAMP=<file>] -P checkincludes.cmake
# Reads every #include (and every custom widget <header> of a form) in the
# folders of the layer table (default: cmake/layers.txt beside this script)
# and fails, naming each offending line, when one reaches a header of a layer
# above or beside its own, or a header of the tree outside every layer (tests,
# benchmarks). An include is resolved as the compiler would: next to the file
# first, then from the tree's root; what resolves to no file of the tree
# (system and Qt headers, generated forms) is not a layer's and is skipped.
# Writes VX_STAMP when every include is allowed.
cmake_minimum_required(VERSION 3.16)
include(${CMAKE_CURRENT_LIST_DIR}/VxLayers.cmake)
if(NOT VX_ROOT)
    message(FATAL_ERROR "checkincludes.cmake: set VX_ROOT to the tree to check")
endif()
if(NOT VX_LAYERS)
    set(VX_LAYERS ${CMAKE_CURRENT_LIST_DIR}/layers.txt)
endif()
get_filename_component(VX_ROOT "${VX_ROOT}" ABSOLUTE)
vx_read_layers("${VX_LAYERS}")

set(problems 0)
foreach(folder IN LISTS VX_LAYER_FOLDERS)
    string(MAKE_C_IDENTIFIER "${folder}" id)
    set(below ${VX_LAYER_BELOW_${id}})
    string(REPLACE ";" " " belowtext "${below}")
    if(belowtext STREQUAL "")
        set(belowtext "no layer")
    endif()
    file(GLOB files LIST_DIRECTORIES false
        ${VX_ROOT}/${folder}/*.h ${VX_ROOT}/${folder}/*.hpp ${VX_ROOT}/${folder}/*.cpp
        ${VX_ROOT}/${folder}/*.c ${VX_ROOT}/${folder}/*.ui)
    foreach(file IN LISTS files)
        if(file MATCHES "\\.ui$")
            file(STRINGS ${file} lines REGEX "<header[^>]*>")
        else()
            file(STRINGS ${file} lines REGEX "^[ \t]*#[ \t]*include[ \t]*[<\"]")
        endif()
        file(RELATIVE_PATH shown ${VX_ROOT} ${file})
        foreach(line IN LISTS lines)
            if(line MATCHES "<header[^>]*>[ \t]*([^< \t]+)[ \t]*</header>")
                set(included "${CMAKE_MATCH_1}")
                set(quoted TRUE)
            elseif(line MATCHES "include[ \t]*\"([^\"]+)\"")
                set(included "${CMAKE_MATCH_1}")
                set(quoted TRUE)
            elseif(line MATCHES "include[ \t]*<([^>]+)>")
                set(included "${CMAKE_MATCH_1}")
                set(quoted FALSE)
            else()
                continue()
            endif()
            # Where the compiler finds it: beside the file (quoted includes
            # only), else from the root, the one include path every target
            # shares.
            get_filename_component(here ${file} DIRECTORY)
            get_filename_component(target "${here}/${included}" ABSOLUTE)
            if(NOT quoted OR NOT EXISTS "${target}" OR IS_DIRECTORY "${target}")
                get_filename_component(target "${VX_ROOT}/${included}" ABSOLUTE)
            endif()
            if(NOT EXISTS "${target}" OR IS_DIRECTORY "${target}")
                continue() # not a file of the tree
            endif()
            file(RELATIVE_PATH rel ${VX_ROOT} ${target})
            if(rel MATCHES "^\\.\\./")
                continue() # outside the tree
            endif()
            get_filename_component(to "${rel}" DIRECTORY)
            if(to STREQUAL folder OR to IN_LIST below)
                continue()
            endif()
            if(NOT to IN_LIST VX_LAYER_FOLDERS)
                set(why "which lies in no layer")
            else()
                string(MAKE_C_IDENTIFIER "${to}" toid)
                if(folder IN_LIST VX_LAYER_BELOW_${toid})
                    set(why "of ${to}, a layer above ${folder}")
                else()
                    set(why "of ${to}, a layer beside ${folder}")
                endif()
            endif()
            message("${shown}: includes ${rel}, ${why}; ${folder} may use: ${belowtext}")
            math(EXPR problems "${problems} + 1")
        endforeach()
    endforeach()
endforeach()

if(problems GREATER 0)
    message(FATAL_ERROR "layer check: ${problems} include(s) reach above or beside their "
        "layer (the layers are declared in ${VX_LAYERS})")
endif()
if(VX_STAMP)
    file(WRITE ${VX_STAMP} "")
endif()
