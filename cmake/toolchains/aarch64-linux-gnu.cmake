# Cross build for arm64 Linux with Debian's g++-aarch64-linux-gnu; the tests run under qemu-user.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR aarch64)
set(CMAKE_C_COMPILER aarch64-linux-gnu-gcc)
set(CMAKE_CXX_COMPILER aarch64-linux-gnu-g++)
# The path keeps the loader to the C library that it came with, where the system has another one for arm64 as well: a
# program with the loader of one and the C library of the other may never start.
set(CMAKE_CROSSCOMPILING_EMULATOR
  qemu-aarch64 -L /usr/aarch64-linux-gnu -E LD_LIBRARY_PATH=/usr/aarch64-linux-gnu/lib)

# Nothing of the build machine's: only the cross compiler's own folder and what CMAKE_PREFIX_PATH names.
set(CMAKE_FIND_ROOT_PATH /usr/aarch64-linux-gnu ${CMAKE_PREFIX_PATH})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
