# SPDX-License-Identifier: Apache-2.0
# What every target of the project shares: warnings, sanitizers, ccache, and the one way to add a folder.

include(CheckIPOSupported)
find_package(PkgConfig REQUIRED)
find_package(Threads REQUIRED)
find_package(GTest REQUIRED)
include(GoogleTest)

set(VEXIL_DEBUG_INFO -g1 CACHE STRING
    "With sanitizers: -g1 names functions and lines in their reports; -g adds variables and much time")

find_program(VEXIL_CCACHE ccache)
if(VEXIL_CCACHE AND NOT CMAKE_CXX_COMPILER_LAUNCHER)
    # With the base folder set, every clone of the tree shares what another one compiled.
    set(CMAKE_CXX_COMPILER_LAUNCHER ${CMAKE_COMMAND} -E env CCACHE_BASEDIR=${PROJECT_SOURCE_DIR} CCACHE_NOHASHDIR=1
                                    ${VEXIL_CCACHE})
endif()

add_library(vexil_options INTERFACE)
target_include_directories(vexil_options INTERFACE ${PROJECT_SOURCE_DIR}/src)
target_compile_options(vexil_options INTERFACE -Wall -Wextra -Wconversion -Wshadow -Werror)
target_link_libraries(vexil_options INTERFACE Threads::Threads)
if(VEXIL_SANITIZE)
    # Without any optimisation every byte of a buffer costs calls, and the tests of large ones take minutes.
    target_compile_options(vexil_options INTERFACE -O1 ${VEXIL_DEBUG_INFO} -fsanitize=${VEXIL_SANITIZE}
                                                   -fno-omit-frame-pointer -fno-sanitize-recover=all)
    # What the sanitizers add misleads this warning of g++; the release preset keeps it.
    target_compile_options(vexil_options INTERFACE $<$<CXX_COMPILER_ID:GNU>:-Wno-maybe-uninitialized>)
    target_link_options(vexil_options INTERFACE -fsanitize=${VEXIL_SANITIZE})
endif()
if(VEXIL_FUZZ)
    target_compile_options(vexil_options INTERFACE -fsanitize=fuzzer-no-link)
endif()
if(CMAKE_BUILD_TYPE STREQUAL "Release")
    target_link_options(vexil_options INTERFACE -Wl,-O1,--as-needed,-z,relro,-z,now)
endif()
if(VEXIL_LTO)
    check_ipo_supported(RESULT vexil_ipo OUTPUT vexil_ipo_output LANGUAGES CXX)
    if(vexil_ipo)
        set(CMAKE_INTERPROCEDURAL_OPTIMIZATION ON)
    endif()
endif()

# Makes one imported target vexil_pkg::NAME out of a pkg-config module; its headers count as system headers.
function(vexil_package name module)
    if(NOT TARGET vexil_pkg::${name})
        pkg_check_modules(VEXIL_PKG_${name} REQUIRED IMPORTED_TARGET GLOBAL ${module})
        add_library(vexil_pkg::${name} ALIAS PkgConfig::VEXIL_PKG_${name})
    endif()
endfunction()

# vexil_library(NAME [SOURCES ...] [PUBLIC targets ...] [PRIVATE targets ...])
# The static library vexil_NAME of one folder (an interface library where there are no sources).
function(vexil_library name)
    cmake_parse_arguments(ARG "" "" "SOURCES;PUBLIC;PRIVATE" ${ARGN})
    if(ARG_SOURCES)
        add_library(vexil_${name} STATIC ${ARG_SOURCES})
        target_link_libraries(vexil_${name} PUBLIC vexil_options ${ARG_PUBLIC} PRIVATE ${ARG_PRIVATE})
    else()
        add_library(vexil_${name} INTERFACE)
        target_link_libraries(vexil_${name} INTERFACE vexil_options ${ARG_PUBLIC})
    endif()
endfunction()

# All programs, and all measures with what they are built from: what ./run and ./bench build.
add_custom_target(vexil_programs)
add_custom_target(vexil_benches)

# vexil_program(NAME SOURCES ... LINK targets ...): an executable in bin/.
function(vexil_program name)
    cmake_parse_arguments(ARG "" "" "SOURCES;LINK" ${ARGN})
    add_executable(${name} ${ARG_SOURCES})
    target_link_libraries(${name} PRIVATE vexil_options ${ARG_LINK})
    add_dependencies(vexil_programs ${name})
endfunction()

# vexil_test(NAME SOURCES ... LINK targets ... [WRAPPER command ...] [TIMEOUT seconds])
# One GoogleTest program per folder; each of its cases is a ctest test. A wrapper (a private bus, an X server) is put in
# front of the program.
function(vexil_test name)
    cmake_parse_arguments(ARG "" "TIMEOUT" "SOURCES;LINK;WRAPPER" ${ARGN})
    if(NOT ARG_TIMEOUT)
        set(ARG_TIMEOUT 60)
    endif()
    add_executable(${name} ${ARG_SOURCES})
    set_target_properties(${name} PROPERTIES RUNTIME_OUTPUT_DIRECTORY ${PROJECT_BINARY_DIR}/tests)
    target_link_libraries(${name} PRIVATE vexil_options ${ARG_LINK} GTest::gmock GTest::gtest_main)
    if(ARG_WRAPPER)
        # One ctest test for the whole program: its service is started once.
        add_test(NAME ${name} COMMAND ${ARG_WRAPPER} $<TARGET_FILE:${name}>)
        set_tests_properties(${name} PROPERTIES TIMEOUT ${ARG_TIMEOUT} COST 150)
    else()
        gtest_discover_tests(${name} DISCOVERY_MODE PRE_TEST TEST_PREFIX "${name}." PROPERTIES TIMEOUT ${ARG_TIMEOUT})
    endif()
endfunction()

# vexil_bench(NAME SOURCES ... LINK targets ...)
# An executable on the harness of src/bench, in build/PRESET/bench; ./bench finds it there. One round of each measure is a
# ctest test, so that a measure that no longer works is noticed before somebody wants its figure.
function(vexil_bench name)
    cmake_parse_arguments(ARG "" "" "SOURCES;LINK" ${ARGN})
    add_executable(${name} ${ARG_SOURCES})
    set_target_properties(${name} PROPERTIES RUNTIME_OUTPUT_DIRECTORY ${PROJECT_BINARY_DIR}/bench)
    target_link_libraries(${name} PRIVATE vexil_bench_harness ${ARG_LINK})
    add_dependencies(vexil_benches ${name})
    add_test(NAME bench.${name} COMMAND ${name} --rounds 1)
    set_tests_properties(bench.${name} PROPERTIES TIMEOUT 120)
endfunction()
