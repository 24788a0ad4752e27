# The layer checks: what keeps a layer from using one above or beside it.
# The layers are declared once, in cmake/layers.txt (folder, library, the
# folders right below it). Three checks read that table:
#   - at configure time, the libraries each layer links (its LIBS) must be
#     layers below it or libraries from outside the project (Qt, libpcap, ...);
#   - layercheck_<library>, an executable built with `all`, links the layer's
#     whole archive (-Wl,--whole-archive) with only what it links itself, so a
#     symbol of a layer above it is an undefined reference, and the build
#     stops there (header-only layers have no archive and are skipped);
#   - layercheck_includes, a step of `all`, runs cmake/checkincludes.cmake over
#     every layer's folder: an #include of a header above or beside it fails
#     the build, which also catches what a link cannot see (an inline
#     function, a constant).
# The functions work in script mode too (vx_read_layers), so that the include
# check reads the table with the same code.

set(VX_LAYERS_DIR ${CMAKE_CURRENT_LIST_DIR})

# vx_read_layers(<table>): reads the table into
#   VX_LAYER_FOLDERS                 the folders, lowest first
#   VX_LAYER_LIB_<id>                the library of a folder
#   VX_LAYER_BELOW_<id>              every folder below it, followed down
# where <id> is the folder as a C identifier (tools/sim: tools_sim).
# A folder used before its line, or twice declared, is a fatal error.
function(vx_read_layers table)
    file(STRINGS "${table}" lines)
    set(folders)
    foreach(line IN LISTS lines)
        string(STRIP "${line}" line)
        if(line STREQUAL "" OR line MATCHES "^#")
            continue()
        endif()
        separate_arguments(words UNIX_COMMAND "${line}")
        list(LENGTH words n)
        if(n LESS 2)
            message(FATAL_ERROR "${table}: \"${line}\" names no library")
        endif()
        list(GET words 0 folder)
        list(GET words 1 lib)
        list(REMOVE_AT words 0 1)
        if(folder IN_LIST folders)
            message(FATAL_ERROR "${table}: ${folder} is declared twice")
        endif()
        string(MAKE_C_IDENTIFIER "${folder}" id)
        set(below)
        foreach(used IN LISTS words)
            if(NOT used IN_LIST folders)
                message(FATAL_ERROR "${table}: ${folder} uses ${used}, which is not on an "
                    "earlier line (a layer can use only what is declared below it)")
            endif()
            string(MAKE_C_IDENTIFIER "${used}" uid)
            list(APPEND below ${used} ${VX_LAYER_BELOW_${uid}})
        endforeach()
        list(REMOVE_DUPLICATES below)
        list(APPEND folders ${folder})
        set(VX_LAYER_LIB_${id} ${lib})
        set(VX_LAYER_BELOW_${id} ${below})
        set(VX_LAYER_LIB_${id} ${lib} PARENT_SCOPE)
        set(VX_LAYER_BELOW_${id} ${below} PARENT_SCOPE)
    endforeach()
    set(VX_LAYER_FOLDERS ${folders} PARENT_SCOPE)
endfunction()

