# What an installation holds, and the Debian package made of it (cpack -G DEB).
include(GNUInstallDirs)

install(TARGETS korva RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
install(FILES docs/korva.1 DESTINATION ${CMAKE_INSTALL_MANDIR}/man1)
install(FILES docs/alerts.md DESTINATION ${CMAKE_INSTALL_DOCDIR})
install(FILES docs/korva.conf DESTINATION ${CMAKE_INSTALL_DOCDIR}/examples)
install(FILES LICENSE DESTINATION ${CMAKE_INSTALL_DOCDIR} RENAME copyright)
install(FILES completions/korva.bash
  DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions RENAME korva)
install(FILES completions/_korva DESTINATION ${CMAKE_INSTALL_DATADIR}/zsh/vendor-completions)

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME korva)
set(CPACK_PACKAGE_VERSION 0.1.10.2)
set(CPACK_PACKAGE_CONTACT "korva developers <maintainers@users.noreply.example>")
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
include(CPack)
