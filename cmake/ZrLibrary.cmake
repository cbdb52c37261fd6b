# The products: two shared libraries out of the folders' objects, each with the .cti link under which
# consumers find it, and the console client that is nothing but a start of the exact one's own main.

# One producer. Its symbols are those of the linker map alone, and it is found as NAME.cti.
#   zr_producer(zr_u3v_tl OUTPUT zr_u3v_tl_x64 VERSION 1.2.3 MAP u3v_tl/exports.map FOLDERS zr_base ...)
function(zr_producer name)
    cmake_parse_arguments(ARG "" "OUTPUT;VERSION;MAP" "FOLDERS" ${ARGN})
    add_library(${name} SHARED)
    # The one place that names the real libusb; the folders know its headers only.
    target_link_libraries(${name} PRIVATE ${ARG_FOLDERS} PkgConfig::LIBUSB)
    string(REGEX REPLACE "\\..*" "" major "${ARG_VERSION}")
    set_target_properties(${name} PROPERTIES
        OUTPUT_NAME ${ARG_OUTPUT}
        VERSION ${ARG_VERSION}
        SOVERSION ${major}
        LIBRARY_OUTPUT_DIRECTORY "${CMAKE_BINARY_DIR}/lib"
        SKIP_BUILD_RPATH ON
        LINKER_LANGUAGE CXX
        LINK_DEPENDS "${CMAKE_SOURCE_DIR}/${ARG_MAP}")
    target_link_options(${name} PRIVATE "-Wl,--version-script=${CMAKE_SOURCE_DIR}/${ARG_MAP}" -Wl,--as-needed)
    if(NOT ZR_SANITIZE)
        # A sanitizer's runtime comes with the program, so its symbols are open in the library.
        target_link_options(${name} PRIVATE -Wl,-z,defs)
    endif()
    # Relative, so that the folder can be moved as a whole.
    add_custom_command(TARGET ${name} POST_BUILD
        COMMAND ${CMAKE_COMMAND} -E create_symlink $<TARGET_SONAME_FILE_NAME:${name}> "${CMAKE_BINARY_DIR}/lib/${name}.cti"
        VERBATIM)
endfunction()

zr_producer(zr_u3v_tl
    OUTPUT zr_u3v_tl_x64 VERSION ${PROJECT_VERSION} MAP u3v_tl/exports.map
    FOLDERS zr_base zr_logging zr_info zr_gentl zr_usb zr_archive zr_u3v zr_xml zr_u3v_tl_objects zr_client)

zr_producer(zr_u3v_standard
    OUTPUT zr_u3v_standard VERSION ${ZR_STANDARD_VERSION} MAP standard_tl/exports.map
    FOLDERS zr_base zr_info zr_usb zr_u3v_host zr_standard_tl)
# A thread of the library, or a consumer's call, may still be in it when the consumer unloads it, and
# so may what it has told the system to call in a forked child: it stays.
target_link_options(zr_u3v_standard PRIVATE -Wl,-z,nodelete)

# The start-up code asks for main, the library gives it; the program brings no code of its own.
file(GENERATE OUTPUT "${CMAKE_BINARY_DIR}/generated/zr_u3v_client.c" CONTENT "typedef int zr_u3v_client;\n")
add_executable(zr_u3v_client "${CMAKE_BINARY_DIR}/generated/zr_u3v_client.c")
target_link_libraries(zr_u3v_client PRIVATE zr_u3v_tl)
set_target_properties(zr_u3v_client PROPERTIES
    RUNTIME_OUTPUT_DIRECTORY "${CMAKE_BINARY_DIR}/bin"
    BUILD_RPATH_USE_ORIGIN ON)

# What a test or the demo needs to run on the virtual bus instead of the machine's own.
set(ZR_CTI "${CMAKE_BINARY_DIR}/lib/zr_u3v_tl.cti")
set(ZR_STANDARD_CTI "${CMAKE_BINARY_DIR}/lib/zr_u3v_standard.cti")
set(ZR_VIRTUAL_BUS_ENVIRONMENT "LD_LIBRARY_PATH=${CMAKE_BINARY_DIR}/virtual_usb")
