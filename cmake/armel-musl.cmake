# The device's board with musl: the cross compiler with the C library of Debian's musl-dev:armel.
include(${CMAKE_CURRENT_LIST_DIR}/armel.cmake)
set(CMAKE_LIBRARY_ARCHITECTURE arm-linux-musleabi)
set(VIMBRA_MUSL arm-linux-musleabi)
set(VIMBRA_KERNEL_HEADERS /usr/arm-linux-gnueabi/include/linux
                          /usr/arm-linux-gnueabi/include/asm-generic
                          /usr/arm-linux-gnueabi/include/asm)
include(${CMAKE_CURRENT_LIST_DIR}/MuslCompiler.cmake)
