# What `cmake --install` puts where, and the target `uninstall` that takes it away again.
#
# Everything lies below the prefix, except where the system looks in one place only: with the prefix
# /usr or /usr/local the login snippet goes to /etc/profile.d.

include(CMakePackageConfigHelpers)

set(ZR_PACKAGING "${CMAKE_SOURCE_DIR}/packaging")
set(ZR_GENTL_FOLDER "${CMAKE_INSTALL_LIBDIR}/gentlproducer")
# Of the exact producer alone: an application that loads every producer of a folder shows each camera once.
set(ZR_GENTL_EXACT_FOLDER "${CMAKE_INSTALL_LIBDIR}/gentlproducer-exact")
set(ZR_VIRTUAL_BUS_FOLDER "${CMAKE_INSTALL_LIBDIR}/zr-u3v/virtual_usb")
set(ZR_CMAKE_FOLDER "${CMAKE_INSTALL_LIBDIR}/cmake/ZrU3vTl")
set(ZR_PKGCONFIG_FOLDER "${CMAKE_INSTALL_LIBDIR}/pkgconfig")
set(ZR_UDEV_FOLDER "lib/udev/rules.d" CACHE STRING "Where the udev rule goes")
set(ZR_ENVIRONMENT_FOLDER "lib/environment.d" CACHE STRING "Where the snippet for user sessions goes")

# The exact producer is for x86-64, as its file's name says; with it go its client and what is for building against it.
set(installs_exact OFF)
if(CMAKE_SYSTEM_PROCESSOR MATCHES "^(x86_64|AMD64)$")
    set(installs_exact ON)
endif()
option(ZR_INSTALL_EXACT "Install the exact producer beside the standard one" ${installs_exact})

# ---- before anything else: which folders are new, for uninstall

set(ZR_CREATED_FOLDERS "${CMAKE_BINARY_DIR}/install_created_folders.txt")
configure_file("${ZR_PACKAGING}/cmake/note_new_folders.cmake.in" "${CMAKE_BINARY_DIR}/packaging/note_new_folders.cmake" @ONLY)
install(SCRIPT "${CMAKE_BINARY_DIR}/packaging/note_new_folders.cmake")

# ---- libraries, and the names that consumers look for

# The name NAME.cti for a library. Relative, so that the prefix can be moved as a whole.
function(zr_install_cti name library folder)
    set(link "${CMAKE_BINARY_DIR}/packaging/${name}.cti")
    file(CREATE_LINK "../${library}" "${link}" SYMBOLIC)
    install(FILES "${link}" DESTINATION "${folder}")
endfunction()

# Nobody links with it: without the development link.
install(TARGETS zr_u3v_standard LIBRARY DESTINATION "${CMAKE_INSTALL_LIBDIR}" NAMELINK_SKIP)
get_target_property(standard_major zr_u3v_standard SOVERSION)
zr_install_cti(zr_u3v_standard "libzr_u3v_standard.so.${standard_major}" "${ZR_GENTL_FOLDER}")

if(ZR_INSTALL_EXACT)
    target_include_directories(zr_u3v_tl INTERFACE
        "$<BUILD_INTERFACE:${CMAKE_SOURCE_DIR}/include>" "$<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}>")
    install(TARGETS zr_u3v_tl EXPORT ZrU3vTl LIBRARY DESTINATION "${CMAKE_INSTALL_LIBDIR}")
    install(DIRECTORY include/zr_u3v_tl DESTINATION "${CMAKE_INSTALL_INCLUDEDIR}" FILES_MATCHING PATTERN "*.h")
    zr_install_cti(zr_u3v_tl "libzr_u3v_tl_x64.so.${PROJECT_VERSION_MAJOR}" "${ZR_GENTL_EXACT_FOLDER}")
endif()

# ---- programs

set(ZR_PROGRAMS zr_u3v_camera)
if(TARGET zr_u3v_tool)
    list(APPEND ZR_PROGRAMS zr_u3v_tool)
endif()
if(ZR_INSTALL_EXACT)
    list(APPEND ZR_PROGRAMS zr_u3v_client)
    file(RELATIVE_PATH ZR_BIN_TO_LIB "/${CMAKE_INSTALL_BINDIR}" "/${CMAKE_INSTALL_LIBDIR}")
    # The one program that is linked with a producer; the others load it, or know nothing of it.
    set_target_properties(zr_u3v_client PROPERTIES INSTALL_RPATH "$ORIGIN/${ZR_BIN_TO_LIB}")
