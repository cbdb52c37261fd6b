# zr-u3v, run as a program on the virtual bus.
if(NOT TARGET zr_u3v_tool)
    return()
endif()

find_package(PNG REQUIRED)
find_package(nlohmann_json REQUIRED)
get_target_property(have_tiff zr_u3v_tool ZR_HAVE_TIFF)
get_target_property(have_sdl zr_u3v_tool ZR_HAVE_SDL)

zr_gtest(zr_integration_tool LABEL integration TIMEOUT 300 SOURCES tool_commands_test.cpp tool_features_test.cpp
    tool_images_test.cpp
    LIBS zr_virtual_usb PNG::PNG nlohmann_json::nlohmann_json
    ENVIRONMENT "${ZR_VIRTUAL_BUS_ENVIRONMENT}")
# The same with the exact producer.
gtest_discover_tests(zr_integration_tool TEST_PREFIX exact. TEST_LIST exact_tool_tests DISCOVERY_TIMEOUT 60
    PROPERTIES LABELS integration TIMEOUT 300 ENVIRONMENT "${ZR_VIRTUAL_BUS_ENVIRONMENT}"
    ENVIRONMENT_MODIFICATION ZR_TEST_EXACT=set:1)
add_dependencies(zr_integration_tool zr_u3v_tool zr_u3v_tl zr_u3v_standard)
target_include_directories(zr_integration_tool PRIVATE "${CMAKE_SOURCE_DIR}/virtual_camera/bus")
target_compile_definitions(zr_integration_tool PRIVATE
    ZR_EXACT_VERSION="${PROJECT_VERSION}"
    ZR_TOOL="$<TARGET_FILE:zr_u3v_tool>"
    ZR_UDEV_RULE="${CMAKE_SOURCE_DIR}/packaging/udev/70-zr-u3v.rules"
    ZR_CTI_FOLDER="${CMAKE_BINARY_DIR}/lib"
    ZR_OTHER_LIBRARY="$<TARGET_FILE:zr_virtual_usb>"
    ZR_TOOL_HAVE_TIFF=${have_tiff}
    ZR_TOOL_HAVE_SDL=${have_sdl})
if(have_tiff)
    pkg_check_modules(LIBTIFF REQUIRED IMPORTED_TARGET libtiff-4)
    target_link_libraries(zr_integration_tool PRIVATE PkgConfig::LIBTIFF)
endif()

add_test(NAME zr_tool_papers
    COMMAND bash "${CMAKE_CURRENT_SOURCE_DIR}/tool_papers.sh" "$<TARGET_FILE:zr_u3v_tool>" "${CMAKE_SOURCE_DIR}")
set_tests_properties(zr_tool_papers PROPERTIES LABELS integration TIMEOUT 60 SKIP_RETURN_CODE 77)