# vx_layer_checks(<table>): sets up the three checks for every layer of the
# table whose library this configuration builds (the variants without Qt or
# without widgets build fewer layers). Call it once every target exists.
function(vx_layer_checks table)
    vx_read_layers("${table}")
    set(libs)
    foreach(folder IN LISTS VX_LAYER_FOLDERS)
        string(MAKE_C_IDENTIFIER "${folder}" id)
        list(APPEND libs ${VX_LAYER_LIB_${id}})
        set(folder_of_${VX_LAYER_LIB_${id}} ${folder})
    endforeach()

    # Every layercheck_<library> executable shares one main(); it is linked,
    # never run.
    set(outdir ${CMAKE_BINARY_DIR}/layercheck)
    set(stub ${outdir}/layercheck_main.cpp)
    if(NOT EXISTS ${stub})
        file(WRITE ${stub} "// Linked with each layer's whole archive; never run.\nint main() { return 0; }\n")
    endif()
    add_library(layercheck_main OBJECT ${stub})
    set(noauto AUTOMOC OFF AUTOUIC OFF AUTORCC OFF)
    set_target_properties(layercheck_main PROPERTIES ${noauto})
    foreach(folder IN LISTS VX_LAYER_FOLDERS)
        string(MAKE_C_IDENTIFIER "${folder}" id)
        set(lib ${VX_LAYER_LIB_${id}})
        if(NOT TARGET ${lib})
            continue()
        endif()
        set(below ${VX_LAYER_BELOW_${id}})
        string(REPLACE ";" " " belowtext "${below}")
        if(belowtext STREQUAL "")
            set(belowtext "no layer")
        endif()

        # What the layer links: layers below it, or libraries from outside.
        get_target_property(type ${lib} TYPE)
        if(type STREQUAL "INTERFACE_LIBRARY")
            get_target_property(linked ${lib} INTERFACE_LINK_LIBRARIES)
        else()
            get_target_property(linked ${lib} LINK_LIBRARIES)
        endif()
        foreach(item IN LISTS linked)
            string(REGEX REPLACE "^\\$<LINK_ONLY:(.*)>$" "\\1" item "${item}")
            if(NOT TARGET "${item}")
                continue() # a library file or flag from outside the project
            endif()
            get_target_property(aliased ${item} ALIASED_TARGET)
            if(aliased)
                set(item ${aliased})
            endif()
            get_target_property(imported ${item} IMPORTED)
            if(imported)
                continue() # Qt, Threads: from outside the project
            endif()
            if(NOT item IN_LIST libs)
                message(SEND_ERROR "layer check: ${lib} (${folder}/) links ${item}, which is "
                    "no layer of ${table}; ${folder} may use: ${belowtext}")
            elseif(NOT folder_of_${item} IN_LIST below)
                message(SEND_ERROR "layer check: ${lib} (${folder}/) links ${item} "
                    "(${folder_of_${item}}/), which is not below it in ${table}; "
                    "${folder} may use: ${belowtext}")
            endif()
        endforeach()

        # The layer's whole archive, linked with only what it links itself.
        if(NOT type STREQUAL "STATIC_LIBRARY")
            continue() # a header-only layer: the include check covers it
        endif()
        set(check layercheck_${lib})
        add_executable(${check} $<TARGET_OBJECTS:layercheck_main>)
        target_link_libraries(${check} PRIVATE -Wl,--whole-archive ${lib} -Wl,--no-whole-archive)
        set_target_properties(${check} PROPERTIES RUNTIME_OUTPUT_DIRECTORY ${outdir} ${noauto})
        # When the link fails, say what it means after the linker's own words.
        string(REPLACE " " "," belowarg "${belowtext}")
        set(launcher /bin/sh ${VX_LAYERS_DIR}/layerlink.sh ${lib} ${folder} ${belowarg} --)
        if(CMAKE_VERSION VERSION_GREATER_EQUAL 3.21)
            set_target_properties(${check} PROPERTIES CXX_LINKER_LAUNCHER "${launcher}")
        else()
            string(REPLACE ";" " " launcher "${launcher}")
            set_target_properties(${check} PROPERTIES RULE_LAUNCH_LINK "${launcher}")
        endif()
    endforeach()

    # Every include of every layer's folder. The step runs again whenever a
    # source of a layer, the table or the checker changes; a new file makes
    # the build configure again (CONFIGURE_DEPENDS), which picks it up.
    set(sources)
    foreach(folder IN LISTS VX_LAYER_FOLDERS)
        file(GLOB found CONFIGURE_DEPENDS
            ${PROJECT_SOURCE_DIR}/${folder}/*.h ${PROJECT_SOURCE_DIR}/${folder}/*.hpp
            ${PROJECT_SOURCE_DIR}/${folder}/*.cpp ${PROJECT_SOURCE_DIR}/${folder}/*.c
            ${PROJECT_SOURCE_DIR}/${folder}/*.ui)
        list(APPEND sources ${found})
    endforeach()
    set(stamp ${outdir}/includes.stamp)
    set(checker ${VX_LAYERS_DIR}/checkincludes.cmake)
    add_custom_command(OUTPUT ${stamp}
        COMMAND ${CMAKE_COMMAND} -DVX_ROOT=${PROJECT_SOURCE_DIR} -DVX_LAYERS=${table}
                -DVX_STAMP=${stamp} -P ${checker}
        DEPENDS ${sources} ${table} ${checker} ${VX_LAYERS_DIR}/VxLayers.cmake
        COMMENT "Checking that no layer includes a header of a layer above or beside it"
        VERBATIM)
    add_custom_target(layercheck_includes ALL DEPENDS ${stamp})
endfunction()
