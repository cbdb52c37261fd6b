# miniz, which reads a zipped description file. Provides the target zr_miniz from the first of:
# the folder ZR_MINIZ_DIR (miniz.c and miniz.h), an installed package, the sources that tools/setup
# unpacked into .deps/miniz.

set(ZR_MINIZ_DIR "" CACHE PATH "Folder with miniz.c and miniz.h; empty: installed package, else .deps/miniz")

# Built into the library: hidden, and without our warnings. Unaligned loads are legal on the
# machines we build for but not in the language, so they are off.
function(zr_miniz_from_sources directory)
    add_library(zr_miniz STATIC "${directory}/miniz.c")
    target_include_directories(zr_miniz SYSTEM PUBLIC "${directory}")
    target_compile_options(zr_miniz PRIVATE -w)
    target_compile_definitions(zr_miniz PRIVATE MINIZ_USE_UNALIGNED_LOADS_AND_STORES=0)
    message(STATUS "miniz: sources in ${directory}")
endfunction()

function(zr_miniz_installed)
    find_package(miniz CONFIG QUIET)
    if(TARGET miniz::miniz)
        add_library(zr_miniz INTERFACE)
        target_link_libraries(zr_miniz INTERFACE miniz::miniz)
        message(STATUS "miniz: installed package, version ${miniz_VERSION}")
        return()
    endif()
    pkg_check_modules(MINIZ QUIET IMPORTED_TARGET GLOBAL miniz)
    if(MINIZ_FOUND)
        add_library(zr_miniz INTERFACE)
        target_link_libraries(zr_miniz INTERFACE PkgConfig::MINIZ)
        message(STATUS "miniz: installed package, version ${MINIZ_VERSION}")
        return()
    endif()
    find_path(ZR_MINIZ_INCLUDE_DIR miniz.h PATH_SUFFIXES miniz)
    find_library(ZR_MINIZ_LIBRARY miniz)
    mark_as_advanced(ZR_MINIZ_INCLUDE_DIR ZR_MINIZ_LIBRARY)
    if(ZR_MINIZ_INCLUDE_DIR AND ZR_MINIZ_LIBRARY)
        add_library(zr_miniz INTERFACE)
        target_include_directories(zr_miniz SYSTEM INTERFACE "${ZR_MINIZ_INCLUDE_DIR}")
        target_link_libraries(zr_miniz INTERFACE "${ZR_MINIZ_LIBRARY}")
        message(STATUS "miniz: ${ZR_MINIZ_LIBRARY}")
    endif()
endfunction()

if(ZR_MINIZ_DIR)
    if(NOT EXISTS "${ZR_MINIZ_DIR}/miniz.c" OR NOT EXISTS "${ZR_MINIZ_DIR}/miniz.h")
        message(FATAL_ERROR "ZR_MINIZ_DIR (${ZR_MINIZ_DIR}) holds no miniz.c and miniz.h")
    endif()
    zr_miniz_from_sources("${ZR_MINIZ_DIR}")
else()
    zr_miniz_installed()
    if(NOT TARGET zr_miniz AND EXISTS "${CMAKE_SOURCE_DIR}/.deps/miniz/miniz.c"
       AND EXISTS "${CMAKE_SOURCE_DIR}/.deps/miniz/miniz.h")
        zr_miniz_from_sources("${CMAKE_SOURCE_DIR}/.deps/miniz")
    endif()
endif()

if(NOT TARGET zr_miniz)
    message(FATAL_ERROR "miniz is missing: neither an installed package nor .deps/miniz. Run tools/setup.")
endif()
