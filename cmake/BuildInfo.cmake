# Fills in src/build_info.h.in. Set the variables to say who built what and when; with
# SOURCE_DATE_EPOCH in the environment the defaults depend on nothing else, so that two builds of
# one commit are the same to the byte.
if(DEFINED ENV{SOURCE_DATE_EPOCH})
    set(_user "vimbra")
    set(_host "reproducible")
else()
    set(_user "$ENV{USER}")
    if(NOT _user)
        set(_user "unknown")
    endif()
    cmake_host_system_information(RESULT _host QUERY HOSTNAME)
endif()
# string(TIMESTAMP) takes the time from SOURCE_DATE_EPOCH where it is set.
string(TIMESTAMP _date "%Y-%m-%d" UTC)
string(TIMESTAMP _time "%H:%M:%S" UTC)

set(VIMBRA_BUILD_NUMBER 1 CACHE STRING "Build number in the version text, 32 bits")
set(VIMBRA_BUILD_USER "${_user}" CACHE STRING "Builder's user name in the version text")
set(VIMBRA_BUILD_HOST "${_host}" CACHE STRING "Builder's host name in the version text")
set(VIMBRA_BUILD_DATE "${_date}" CACHE STRING "Build date in the version text")
set(VIMBRA_BUILD_TIME "${_time}" CACHE STRING "Build time in the version text")

configure_file("${CMAKE_CURRENT_LIST_DIR}/../src/build_info.h.in"
               "${PROJECT_BINARY_DIR}/generated/build_info.h" @ONLY)
