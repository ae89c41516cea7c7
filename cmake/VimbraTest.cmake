# Tests that run each in a machine of its own.
#
#     vimbra_add_test(NAME SOURCES FILE... [LIBS TARGET...] [LABELS LABEL] [TIMEOUT SECONDS]
#                     [STATIC | BED_ONLY] [JSON] [REPEATS])
#
# builds a GoogleTest executable and makes every TEST of it a test of ctest, started by
# vimbra-sandbox in private namespaces with throw-away /tmp, /etc and /dev/log. It links the bed and
# the shared library; with STATIC the archive instead, whose internal headers it may include; with
# BED_ONLY neither; JSON is for tests that read or write it. TIMEOUT is 300 seconds unless given, for
# a machine that is busy: whoever waits gives up before. A suite with "Slow" in its name is labelled
# `slow` and has 600 seconds. REPEATS says that it does under load, or
# for long, what others do once. Neither those nor the slow ones are among the tests whose lines and
# branches are counted.
include_guard()
include(GoogleTest)

# Sanitized and cross-built tests need a GoogleTest that was built the same way: Debian brings its
# sources.
if(VIMBRA_SANITIZE OR CMAKE_CROSSCOMPILING)
    # An emulator translates at each start what a test runs of it: the less that is, the better.
    set(optimisation $<IF:$<BOOL:${CMAKE_CROSSCOMPILING}>,-Os,-O0>)
    set(INSTALL_GTEST OFF CACHE BOOL "" FORCE)
    set(BUILD_GMOCK ON CACHE BOOL "" FORCE)
    add_subdirectory(/usr/src/googletest ${PROJECT_BINARY_DIR}/googletest EXCLUDE_FROM_ALL SYSTEM)
    foreach(target IN ITEMS gtest gtest_main gmock gmock_main)
        target_compile_options(${target} PRIVATE -w ${optimisation} -g0)
        if(NOT TARGET GTest::${target})
            add_library(GTest::${target} ALIAS ${target})
        endif()
    endforeach()
endif()

add_library(vimbra_test_options OBJECT ${PROJECT_SOURCE_DIR}/tests/bed/sanitizers.cpp)

# What nearly every test includes, compiled once. It has no macros of its own, since those would have
# to be everybody's; it is a program, since those are compiled otherwise than libraries. Whoever uses
# it pays for every template that its headers leave to be made: what few need is apart.
if(NOT VIMBRA_COVERAGE_OF)
    set(headers <gmock/gmock.h> <gtest/gtest.h> <functional> <mutex> <string> <thread> <vector>
                <vimbra/bed.hpp>)
    function(vimbra_test_headers name)
        add_executable(${name} ${PROJECT_SOURCE_DIR}/tests/bed/headers.cpp)
        target_link_libraries(${name} PRIVATE GTest::gmock GTest::gtest_main)
        target_include_directories(${name} PRIVATE ${PROJECT_SOURCE_DIR}/tests/bed/include)
        target_precompile_headers(${name} PRIVATE ${ARGN})
    endfunction()
    vimbra_test_headers(vimbra_test_headers ${headers})
    if(VIMBRA_TOOLS AND NOT CMAKE_CROSSCOMPILING)
        vimbra_test_headers(vimbra_json_test_headers ${headers} <nlohmann/json.hpp>)
        target_link_libraries(vimbra_json_test_headers PRIVATE nlohmann_json::nlohmann_json)
    endif()
endif()

# vimbra_add_test_program(name [JSON] source...): compiles the sources; where a build tree is named
# whose tests are to be counted, links what that one compiled.
function(vimbra_add_test_program name)
    cmake_parse_arguments(PARSE_ARGV 1 arg "JSON" "" "")
    set(ARGN ${arg_UNPARSED_ARGUMENTS})
    if(NOT VIMBRA_COVERAGE_OF)
        set(headers vimbra_test_headers)
        if(arg_JSON)
            set(headers vimbra_json_test_headers)
        endif()
        add_executable(${name} ${ARGN})
        target_precompile_headers(${name} REUSE_FROM ${headers})
        return()
    endif()
    file(RELATIVE_PATH directory ${PROJECT_BINARY_DIR} ${CMAKE_CURRENT_BINARY_DIR})
    list(TRANSFORM ARGN REPLACE "\\.\\./" "__/" OUTPUT_VARIABLE objects)
    list(TRANSFORM objects REPLACE "(.+)"
         "${VIMBRA_COVERAGE_OF}/${directory}/CMakeFiles/${name}.dir/\\1.o")
    set_source_files_properties(${objects} PROPERTIES EXTERNAL_OBJECT TRUE GENERATED TRUE)
    add_executable(${name} ${objects})
    set_target_properties(${name} PROPERTIES LINKER_LANGUAGE CXX)
endfunction()

function(vimbra_add_test name)
    cmake_parse_arguments(PARSE_ARGV 1 arg "STATIC;BED_ONLY;JSON;REPEATS" "TIMEOUT;LABELS"
                          "SOURCES;LIBS")
    if(arg_UNPARSED_ARGUMENTS OR NOT arg_SOURCES)
        message(FATAL_ERROR "vimbra_add_test(${name}): SOURCES missing, or unknown: "
                            "${arg_UNPARSED_ARGUMENTS}")
    endif()
    if(arg_REPEATS AND VIMBRA_COVERAGE_OF)
        return()
    endif()
    if(NOT arg_TIMEOUT)
        set(arg_TIMEOUT 300)
    endif()
    if(VIMBRA_COVERAGE_OF)
        set(counted FIXTURES_REQUIRED coverage)
    endif()

    set(json)
    if(arg_JSON)
        set(json JSON)
        list(APPEND arg_LIBS nlohmann_json::nlohmann_json)
    endif()
    vimbra_add_test_program(${name} ${json} ${arg_SOURCES})
    target_sources(${name} PRIVATE $<TARGET_OBJECTS:vimbra_test_options>)
    target_link_libraries(${name} PRIVATE vimbra_bed GTest::gmock GTest::gtest_main ${arg_LIBS})
    if(arg_STATIC)
        target_link_libraries(${name} PRIVATE vimbra_static)
        target_include_directories(${name} PRIVATE ${PROJECT_SOURCE_DIR}/src)
    elseif(NOT arg_BED_ONLY)
        target_link_libraries(${name} PRIVATE vimbra)
    endif()
    target_include_directories(${name} PRIVATE ${PROJECT_SOURCE_DIR}/include)
    add_dependencies(${name} vimbra-sandbox)
    set_target_properties(${name} PROPERTIES CROSSCOMPILING_EMULATOR
        "${VIMBRA_SANDBOX};--keep;${PROJECT_SOURCE_DIR};--keep;${PROJECT_BINARY_DIR};--;${CMAKE_CROSSCOMPILING_EMULATOR}")

    # Asked for when ctest starts, not while building: a build needs no namespaces.
    set(common DISCOVERY_MODE PRE_TEST DISCOVERY_TIMEOUT 120 TEST_PREFIX "${VIMBRA_TEST_PREFIX}")
    gtest_discover_tests(${name} ${common} TEST_FILTER "-*Slow*.*" TEST_LIST ${name}_TESTS
        PROPERTIES ${counted} TIMEOUT ${arg_TIMEOUT} LABELS "${arg_LABELS}")
    if(NOT VIMBRA_COVERAGE_OF)
        gtest_discover_tests(${name} ${common} TEST_FILTER "*Slow*.*" TEST_LIST ${name}_SLOW_TESTS
            PROPERTIES TIMEOUT 600 LABELS slow)
    endif()
endfunction()
