# Makes a compiler of Debian, whose own C library is glibc, one for musl. VIMBRA_MUSL is musl's name
# of the processor, VIMBRA_KERNEL_HEADERS the directories that musl leaves to the kernel; flags
# that are set already stay.

# Out of the others' directory, where glibc's headers are too.
set(kernel ${CMAKE_BINARY_DIR}/kernel)
file(MAKE_DIRECTORY ${kernel})
foreach(headers IN LISTS VIMBRA_KERNEL_HEADERS)
    cmake_path(GET headers FILENAME name)
    file(CREATE_LINK ${headers} ${kernel}/${name} SYMBOLIC)
endforeach()

# C++'s headers come first, since they include the C library's by the same names.
execute_process(COMMAND ${CMAKE_CXX_COMPILER} -E -v -x c++ /dev/null
                OUTPUT_QUIET ERROR_VARIABLE search COMMAND_ERROR_IS_FATAL ANY)
string(REGEX MATCHALL "\n /[^\n]*/c[+][+]/[^\n]*" directories "${search}")
set(cxx_headers "")
foreach(directory IN LISTS directories)
    string(STRIP "${directory}" directory)
    string(APPEND cxx_headers " -isystem ${directory}")
endforeach()

set(specs "-specs=/usr/lib/${VIMBRA_MUSL}/musl-gcc.specs")
string(APPEND CMAKE_C_FLAGS_INIT " ${specs} -isystem ${kernel}")
# They were made for glibc and ask for its version.
string(APPEND CMAKE_CXX_FLAGS_INIT
       " ${specs}${cxx_headers} -isystem ${kernel} '-D__GLIBC_PREREQ(a,b)=0'")
