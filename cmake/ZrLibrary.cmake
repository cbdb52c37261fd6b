# The product: one shared library out of the folders' objects, the .cti link under which consumers
# find it, and the console client that is nothing but a start of the library's own main.

set(ZR_LIBRARY_FOLDERS zr_base zr_logging zr_info zr_gentl zr_usb zr_archive zr_u3v zr_xml zr_u3v_tl_objects zr_client)
set(ZR_EXPORTS_MAP "${CMAKE_SOURCE_DIR}/u3v_tl/exports.map")

add_library(zr_u3v_tl SHARED)
# The one place that names the real libusb; the folders know its headers only.
target_link_libraries(zr_u3v_tl PRIVATE ${ZR_LIBRARY_FOLDERS} PkgConfig::LIBUSB)
set_target_properties(zr_u3v_tl PROPERTIES
    OUTPUT_NAME zr_u3v_tl_x64
    VERSION ${PROJECT_VERSION}
    SOVERSION ${PROJECT_VERSION_MAJOR}
    LIBRARY_OUTPUT_DIRECTORY "${CMAKE_BINARY_DIR}/lib"
    SKIP_BUILD_RPATH ON
    LINKER_LANGUAGE CXX
    LINK_DEPENDS "${ZR_EXPORTS_MAP}")
target_link_options(zr_u3v_tl PRIVATE "-Wl,--version-script=${ZR_EXPORTS_MAP}" -Wl,--as-needed)
if(NOT ZR_SANITIZE)
    # A sanitizer's runtime comes with the program, so its symbols are open in the library.
    target_link_options(zr_u3v_tl PRIVATE -Wl,-z,defs)
endif()

# Relative, so that the folder can be moved as a whole.
add_custom_command(TARGET zr_u3v_tl POST_BUILD
    COMMAND ${CMAKE_COMMAND} -E create_symlink $<TARGET_SONAME_FILE_NAME:zr_u3v_tl>
            "${CMAKE_BINARY_DIR}/lib/zr_u3v_tl.cti"
    VERBATIM)

# The start-up code asks for main, the library gives it; the program brings no code of its own.
file(GENERATE OUTPUT "${CMAKE_BINARY_DIR}/generated/zr_u3v_client.c" CONTENT "typedef int zr_u3v_client;\n")
add_executable(zr_u3v_client "${CMAKE_BINARY_DIR}/generated/zr_u3v_client.c")
target_link_libraries(zr_u3v_client PRIVATE zr_u3v_tl)
set_target_properties(zr_u3v_client PROPERTIES
    RUNTIME_OUTPUT_DIRECTORY "${CMAKE_BINARY_DIR}/bin"
    BUILD_RPATH_USE_ORIGIN ON)

# What a test or the demo needs to run on the virtual bus instead of the machine's own.
set(ZR_CTI "${CMAKE_BINARY_DIR}/lib/zr_u3v_tl.cti")
set(ZR_VIRTUAL_BUS_ENVIRONMENT "LD_LIBRARY_PATH=${CMAKE_BINARY_DIR}/virtual_usb")