endif()
install(TARGETS ${ZR_PROGRAMS} RUNTIME DESTINATION "${CMAKE_INSTALL_BINDIR}")

# The stand-in for libusb that carries simulated cameras, in a folder where no loader finds it by accident.
# Under its soname alone: nobody links with it.
install(FILES "$<TARGET_SONAME_FILE:zr_virtual_usb>" DESTINATION "${ZR_VIRTUAL_BUS_FOLDER}"
    PERMISSIONS OWNER_READ OWNER_WRITE GROUP_READ WORLD_READ)

# ---- for those who build against it

if(ZR_INSTALL_EXACT)
    configure_package_config_file("${ZR_PACKAGING}/cmake/ZrU3vTlConfig.cmake.in" "${CMAKE_BINARY_DIR}/packaging/ZrU3vTlConfig.cmake"
        INSTALL_DESTINATION "${ZR_CMAKE_FOLDER}" PATH_VARS ZR_GENTL_FOLDER ZR_GENTL_EXACT_FOLDER ZR_VIRTUAL_BUS_FOLDER)
    write_basic_package_version_file("${CMAKE_BINARY_DIR}/packaging/ZrU3vTlConfigVersion.cmake" COMPATIBILITY SameMajorVersion)
    install(EXPORT ZrU3vTl FILE ZrU3vTlTargets.cmake NAMESPACE ZrU3vTl:: DESTINATION "${ZR_CMAKE_FOLDER}")
    install(FILES "${CMAKE_BINARY_DIR}/packaging/ZrU3vTlConfig.cmake" "${CMAKE_BINARY_DIR}/packaging/ZrU3vTlConfigVersion.cmake"
        DESTINATION "${ZR_CMAKE_FOLDER}")

    # Relative to the file itself, so that it is right under every prefix.
    file(RELATIVE_PATH ZR_PC_TO_PREFIX "/${ZR_PKGCONFIG_FOLDER}" "/")
    string(REGEX REPLACE "/$" "" ZR_PC_TO_PREFIX "${ZR_PC_TO_PREFIX}")
    configure_file("${ZR_PACKAGING}/zr_u3v_tl.pc.in" "${CMAKE_BINARY_DIR}/packaging/zr_u3v_tl.pc" @ONLY)
    install(FILES "${CMAKE_BINARY_DIR}/packaging/zr_u3v_tl.pc" DESTINATION "${ZR_PKGCONFIG_FOLDER}")
endif()

# ---- for those who use it

install(FILES "${ZR_PACKAGING}/udev/70-zr-u3v.rules" DESTINATION "${ZR_UDEV_FOLDER}")
install(FILES "${ZR_PACKAGING}/metainfo/zr-u3v-tl.metainfo.xml" DESTINATION "${CMAKE_INSTALL_DATADIR}/metainfo")
configure_file("${ZR_PACKAGING}/cmake/install_environment.cmake.in" "${CMAKE_BINARY_DIR}/packaging/install_environment.cmake" @ONLY)
install(SCRIPT "${CMAKE_BINARY_DIR}/packaging/install_environment.cmake")

file(GLOB ZR_MAN_PAGES CONFIGURE_DEPENDS "${CMAKE_SOURCE_DIR}/docs/man/*.1")
if(NOT ZR_INSTALL_EXACT)
    list(FILTER ZR_MAN_PAGES EXCLUDE REGEX "zr_u3v_client")
endif()
install(FILES ${ZR_MAN_PAGES} DESTINATION "${CMAKE_INSTALL_MANDIR}/man1")
file(GLOB ZR_COMPLETIONS CONFIGURE_DEPENDS "${ZR_PACKAGING}/completion/*")
if(ZR_COMPLETIONS)
    install(FILES ${ZR_COMPLETIONS} DESTINATION "${CMAKE_INSTALL_DATADIR}/bash-completion/completions")
endif()

# ---- and away again

configure_file("${ZR_PACKAGING}/cmake/uninstall.cmake.in" "${CMAKE_BINARY_DIR}/packaging/uninstall.cmake" @ONLY)
add_custom_target(uninstall COMMAND "${CMAKE_COMMAND}" -P "${CMAKE_BINARY_DIR}/packaging/uninstall.cmake" USES_TERMINAL VERBATIM)
