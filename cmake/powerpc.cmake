# Cross build for the board: 32-bit big-endian PowerPC Linux. Programs that the
# build runs, the tests above all, run under emulation.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR powerpc)
set(CMAKE_CXX_COMPILER powerpc-linux-gnu-g++)

# Pages of 4 KiB, as 32-bit PowerPC kernels have; the linker's default of 64 KiB would
# pad the executable by as much.
set(CMAKE_EXE_LINKER_FLAGS_INIT -Wl,-z,max-page-size=4096)

set(CMAKE_FIND_ROOT_PATH /usr/powerpc-linux-gnu)
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

# The static emulator: the host's loader must not try to preload a PowerPC library
# into the emulator itself.
set(CMAKE_CROSSCOMPILING_EMULATOR qemu-ppc-static -L /usr/powerpc-linux-gnu)
