# Which parts are built. What a part needs beyond a compiler may be missing on the machine: then the
# part is left out and configuring says so, for the library itself needs nothing. The project's own
# scripts set VIMBRA_REQUIRE_ALL, so that a missing package never passes for a green suite.
option(VIMBRA_TESTS "Build the tests" ${PROJECT_IS_TOP_LEVEL})
option(VIMBRA_GTEST "Build those tests that need GoogleTest" ON)
option(VIMBRA_LONG_TESTS "With VIMBRA_TESTS: those that compute for long and seldom find anything, too" ON)
option(VIMBRA_TOOLS "Build the companion daemon and the command line" ${PROJECT_IS_TOP_LEVEL})
option(VIMBRA_DAEMON "With VIMBRA_TOOLS: the companion daemon, too" ON)
option(VIMBRA_EXAMPLES "Build the examples" ${PROJECT_IS_TOP_LEVEL})
option(VIMBRA_DOCS "Make the manual" ${PROJECT_IS_TOP_LEVEL})
option(VIMBRA_BENCH "Build the benchmarks" ${PROJECT_IS_TOP_LEVEL})
option(VIMBRA_FUZZ "Build the fuzz targets (clang)" OFF)
option(VIMBRA_WERROR "Take warnings for errors" ON)
option(VIMBRA_REQUIRE_ALL "Stop where a part that is asked for lacks a package" OFF)
set(VIMBRA_SANITIZE "" CACHE STRING "Sanitizers for every target, as -fsanitize= takes them")
set(VIMBRA_LIBRARY_OPTIONS "" CACHE STRING
    "Further options that the library alone is compiled and linked with")
set(VIMBRA_COVERAGE_OF "" CACHE PATH
    "Count what the compiled tests of this build tree take of the library; nothing else is built")
set(VIMBRA_TEST_PREFIX "" CACHE STRING "Put before every test's name, to tell several builds apart")

# vimbra_needs(OPTION PART PACKAGE FOUND...): PART goes when one of the variables says not found.
macro(vimbra_needs option part package)
    foreach(found IN ITEMS ${ARGN})
        if(${option} AND NOT ${found})
            if(VIMBRA_REQUIRE_ALL)
                message(FATAL_ERROR "${part} cannot be built without ${package}: run script/bootstrap")
            endif()
            message(STATUS "Left out: ${part}, for want of ${package} "
                           "(script/bootstrap installs it, -D${option}=OFF is silent)")
            set(${option} OFF)
        endif()
    endforeach()
endmacro()

if(VIMBRA_TOOLS)
    find_package(CLI11 QUIET)
    find_package(nlohmann_json QUIET)
    vimbra_needs(VIMBRA_TOOLS "daemon and command line" "CLI11" CLI11_FOUND)
    vimbra_needs(VIMBRA_TOOLS "daemon and command line" "nlohmann/json" nlohmann_json_FOUND)
endif()
if(VIMBRA_TOOLS AND VIMBRA_DAEMON)
    find_package(PkgConfig QUIET)
    if(PkgConfig_FOUND)
        pkg_check_modules(VIMBRAD_DEPS QUIET IMPORTED_TARGET GLOBAL libnl-3.0 libnl-route-3.0 libuv)
    endif()
    vimbra_needs(VIMBRA_DAEMON "the daemon" "libnl, libnl-route and libuv"
                 PkgConfig_FOUND VIMBRAD_DEPS_FOUND)
endif()

if(VIMBRA_DOCS)
    find_package(Python3 QUIET COMPONENTS Interpreter)
    vimbra_needs(VIMBRA_DOCS "the manual" "Python 3" Python3_FOUND)
endif()

if(VIMBRA_TESTS AND VIMBRA_GTEST AND (VIMBRA_SANITIZE OR CMAKE_CROSSCOMPILING))
    find_path(VIMBRA_GTEST_SOURCES CMakeLists.txt PATHS /usr/src/googletest NO_DEFAULT_PATH
              NO_CMAKE_FIND_ROOT_PATH)
    vimbra_needs(VIMBRA_TESTS "the tests" "GoogleTest's sources" VIMBRA_GTEST_SOURCES)
elseif(VIMBRA_TESTS AND VIMBRA_GTEST)
    find_package(GTest QUIET)
    vimbra_needs(VIMBRA_TESTS "the tests" "GoogleTest and GoogleMock" GTest_FOUND)
endif()
