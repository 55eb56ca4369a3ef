# Compiler settings that every room shares.
set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)
set(CMAKE_RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/bin)
set(KOLI_PRIVATE_DIR lib/koliindexd)  # of programs that the daemon starts, beside "bin" or "sbin"

# Functions are bound at the start: the child of a guarded probe would look up each one that it is the first to call.
add_link_options(-Wl,-z,relro,-z,now)

option(KOLI_SANITIZE "Build with AddressSanitizer and UndefinedBehaviorSanitizer" OFF)
option(KOLI_FUZZ "Build the libFuzzer targets (clang)" OFF)

find_program(KOLI_CCACHE ccache)
if(KOLI_CCACHE)
    set(CMAKE_CXX_COMPILER_LAUNCHER ${KOLI_CCACHE})
    set(CMAKE_C_COMPILER_LAUNCHER ${KOLI_CCACHE})
endif()

add_compile_definitions(_FILE_OFFSET_BITS=64 _GNU_SOURCE)
add_compile_options(-Wall -Wextra -Wpedantic -Wconversion -Wshadow -Werror)
if(CMAKE_CXX_COMPILER_ID STREQUAL "Clang")
    # The clang of the fuzz build has warnings of its own; the gate is g++.
    add_compile_options(-Wno-error)
endif()
if(KOLI_SANITIZE OR KOLI_FUZZ)
    add_compile_options(-fsanitize=address,undefined -fno-sanitize-recover=all -fno-omit-frame-pointer)
    add_link_options(-fsanitize=address,undefined)
endif()
if(KOLI_FUZZ)
    add_compile_options(-fsanitize=fuzzer-no-link)
endif()

include_directories(${CMAKE_SOURCE_DIR})
