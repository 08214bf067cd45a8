# Against exploits: each flag where compiler and C library offer it and the builder's own flags leave the matter open.
include(CheckCXXSourceCompiles)

add_library(ivarode_hardened INTERFACE)
target_link_options(ivarode_hardened INTERFACE -Wl,-z,relro -Wl,-z,now)

function(ivarode_harden topic compile_flag link_flag)
  if("${CMAKE_CXX_FLAGS}" MATCHES "${topic}")
    return()
  endif()
  set(CMAKE_REQUIRED_FLAGS "${compile_flag} -Werror")
  set(CMAKE_REQUIRED_LINK_OPTIONS ${link_flag})
  string(MAKE_C_IDENTIFIER "IVARODE_HAVE_${topic}" known)
  check_cxx_source_compiles("
    #include <string.h>
    int main(int count, char **words) { char copy[64]; strncpy(copy, words[count - 1], 63); return copy[count]; }" ${known})
  if(${known})
    target_compile_options(ivarode_hardened INTERFACE ${compile_flag})
    target_link_options(ivarode_hardened INTERFACE ${link_flag})
  endif()
endfunction()

ivarode_harden(stack-protector -fstack-protector-strong "")
ivarode_harden(stack-clash -fstack-clash-protection "")
# Returns alone: Linux offers programs no more than a shadow stack. The linker would leave the mark out as soon as one
# object of the C library has none.
ivarode_harden(cf-protection -fcf-protection=return -Wl,-z,shstk)
# All calls are bound at the start: without a table of jumps to them the code is smaller, and none can be bent there.
ivarode_harden(no-plt -fno-plt "")

# Needs the optimiser. A definition, so that an option may take it back.
if(NOT "${CMAKE_CXX_FLAGS}" MATCHES FORTIFY_SOURCE AND NOT IVARODE_SANITIZE)
  target_compile_definitions(ivarode_hardened INTERFACE $<$<NOT:$<CONFIG:Debug>>:_FORTIFY_SOURCE=2>)
endif()
