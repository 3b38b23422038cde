# What an installation holds of the program, and the Debian packages made of all (cpack -G DEB): korva,
# libkorva0.1 and libkorva-dev.
set(CMAKE_INSTALL_DEFAULT_COMPONENT_NAME program)

install(TARGETS korva RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
install(PROGRAMS tools/korva-archive DESTINATION ${CMAKE_INSTALL_BINDIR})
install(DIRECTORY tools/archive DESTINATION ${CMAKE_INSTALL_DATADIR}/korva PATTERN __pycache__ EXCLUDE)
install(FILES ${CMAKE_BINARY_DIR}/korva.1.gz ${CMAKE_BINARY_DIR}/korva-archive.1.gz
  DESTINATION ${CMAKE_INSTALL_MANDIR}/man1)
install(FILES docs/alerts.md docs/ci.md docs/findings.md docs/korva.schema.json DESTINATION ${CMAKE_INSTALL_DOCDIR})
install(FILES ${changelog} CHANGELOG.md DESTINATION ${CMAKE_INSTALL_DOCDIR})
install(FILES docs/korva.conf examples/captures.sh samples/damaged.ts DESTINATION ${CMAKE_INSTALL_DOCDIR}/examples)
install(FILES LICENSE DESTINATION ${CMAKE_INSTALL_DOCDIR} RENAME copyright)
install(FILES completions/korva.bash
  DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions RENAME korva)
install(FILES completions/korva-archive.bash
  DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions RENAME korva-archive)
install(FILES completions/_korva completions/_korva-archive DESTINATION ${CMAKE_INSTALL_DATADIR}/zsh/vendor-completions)

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME korva)
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_CONTACT "${maintainer}")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "health check of recorded MPEG transport streams")
set(CPACK_PACKAGE_DESCRIPTION
  "korva reads a recorded MPEG transport stream (ISO/IEC 13818-1) and reports
lost packets, changed tables, clocks and time stamps that are off, and streams
without packets, as lines for people and for scripts, with a closing report.")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_MAINTAINER "${CPACK_PACKAGE_CONTACT}")
set(CPACK_DEBIAN_PACKAGE_SECTION video)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)

set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_COMPONENTS_ALL program)
set(CPACK_COMPONENT_PROGRAM_DESCRIPTION "${CPACK_PACKAGE_DESCRIPTION}")
set(CPACK_DEBIAN_PROGRAM_PACKAGE_NAME korva)
set(CPACK_DEBIAN_PROGRAM_PACKAGE_SUGGESTS "parallel, python3")
if(TARGET korva_shared)
  list(APPEND CPACK_COMPONENTS_ALL library development)
  set(CPACK_DEBIAN_LIBRARY_PACKAGE_NAME ${package_of_library})
  set(CPACK_DEBIAN_LIBRARY_PACKAGE_SECTION libs)
  set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
  # The trigger stands for scripts that call ldconfig. CPack would write these, had it not names of
  # others, which it does not find.
  file(WRITE ${CMAKE_BINARY_DIR}/triggers "activate-noawait ldconfig\n")
  set(CPACK_DEBIAN_LIBRARY_PACKAGE_CONTROL_EXTRA
    ${CMAKE_BINARY_DIR}/triggers ${CMAKE_BINARY_DIR}/no/postinst ${CMAKE_BINARY_DIR}/no/postrm)
  set(CPACK_COMPONENT_LIBRARY_DESCRIPTION "The analyzer as a shared library.")
  set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_NAME libkorva-dev)
  set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION libdevel)
  set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_DEPENDS "${package_of_library} (= ${PROJECT_VERSION}), libconfig-dev")
  set(CPACK_COMPONENT_DEVELOPMENT_DESCRIPTION "Headers and static library of the analyzer.")
endif()
include(CPack)
