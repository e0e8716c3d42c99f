# Language level, warnings and build modes shared by every target.

option(QUILLA_TESTS "Build the tests" ON)
option(QUILLA_FUZZ "Build the fuzz targets (clang only)" OFF)
option(QUILLA_BENCHMARKS "Build the benchmarks against other libraries" OFF)
option(QUILLA_HANDHELD "Build images for Windows CE" OFF)
set(QUILLA_SANITIZE "" CACHE STRING "Sanitizers for every target, e.g. address,undefined")

set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)

# Without a compiler cache, sources of a target are compiled together, which takes half of the time from nothing. Whether
# each includes what it needs is seen with one, and by clang-tidy.
find_program(CCACHE_PROGRAM ccache)
if(CCACHE_PROGRAM AND NOT "$ENV{CCACHE_DISABLE}")
    set(CMAKE_CXX_COMPILER_LAUNCHER ${CCACHE_PROGRAM})
elseif(NOT DEFINED CMAKE_UNITY_BUILD)
    set(CMAKE_UNITY_BUILD ON)
endif()

if(NOT WIN32)
    add_compile_definitions(_FILE_OFFSET_BITS=64) # volumes over 2 GiB on 32-bit systems, too
endif()

if(QUILLA_SANITIZE)
    # The product has no run-time type information for the vptr check to look at.
    add_compile_options(-fsanitize=${QUILLA_SANITIZE} -fno-sanitize=vptr -fno-sanitize-recover=all
        -fno-omit-frame-pointer)
    add_link_options(-fsanitize=${QUILLA_SANITIZE})
endif()

if(QUILLA_FUZZ)
    add_compile_options(-fsanitize=fuzzer-no-link) # coverage counters, also in the code under test
endif()

# Warnings hold for all code of this project; system headers are exempt.
add_library(quilla_warnings INTERFACE)
target_compile_options(quilla_warnings INTERFACE -Wall -Wextra -Wconversion -Wshadow -Wpedantic -Werror)

# The product: no exceptions, no run-time type information, sections the linker can drop.
add_library(quilla_product INTERFACE)
target_link_libraries(quilla_product INTERFACE quilla_warnings)
target_include_directories(quilla_product INTERFACE ${PROJECT_SOURCE_DIR})
target_compile_options(quilla_product INTERFACE -fno-exceptions -fno-rtti -fno-threadsafe-statics
    -ffunction-sections -fdata-sections)
if(QUILLA_HANDHELD)
    # An older _WIN32_WINNT turns newer calls into errors.
    target_compile_definitions(quilla_product INTERFACE UNDER_CE _WIN32_WCE=0x500 _WIN32_WINNT=0x0502 UNICODE _UNICODE
        WIN32_LEAN_AND_MEAN NOMINMAX STRICT)
    target_compile_options(quilla_product INTERFACE -fno-asynchronous-unwind-tables
        -include ${PROJECT_SOURCE_DIR}/platform/ce/prefix.h)
    include(${CMAKE_CURRENT_LIST_DIR}/HandheldImage.cmake)
elseif(WIN32)
    target_compile_definitions(quilla_product INTERFACE UNICODE _UNICODE _WIN32_WINNT=0x0A00 WIN32_LEAN_AND_MEAN
        NOMINMAX STRICT)
    target_link_options(quilla_product INTERFACE -static -Wl,--no-insert-timestamp -Wl,--gc-sections -Wl,--dynamicbase -Wl,--nxcompat
        -Wl,--high-entropy-va)
endif()
