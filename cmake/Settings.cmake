# What holds for every target: the language, where files go, how they are compiled and linked.

set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
set(CMAKE_VISIBILITY_INLINES_HIDDEN ON)

# Programs find their libraries beside them.
set(CMAKE_RUNTIME_OUTPUT_DIRECTORY "${CMAKE_BINARY_DIR}/bin")
set(CMAKE_LIBRARY_OUTPUT_DIRECTORY "${CMAKE_BINARY_DIR}/bin")
set(CMAKE_ARCHIVE_OUTPUT_DIRECTORY "${CMAKE_BINARY_DIR}/lib")

if(NOT CMAKE_BUILD_TYPE)
    set(CMAKE_BUILD_TYPE Release CACHE STRING "Kind of build" FORCE)
endif()

include(CheckPIESupported)
check_pie_supported(LANGUAGES CXX)
find_package(Threads REQUIRED)

find_program(VANTLOW_CCACHE ccache)
if(VANTLOW_CCACHE AND NOT CMAKE_CXX_COMPILER_LAUNCHER)
    # Paths below the source folder count as relative ones, so that another copy of the tree finds the same objects.
    # Its documentation wants the sloppiness where headers are compiled beforehand.
    set(CMAKE_CXX_COMPILER_LAUNCHER "${CMAKE_COMMAND}" -E env "CCACHE_BASEDIR=${CMAKE_SOURCE_DIR}"
        CCACHE_NOHASHDIR=1 CCACHE_SLOPPINESS=pch_defines,time_macros "${VANTLOW_CCACHE}")
endif()

# Our own sources are held to these; foreign ones (GoogleTest) are not.
add_library(vantlow_warnings INTERFACE)
target_compile_options(vantlow_warnings INTERFACE
    -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Wsign-conversion -Wold-style-cast -Wnon-virtual-dtor -Werror)
if(CMAKE_CXX_COMPILER_ID STREQUAL "Clang")
    # A member may be used on the other system only.
    target_compile_options(vantlow_warnings INTERFACE -Wno-unused-private-field)
endif()

add_library(vantlow_hardening INTERFACE)
target_compile_options(vantlow_hardening INTERFACE -fstack-protector-strong)
if(CMAKE_BUILD_TYPE STREQUAL "Release")
    # Level 3 also knows sizes that are computed while the program runs; mingw-w64's headers have no more than 2.
    set(level 3)
    if(WIN32)
        set(level 2)
    endif()
    # Some compilers are built with a value of their own.
    target_compile_options(vantlow_hardening INTERFACE -U_FORTIFY_SOURCE -D_FORTIFY_SOURCE=${level})
endif()
if(WIN32)
    # The stack protector's operations are in a library of the compiler (libssp) that this option brings in.
    target_link_options(vantlow_hardening INTERFACE -fstack-protector-strong)
    # The same sources give the same bytes.
    target_link_options(vantlow_hardening INTERFACE -Wl,--no-insert-timestamp)
    target_link_options(vantlow_hardening INTERFACE -Wl,--dynamicbase -Wl,--nxcompat -Wl,--high-entropy-va)
else()
    target_compile_options(vantlow_hardening INTERFACE -fstack-clash-protection)
    # Of use where every object that is linked has it: Debian 12's start files have not, those of others do. The linkers
    # of mingw-w64 can mark no program for it, nor for Windows' own check of jumps.
    include(CheckCXXCompilerFlag)
    check_cxx_compiler_flag(-fcf-protection=full VANTLOW_HAS_CF_PROTECTION)
    if(VANTLOW_HAS_CF_PROTECTION)
        target_compile_options(vantlow_hardening INTERFACE -fcf-protection=full)
    endif()
    target_link_options(vantlow_hardening INTERFACE -Wl,-z,relro -Wl,-z,now -Wl,-z,noexecstack)
endif()
