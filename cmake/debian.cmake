# Cross build for another architecture that Debian has a compiler for. The presets name it
# in DEBIAN_ARCHITECTURE. Programs that the build runs, mainly the tests, run under emulation.
set(CMAKE_TRY_COMPILE_PLATFORM_VARIABLES DEBIAN_ARCHITECTURE)
execute_process(COMMAND dpkg-architecture -a${DEBIAN_ARCHITECTURE} -qDEB_HOST_MULTIARCH
                OUTPUT_VARIABLE triplet OUTPUT_STRIP_TRAILING_WHITESPACE COMMAND_ERROR_IS_FATAL ANY)
string(REGEX REPLACE "-.*" "" cpu ${triplet})

set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR ${cpu})
set(CMAKE_CXX_COMPILER ${triplet}-g++)

if(DEBIAN_ARCHITECTURE STREQUAL powerpc)
    # Pages of 4 KiB, as 32-bit PowerPC kernels have; the linker's default of 64 KiB would pad
    # the executable by as much. Elsewhere the default stays: arm64 has kernels with 64 KiB.
    set(CMAKE_EXE_LINKER_FLAGS_INIT -Wl,-z,max-page-size=4096)
endif()

set(CMAKE_FIND_ROOT_PATH /usr/${triplet})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

# The static emulator: the host's loader must not try to preload a foreign library into the
# emulator itself. QEMU shortens the name of one CPU.
string(REPLACE powerpc ppc emulated_cpu ${cpu})
set(CMAKE_CROSSCOMPILING_EMULATOR qemu-${emulated_cpu}-static -L /usr/${triplet})
