# The build checksum in korva's identification line: the first 8 hex digits of a SHA-256 over the
# names and contents of the program's sources, so that equal sources give equal texts on any
# machine.
#
# Included, this file defines the target korva_checksum, which makes generated/build_checksum.h in
# the binary directory; run as a script (-D OUTPUT=<header>), it writes that header.

set(checksum_root ${CMAKE_CURRENT_LIST_DIR}/..)
set(checksum_globs)
foreach(dir IN ITEMS vantor common libtollum)
  list(APPEND checksum_globs ${checksum_root}/${dir}/*.cpp ${checksum_root}/${dir}/*.h)
endforeach()

if(NOT CMAKE_SCRIPT_MODE_FILE)
  file(GLOB_RECURSE checksum_sources CONFIGURE_DEPENDS ${checksum_globs})
  set(checksum_header ${CMAKE_BINARY_DIR}/generated/build_checksum.h)
  add_custom_command(
    OUTPUT ${checksum_header}
    COMMAND ${CMAKE_COMMAND} -D OUTPUT=${checksum_header} -P ${CMAKE_CURRENT_LIST_FILE}
    DEPENDS ${checksum_sources} ${CMAKE_CURRENT_LIST_FILE}
    COMMENT "Checksum of the sources"
    VERBATIM)
  add_custom_target(korva_checksum DEPENDS ${checksum_header})
  return()
endif()

file(GLOB_RECURSE sources RELATIVE ${checksum_root} ${checksum_globs})
if(NOT sources)
  message(FATAL_ERROR "no sources below ${checksum_root}")
endif()
list(SORT sources)
set(manifest "")
foreach(source IN LISTS sources)
  file(SHA256 ${checksum_root}/${source} digest)
  string(APPEND manifest "${digest}  ${source}\n")
endforeach()
string(SHA256 checksum "${manifest}")
string(SUBSTRING ${checksum} 0 8 checksum)
# An unchanged header keeps its time, so that nothing is compiled again.
file(CONFIGURE OUTPUT ${OUTPUT} CONTENT "#define KORVA_BUILD_CHECKSUM \"${checksum}\"\n" @ONLY)
