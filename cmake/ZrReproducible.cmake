# Two builds in different folders give the same bytes: no path of the machine gets into a binary, neither in
# a message nor in the debug information. The build folder may lie within the source folder, so it is mapped
# as well, and last, because the last map that fits wins.

if(NOT CMAKE_BUILD_TYPE STREQUAL "Debug" AND NOT ZR_COVERAGE AND NOT ZR_SANITIZE)
    add_compile_options("-ffile-prefix-map=${CMAKE_SOURCE_DIR}=." "-ffile-prefix-map=${CMAKE_BINARY_DIR}=./build")
endif()
