# libkorva, shared and static, for other programs: both engines with all they stand on, and what an
# installation holds of them.
include(CMakePackageConfigHelpers)

set(library_dir ${CMAKE_SOURCE_DIR}/libkorva)
set(generated_headers ${CMAKE_BINARY_DIR}/generated)
configure_file(${library_dir}/include/korva/version.h.in ${generated_headers}/korva/version.h @ONLY)
set(library_version ${PROJECT_VERSION_MAJOR}.${PROJECT_VERSION_MINOR}) # a library of its own while 0.x

set(library_sources
  ${library_dir}/feed.cpp ${library_dir}/log.cpp ${library_dir}/version.cpp)
foreach(part IN ITEMS korva_engine korva_audit korva_framing tollum)
  get_target_property(directory ${part} SOURCE_DIR)
  get_target_property(sources ${part} SOURCES)
  list(TRANSFORM sources PREPEND ${directory}/)
  get_target_property(options ${part} COMPILE_OPTIONS)
  if(options)
    set_property(SOURCE ${sources} APPEND PROPERTY COMPILE_OPTIONS ${options})
  endif()
  list(APPEND library_sources ${sources})
endforeach()

# Compiled once for both, to machine code that every linker takes.
add_library(korva_objects OBJECT ${library_sources})
set_target_properties(korva_objects PROPERTIES
  POSITION_INDEPENDENT_CODE ON
  CXX_VISIBILITY_PRESET hidden
  VISIBILITY_INLINES_HIDDEN ON)
# Unique symbols would stay global.
target_compile_options(korva_objects PRIVATE
  -fno-lto $<$<CXX_COMPILER_ID:GNU>:-fno-gnu-unique>)
target_include_directories(korva_objects PRIVATE
  vantor libtollum/include ${library_dir}/include ${generated_headers})
target_link_libraries(korva_objects
  PRIVATE korva_flags PkgConfig::BITSTREAM PkgConfig::LIBCONFIG)

add_library(korva_shared SHARED $<TARGET_OBJECTS:korva_objects>)
set_target_properties(korva_shared PROPERTIES
  OUTPUT_NAME korva EXPORT_NAME korva VERSION ${PROJECT_VERSION} SOVERSION ${library_version})
target_link_libraries(korva_shared PRIVATE ${LIBCONFIG_LINK_LIBRARIES})
set(export_map ${CMAKE_CURRENT_LIST_DIR}/libkorva.map)
target_link_options(korva_shared
  PRIVATE -Wl,-z,relro,-z,now,-z,defs,-Bsymbolic-functions,--version-script=${export_map})
set_property(TARGET korva_shared PROPERTY LINK_DEPENDS ${export_map})

# One object for the archive: what is not exported is local in it, so that it meets no name of the
# program's. Groups of sections are dissolved, since a linker tells them apart by name;
# of the linkers, that of binutils can do so.
find_program(KORVA_LD NAMES ld.bfd ld REQUIRED)
find_program(KORVA_OBJCOPY NAMES objcopy REQUIRED)
set(static_object ${CMAKE_BINARY_DIR}/korva_static.o)
add_custom_command(
  OUTPUT ${static_object}
  COMMAND ${KORVA_LD} -r --force-group-allocation -o ${static_object}
    $<TARGET_OBJECTS:korva_objects>
  COMMAND ${KORVA_OBJCOPY} --localize-hidden --wildcard
    --keep-global-symbol=tsan_* --keep-global-symbol=korva_* --keep-global-symbol=audit_*
    ${static_object}
  DEPENDS korva_objects $<TARGET_OBJECTS:korva_objects>
  COMMAND_EXPAND_LISTS VERBATIM)
add_library(korva_static STATIC ${static_object})
set_target_properties(korva_static PROPERTIES OUTPUT_NAME korva LINKER_LANGUAGE CXX)
target_link_libraries(korva_static INTERFACE config stdc++)

set(headers ${CMAKE_INSTALL_INCLUDEDIR}/korva)
set(package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/korva)
install(TARGETS korva_shared korva_static EXPORT korvaTargets
  INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}
  LIBRARY COMPONENT library NAMELINK_COMPONENT development
  ARCHIVE COMPONENT development)
install(FILES vantor/audit/audit.h vantor/tsanalyze/tsan.h vantor/tsanalyze/readout.h
  DESTINATION ${headers} COMPONENT development)
install(FILES ${library_dir}/include/korva/log.h ${generated_headers}/korva/version.h
  DESTINATION ${headers} COMPONENT development)

install(EXPORT korvaTargets NAMESPACE korva::
  DESTINATION ${package_dir} COMPONENT development FILE korvaConfig.cmake)
write_basic_package_version_file(korvaConfigVersion.cmake COMPATIBILITY SameMinorVersion)
file(RELATIVE_PATH prefix_from_pc ${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig ${CMAKE_INSTALL_PREFIX})
configure_file(cmake/korva.pc.in korva.pc @ONLY)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/korvaConfigVersion.cmake
  DESTINATION ${package_dir} COMPONENT development)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/korva.pc
  DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT development)

install(FILES docs/embedding.md DESTINATION ${CMAKE_INSTALL_DOCDIR} COMPONENT development)
install(FILES examples/CMakeLists.txt examples/datagrams.c examples/korva_ctypes.py
    examples/audit_datagrams.c examples/audit_ctypes.py
  DESTINATION ${CMAKE_INSTALL_DOCDIR}/examples COMPONENT development)
set(package_of_library libkorva${library_version})
set(package_of_development libkorva-dev)
foreach(component IN ITEMS library development)
  set(doc ${CMAKE_INSTALL_DATADIR}/doc/${package_of_${component}})
  install(FILES LICENSE DESTINATION ${doc} COMPONENT ${component} RENAME copyright)
  install(FILES ${changelog} DESTINATION ${doc} COMPONENT ${component})
endforeach()
