# Where an installation holds things, and those that it holds compressed.
if(EXISTS /etc/debian_version AND CMAKE_LIBRARY_ARCHITECTURE)
  set(CMAKE_INSTALL_LIBDIR lib/${CMAKE_LIBRARY_ARCHITECTURE} CACHE PATH "Libraries")
endif()
include(GNUInstallDirs)
set(maintainer "korva developers <maintainers@users.noreply.example>")

# Debian's changelog. The date is SOURCE_DATE_EPOCH where that is set.
string(TIMESTAMP date "%a, %d %b %Y %H:%M:%S +0000" UTC)
file(CONFIGURE OUTPUT changelog @ONLY CONTENT
  "korva (@PROJECT_VERSION@) unstable; urgency=medium

  * CHANGELOG.md, in the package korva, tells what is new.

 -- @maintainer@  @date@
")

# Man pages and the changelog, compressed to the same bytes at any time.
set(compressed)
foreach(file IN ITEMS ${CMAKE_SOURCE_DIR}/docs/korva.1 ${CMAKE_SOURCE_DIR}/docs/korva-archive.1
    ${CMAKE_BINARY_DIR}/changelog)
  cmake_path(GET file FILENAME name)
  list(APPEND compressed ${CMAKE_BINARY_DIR}/${name}.gz)
  add_custom_command(OUTPUT ${name}.gz DEPENDS ${file} COMMAND gzip -9nc ${file} > ${name}.gz VERBATIM)
endforeach()
add_custom_target(korva_compressed ALL DEPENDS ${compressed})
set(changelog ${CMAKE_BINARY_DIR}/changelog.gz)
