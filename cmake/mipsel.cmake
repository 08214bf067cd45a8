# Cross build for the router's processor with Debian's compiler (g++-mipsel-linux-gnu).
#
# MIPSEL_SYSROOT, where given, is the folder with the target's libmnl and json-c, as "lab/vm/fetch.sh sysroot-mipsel"
# unpacks them.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR mipsel)
set(CMAKE_C_COMPILER mipsel-linux-gnu-gcc)
set(CMAKE_CXX_COMPILER mipsel-linux-gnu-g++)
if(MIPSEL_SYSROOT)
  list(APPEND CMAKE_FIND_ROOT_PATH ${MIPSEL_SYSROOT} ${MIPSEL_SYSROOT}/usr)
  list(APPEND CMAKE_TRY_COMPILE_PLATFORM_VARIABLES MIPSEL_SYSROOT)
  set(CMAKE_LIBRARY_ARCHITECTURE mipsel-linux-gnu)
  include_directories(SYSTEM ${MIPSEL_SYSROOT}/usr/include)
  foreach(kind EXE SHARED MODULE)
    set(CMAKE_${kind}_LINKER_FLAGS_INIT "-L${MIPSEL_SYSROOT}/usr/lib/mipsel-linux-gnu \
-Wl,-rpath-link,${MIPSEL_SYSROOT}/usr/lib/mipsel-linux-gnu")
  endforeach()
endif()
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
# File offsets of 64 bits, as on the developer's machine.
add_compile_definitions(_FILE_OFFSET_BITS=64)
# Newer compilers of Debian have times of 64 bits, too, for which the C library has other names of calls. The packages of
# the MIPS machine are older, and what stands for a call in tests and lab has its plain name.
add_compile_options(-U_TIME_BITS)
