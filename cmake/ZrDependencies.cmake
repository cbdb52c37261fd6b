# What the product is linked with: libusb-1.0 (shared, under its ordinary soname), miniz (static or
# shared, installed or unpacked by tools/setup into .deps/) and threads.

set(THREADS_PREFER_PTHREAD_FLAG ON)
find_package(Threads REQUIRED)

find_package(PkgConfig REQUIRED)
pkg_check_modules(LIBUSB REQUIRED IMPORTED_TARGET libusb-1.0)

include(ZrMiniz)

if(ZR_BUILD_TESTS)
    find_package(GTest REQUIRED)
    include(GoogleTest)
endif()
