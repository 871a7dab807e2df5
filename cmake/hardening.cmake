# What makes a fault in a daemon that reads the network harder to use: canaries on the stack, checked lengths in the C
# library's calls, tables that are read-only once the program runs, programs at random addresses. For optimised builds:
# the checks of lengths need the optimiser, and the sanitizers, whose builds have no type, bring better ones.
include(CheckCXXCompilerFlag)
include(CheckCXXSourceCompiles)
include(CheckPIESupported)

set(vexa_hardened $<CONFIG:Release,RelWithDebInfo,MinSizeRel>)
add_compile_options($<${vexa_hardened}:-fstack-protector-strong>)
foreach(flag -fstack-clash-protection -fcf-protection)
  string(MAKE_C_IDENTIFIER "VEXA_HAS${flag}" has)
  check_cxx_compiler_flag(-Werror\ ${flag} ${has})
  if(${has})
    add_compile_options($<${vexa_hardened}:${flag}>)
  endif()
endforeach()

# The C library warns of a level that it, or the compiler, does not know.
set(CMAKE_REQUIRED_FLAGS "-O2 -Werror -U_FORTIFY_SOURCE -D_FORTIFY_SOURCE=3")
check_cxx_source_compiles("#include <cstdio>\nint main() {}" VEXA_HAS_FORTIFY_3)
unset(CMAKE_REQUIRED_FLAGS)
# Undefined first: distributions and compilers set a level of their own.
add_compile_options("$<${vexa_hardened}:-U_FORTIFY_SOURCE;-D_FORTIFY_SOURCE=$<IF:$<BOOL:${VEXA_HAS_FORTIFY_3}>,3,2>>")

add_link_options($<${vexa_hardened}:LINKER:-z,relro,-z,now>)
check_pie_supported()
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
