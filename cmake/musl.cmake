# musl on this machine's processor: its compiler with the C library of Debian's musl-tools.
set(CMAKE_C_COMPILER x86_64-linux-gnu-gcc)
set(CMAKE_CXX_COMPILER x86_64-linux-gnu-g++)
set(CMAKE_C_FLAGS_INIT "")
set(CMAKE_CXX_FLAGS_INIT "")
set(VIMBRA_MUSL x86_64-linux-musl)
set(VIMBRA_KERNEL_HEADERS /usr/include/linux /usr/include/asm-generic
                          /usr/include/x86_64-linux-gnu/asm)
include(${CMAKE_CURRENT_LIST_DIR}/MuslCompiler.cmake)
