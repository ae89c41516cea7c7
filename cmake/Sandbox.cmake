# The launcher runs on the machine that builds, whatever the tests are built for, and without
# sanitizers: it prepares the ground that they need.
set(VIMBRA_SANDBOX ${PROJECT_BINARY_DIR}/bin/vimbra-sandbox)
set(sandbox_source ${PROJECT_SOURCE_DIR}/tests/bed/sandbox.cpp)
set(sandbox_flags -std=c++20 -O2 -Wall -Wextra -Wshadow -Werror -D_GNU_SOURCE -static)
find_program(VIMBRA_HOST_CXX NAMES c++ g++ clang++ REQUIRED)
add_custom_command(OUTPUT ${VIMBRA_SANDBOX}
    COMMAND ${CMAKE_COMMAND} -E make_directory ${PROJECT_BINARY_DIR}/bin
    COMMAND ${VIMBRA_HOST_CXX} ${sandbox_flags} ${sandbox_source}
            -o ${VIMBRA_SANDBOX}
    DEPENDS ${sandbox_source}
    COMMENT "Building the test launcher"
    VERBATIM)
add_custom_target(vimbra-sandbox ALL DEPENDS ${VIMBRA_SANDBOX})
