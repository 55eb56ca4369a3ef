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

# Large files and files dated after 2038, on machines of 32 bits as well.
add_compile_definitions(_FILE_OFFSET_BITS=64 _TIME_BITS=64 _GNU_SOURCE)
# Every machine stores the same numbers: a sum of a product is rounded twice, also where one instruction makes it (the
# processors that Debian builds amd64 for have none), and i386 calculates by SSE2, because the registers of its older unit
# keep more digits than the variables that they stand for (-ffloat-store helps variables, not what is in between). Its
# processors without SSE2 are older than network storage.
if(NOT CMAKE_SYSTEM_PROCESSOR STREQUAL "x86_64")
    add_compile_options(-ffp-contract=off)
endif()
if(CMAKE_SIZEOF_VOID_P EQUAL 4 AND CMAKE_SYSTEM_PROCESSOR MATCHES "86")
    add_compile_options(-msse2 -mfpmath=sse)
    set(KOLI_PROCESSOR_PACKAGE ", sse2-support")  # which refuses to be installed on a processor without it
endif()
if(CMAKE_SYSTEM_PROCESSOR MATCHES "^arm")
    add_compile_options(-Wno-psabi)  # notes that GCC 6 passed some arguments otherwise
endif()
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
