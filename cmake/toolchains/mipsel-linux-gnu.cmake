# 32-bit little-endian MIPS with Debian's cross compiler; the programs run under qemu-user.
#   apt-get install g++-mipsel-linux-gnu qemu-user

set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR mipsel)

set(CMAKE_C_COMPILER mipsel-linux-gnu-gcc)
set(CMAKE_CXX_COMPILER mipsel-linux-gnu-g++)

set(CMAKE_FIND_ROOT_PATH /usr/mipsel-linux-gnu)
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

set(CMAKE_CROSSCOMPILING_EMULATOR qemu-mipsel -L /usr/mipsel-linux-gnu)

# The devices' kernels have 4 KiB pages.
set(KELVIK_PAGE_SIZE 4096 CACHE STRING "Largest page size of the target's kernels, in bytes")

# Nearly all cores of these devices have the 16-bit instructions of MIPS16e, and the distributions for
# them use them. OFF for a core without.
set(KELVIK_MIPS16 ON CACHE BOOL "All but a record's road in the 16-bit instructions (MIPS16e)")
