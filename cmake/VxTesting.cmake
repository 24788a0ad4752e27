# vx_add_test(NAME <name> SOURCES <files...> LIBS <targets...> [LABELS <labels...>] [TIMEOUT <s>])
# Builds one test executable and registers it with CTest.
# Labels in use: "gui" (needs a display: run under xvfb-run), "threads" (run
# under TSan too), "loopback" (sends UDP over 127.0.0.1), "fuzz", "e2e",
# "layers" (the layer checks themselves, tests/layers).
function(vx_add_test)
    cmake_parse_arguments(T "" "NAME;TIMEOUT" "SOURCES;LIBS;LABELS" ${ARGN})
    add_executable(${T_NAME} ${T_SOURCES})
    target_link_libraries(${T_NAME} PRIVATE ${T_LIBS})
    target_include_directories(${T_NAME} PRIVATE ${PROJECT_SOURCE_DIR} ${CMAKE_CURRENT_SOURCE_DIR})
    add_test(NAME ${T_NAME} COMMAND ${T_NAME})
    if(NOT T_TIMEOUT)
        set(T_TIMEOUT 300)
    endif()
    set_tests_properties(${T_NAME} PROPERTIES TIMEOUT ${T_TIMEOUT})
    if(T_LABELS)
        set_tests_properties(${T_NAME} PROPERTIES LABELS "${T_LABELS}")
    endif()
endfunction()

# vx_library(<name> [SOURCES <files...>] [EXCLUDE <files...>] LIBS <targets...>):
# one layer of the viewer as a static library: the given sources, or every
# .cpp/.h/.ui/.qrc of the current folder but the excluded ones. It links what
# it uses (LIBS, public), so a target can only use the layers below it.
function(vx_library name)
    cmake_parse_arguments(L "" "" "SOURCES;EXCLUDE;LIBS" ${ARGN})
    if(L_SOURCES)
        set(srcs ${L_SOURCES})
    else()
        file(GLOB srcs CONFIGURE_DEPENDS
            ${CMAKE_CURRENT_SOURCE_DIR}/*.cpp ${CMAKE_CURRENT_SOURCE_DIR}/*.h
            ${CMAKE_CURRENT_SOURCE_DIR}/*.ui ${CMAKE_CURRENT_SOURCE_DIR}/*.qrc)
        foreach(x ${L_EXCLUDE})
            list(REMOVE_ITEM srcs ${CMAKE_CURRENT_SOURCE_DIR}/${x})
        endforeach()
    endif()
    add_library(${name} STATIC ${srcs})
    target_include_directories(${name} PUBLIC ${PROJECT_SOURCE_DIR})
    target_link_libraries(${name} PUBLIC ${L_LIBS})
endfunction()
