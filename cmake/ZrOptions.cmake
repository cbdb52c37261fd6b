# Compiler settings that hold for every target: the language, the warnings, the sanitizers.

set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_C_STANDARD 11)
set(CMAKE_C_STANDARD_REQUIRED ON)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
set(CMAKE_CXX_VISIBILITY_PRESET hidden)
set(CMAKE_C_VISIBILITY_PRESET hidden)
set(CMAKE_VISIBILITY_INLINES_HIDDEN ON)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)

if(NOT CMAKE_BUILD_TYPE)
    set(CMAKE_BUILD_TYPE RelWithDebInfo CACHE STRING "Build type" FORCE)
endif()

find_program(ZR_CCACHE ccache)
if(ZR_CCACHE)
    set(CMAKE_C_COMPILER_LAUNCHER ${ZR_CCACHE})
    set(CMAKE_CXX_COMPILER_LAUNCHER ${ZR_CCACHE})
endif()

set(ZR_WARNINGS
    -Wall -Wextra -Wshadow -Wconversion -Wsign-conversion -Wformat=2 -Wcast-qual -Wcast-align
    -Wundef -Wmissing-declarations -Wpointer-arith -Wwrite-strings -Wdouble-promotion)
set(ZR_CXX_WARNINGS
    -Wold-style-cast -Wnon-virtual-dtor -Woverloaded-virtual -Wextra-semi)
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
    list(APPEND ZR_CXX_WARNINGS
        -Wlogical-op -Wduplicated-cond -Wduplicated-branches -Wuseless-cast)
else()
    list(APPEND ZR_CXX_WARNINGS -Wthread-safety -Wno-gnu-zero-variadic-macro-arguments)
endif()
if(ZR_WERROR)
    list(APPEND ZR_WARNINGS -Werror)
endif()

# Release builds carry the usual hardening; the sanitizers bring their own.
if(ZR_SANITIZE)
    set(ZR_SANITIZE_FLAGS "-fsanitize=${ZR_SANITIZE}" -fno-omit-frame-pointer
        -g1 -fno-sanitize-recover=all) # lines for the reports, and no types: half the size, less to link
    add_compile_options(${ZR_SANITIZE_FLAGS})
    if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
        # The instrumentation hides initialisations from gcc, which then warns inside its own library.
        list(APPEND ZR_WARNINGS -Wno-maybe-uninitialized)
    endif()
    add_link_options(${ZR_SANITIZE_FLAGS})
else()
    add_compile_options(-fstack-protector-strong -fstack-clash-protection)
    if(NOT CMAKE_BUILD_TYPE STREQUAL "Debug")
        add_compile_options(-U_FORTIFY_SOURCE -D_FORTIFY_SOURCE=2)
    endif()
    add_link_options(-Wl,-z,relro,-z,now,-z,noexecstack)
endif()

if(ZR_COVERAGE)
    add_compile_options(--coverage -O0 -g -fprofile-update=atomic)
    add_link_options(--coverage)
endif()

# libFuzzer's counters in every target; the fuzz programs themselves add -fsanitize=fuzzer.
if(ZR_FUZZ)
    add_compile_options(-fsanitize=fuzzer-no-link)
    add_link_options(-fsanitize=fuzzer-no-link)
endif()
