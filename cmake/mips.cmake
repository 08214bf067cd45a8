# Cross build for big-endian MIPS with Debian's compiler (g++-mips-linux-gnu). No board of ours has one; tests run
# on it because it shows what depends on the order of bytes.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR mips)
set(CMAKE_C_COMPILER mips-linux-gnu-gcc)
set(CMAKE_CXX_COMPILER mips-linux-gnu-g++)
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
# File offsets of 64 bits, as on the developer's machine.
add_compile_definitions(_FILE_OFFSET_BITS=64)
# Newer compilers of Debian have times of 64 bits, too, for which the C library has other names of calls. The packages of
# the MIPS machine are older, and what stands for a call in tests and lab has its plain name.
add_compile_options(-U_TIME_BITS)
