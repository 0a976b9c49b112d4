# 64-bit RISC-V, by Clang over Debian's cross libraries, since Debian's GCC has no intrinsics for the vectors;
# run under emulation on a core with vectors of 128 bits.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR riscv64)
set(CMAKE_C_COMPILER clang-19)
set(CMAKE_CXX_COMPILER clang++-19)
set(CMAKE_C_COMPILER_TARGET riscv64-linux-gnu)
set(CMAKE_CXX_COMPILER_TARGET riscv64-linux-gnu)
# Clang 19 warns of what GCC 12's own library uses inside std::stable_sort.
set(CMAKE_CXX_FLAGS_INIT "-Wno-deprecated-declarations")
set(CMAKE_CROSSCOMPILING_EMULATOR
    "qemu-riscv64;-cpu;rv64,v=true,vext_spec=v1.0,vlen=128;-L;/usr/riscv64-linux-gnu")
set(CMAKE_FIND_ROOT_PATH /usr/riscv64-linux-gnu)
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
