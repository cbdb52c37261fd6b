# Helpers that keep the folders' own CMakeLists.txt to lists of files.

# One object library per source folder. Its include path is the folder itself; what it may include
# from elsewhere is exactly what DEPENDS names, so a wrong include does not compile.
#   zr_object_library(zr_gentl SOURCES a.cpp b.cpp DEPENDS zr_base zr_logging)
function(zr_object_library name)
    cmake_parse_arguments(ARG "" "" "SOURCES;DEPENDS" ${ARGN})
    add_library(${name} OBJECT ${ARG_SOURCES})
    target_include_directories(${name}
        PUBLIC "${CMAKE_CURRENT_SOURCE_DIR}" "${CMAKE_SOURCE_DIR}/include")
    target_compile_options(${name} PRIVATE ${ZR_WARNINGS} $<$<COMPILE_LANGUAGE:CXX>:${ZR_CXX_WARNINGS}>)
    # Usage requirements only (include paths): the objects themselves are named where a binary is linked.
    foreach(dependency IN LISTS ARG_DEPENDS)
        target_link_libraries(${name} PUBLIC ${dependency})
    endforeach()
endfunction()

# What every test program is compiled with. What is optimised is the code under test; optimising the
# tests as well took longer than everything else together.
function(zr_test_options name)
    target_compile_options(${name} PRIVATE ${ZR_WARNINGS} $<$<COMPILE_LANGUAGE:CXX>:${ZR_CXX_WARNINGS}>)
    if(CMAKE_CXX_COMPILER_ID MATCHES "Clang")
        # Tests take locks twice, or without giving them back, to see what happens.
        target_compile_options(${name} PRIVATE -Wno-thread-safety-analysis)
    else()
        # Sources are compiled in groups: gcc takes a fixture in an unnamed namespace for a header's then.
        target_compile_options(${name} PRIVATE $<$<COMPILE_LANGUAGE:CXX>:-Wno-subobject-linkage>)
    endif()
    if(ZR_SANITIZE)
        # For what a sanitizer makes different; how it tells by itself depends on the compiler.
        target_compile_definitions(${name} PRIVATE ZR_SANITIZED)
    endif()
    if(NOT ZR_FUZZ)
        # Fortification wants optimisation; SHELL keeps CMake from dropping it as a repetition.
        target_compile_options(${name} PRIVATE -O0 -g1 "SHELL:-U_FORTIFY_SOURCE")
    endif()
endfunction()

# One GoogleTest program, registered with ctest test by test. Its sources are compiled a few at a time as one: what
# they include takes longer than they do. (A precompiled header did the same for gcc only, 110 MB of it, and once
# killed the compiler.) So two sources of a program must not give one name to different things.
#   zr_gtest(zr_gentl_tests LABEL unit SOURCES ... LIBS zr_gentl zr_logging zr_base)
function(zr_gtest name)
    cmake_parse_arguments(ARG "" "LABEL;TIMEOUT" "SOURCES;LIBS;ENVIRONMENT" ${ARGN})
    add_executable(${name} ${ARG_SOURCES})
    zr_test_options(${name})
    target_include_directories(${name} PRIVATE "${CMAKE_SOURCE_DIR}/tests/support")
    set_target_properties(${name} PROPERTIES UNITY_BUILD ${ZR_UNITY_TESTS} UNITY_BUILD_BATCH_SIZE 5)
    target_link_libraries(${name} PRIVATE ${ARG_LIBS} GTest::gmock GTest::gtest_main Threads::Threads)
    if(NOT ARG_LABEL)
        set(ARG_LABEL unit)
    endif()
    if(NOT ARG_TIMEOUT)
        set(ARG_TIMEOUT 300)
    endif()
    set(properties LABELS ${ARG_LABEL} TIMEOUT ${ARG_TIMEOUT})
    if(ARG_ENVIRONMENT)
        list(APPEND properties ENVIRONMENT "${ARG_ENVIRONMENT}")
    endif()
    if(ZR_SANITIZE AND ARG_LABEL STREQUAL "unit")
        # As one test of the tree: starting a sanitizer for each of two thousand tests takes longer than they
        # do. The counts come from the reports.
        list(APPEND ARG_ENVIRONMENT "GTEST_OUTPUT=xml:${CMAKE_BINARY_DIR}/gtest/${name}.xml")
        add_test(NAME ${name} COMMAND ${name})
        set_tests_properties(${name} PROPERTIES LABELS unit TIMEOUT ${ARG_TIMEOUT} ENVIRONMENT "${ARG_ENVIRONMENT}")
        return()
    endif()
    gtest_discover_tests(${name} DISCOVERY_TIMEOUT 60 PROPERTIES ${properties})
endfunction()
