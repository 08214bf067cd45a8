# Flag sets as interface targets: what runs on the router, and what runs on a developer's machine.

# Errors for us alone, by the presets and ./test (CMAKE_COMPILE_WARNING_AS_ERROR): another compiler has other warnings.
add_library(ivarode_warnings INTERFACE)
target_compile_options(ivarode_warnings INTERFACE -Wall -Wextra -Wshadow -Wconversion)

include(${CMAKE_CURRENT_LIST_DIR}/Hardening.cmake)

if(IVARODE_SANITIZE)
  add_compile_options(-fsanitize=address,undefined -fno-sanitize-recover=all -fno-omit-frame-pointer)
  add_link_options(-fsanitize=address,undefined)
endif()

# The router: no exceptions, no run-time type information, nothing of libstdc++ at run time, and small code.
# Optimising for size also keeps glibc from replacing getline and its like by internal names.
add_library(ivarode_router INTERFACE)
target_link_libraries(ivarode_router INTERFACE ivarode_warnings ivarode_hardened)
target_compile_options(ivarode_router INTERFACE
  $<$<COMPILE_LANGUAGE:CXX>:-fno-exceptions> $<$<COMPILE_LANGUAGE:CXX>:-fno-rtti>
  $<$<COMPILE_LANGUAGE:CXX>:-fno-threadsafe-statics>
  -fno-asynchronous-unwind-tables -ffunction-sections -fdata-sections
  $<$<CONFIG:Release>:-Os>)
target_link_options(ivarode_router INTERFACE
  -Wl,--as-needed -Wl,--gc-sections -Wl,--hash-style=gnu -static-libgcc)
# The linker allows for pages of 64 kB there and pads each binary by as much; router kernels have 4 or 16 kB.
if(CMAKE_SYSTEM_PROCESSOR MATCHES "^mips")
  target_link_options(ivarode_router INTERFACE -Wl,-z,max-page-size=16384)
endif()

# The developer's machine: tools of the lab and tests.
add_library(ivarode_host INTERFACE)
target_link_libraries(ivarode_host INTERFACE ivarode_warnings ivarode_hardened)
# GCC 12 takes the joining of two std::string for an overlapping copy.
target_compile_options(ivarode_host INTERFACE
  $<$<COMPILE_LANG_AND_ID:CXX,GNU>:-Wno-restrict>)
