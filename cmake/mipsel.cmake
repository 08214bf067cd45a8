# Cross build for the router's processor with Debian's compiler (g++-mipsel-linux-gnu).
#
# MIPSEL_SYSROOT, where given, is the folder into which the target's libraries (libmnl, json-c, SQLite headers)
# were unpacked.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR mipsel)
set(CMAKE_C_COMPILER mipsel-linux-gnu-gcc)
set(CMAKE_CXX_COMPILER mipsel-linux-gnu-g++)
if(MIPSEL_SYSROOT)
  list(APPEND CMAKE_FIND_ROOT_PATH ${MIPSEL_SYSROOT} ${MIPSEL_SYSROOT}/usr)
endif()
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
# File offsets of 64 bits, as on the developer's machine.
add_compile_definitions(_FILE_OFFSET_BITS=64)
