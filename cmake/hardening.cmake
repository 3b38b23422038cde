# What makes an error in memory end the program, or lead nowhere: canaries on the stack, checked calls
# of the C library, marked targets of jumps, tables that are read-only before main(), and code that
# lies elsewhere in each run. Sanitizers watch in their own way.
if(KORVA_SANITIZE)
  return()
endif()

include(CheckCXXCompilerFlag)
foreach(flag IN ITEMS -fstack-protector-strong -fcf-protection)
  string(MAKE_C_IDENTIFIER KORVA_HAS${flag} has)
  check_cxx_compiler_flag(${flag} ${has})
  if(${has})
    target_compile_options(korva_flags INTERFACE ${flag})
  endif()
endforeach()

# Code for shared libraries alone is marked as such: in the program it would cost 1 % of the time.
target_compile_options(korva_flags INTERFACE
  $<$<NOT:$<CONFIG:Debug>>:-U_FORTIFY_SOURCE -D_FORTIFY_SOURCE=3>
  $<$<NOT:$<BOOL:$<TARGET_PROPERTY:POSITION_INDEPENDENT_CODE>>>:-fPIE>)
target_link_options(korva_flags INTERFACE
  -Wl,-z,relro,-z,now $<$<STREQUAL:$<TARGET_PROPERTY:TYPE>,EXECUTABLE>:-pie>)
