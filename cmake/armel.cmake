# ARMv5TE, soft float: the device's board, built with Debian's cross compiler. The tests of such a
# build run under qemu-user.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR arm)
set(CMAKE_LIBRARY_ARCHITECTURE arm-linux-gnueabi)

set(CMAKE_C_COMPILER arm-linux-gnueabi-gcc)
set(CMAKE_CXX_COMPILER arm-linux-gnueabi-g++)
set(CMAKE_STRIP arm-linux-gnueabi-strip)

set(CMAKE_C_FLAGS_INIT "-march=armv5te -mfloat-abi=soft")
set(CMAKE_CXX_FLAGS_INIT "-march=armv5te -mfloat-abi=soft -Wno-psabi")

set(CMAKE_FIND_ROOT_PATH /usr/arm-linux-gnueabi)
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)

set(CMAKE_CROSSCOMPILING_EMULATOR qemu-arm-static)

# The tools' libraries, where script/lib/board.sh has unpacked them: VIMBRA_TOOLS=ON needs them.
cmake_path(SET _tree NORMALIZE "${CMAKE_CURRENT_LIST_DIR}/../build/board/sysroot")
set(ENV{PKG_CONFIG_SYSROOT_DIR} "${_tree}")
set(ENV{PKG_CONFIG_LIBDIR} "${_tree}/usr/lib/arm-linux-gnueabi/pkgconfig")
