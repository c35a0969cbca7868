# What an installation holds, and the Debian package made of it.

include(CMakePackageConfigHelpers)
include(GNUInstallDirs)

set(headers ${CMAKE_INSTALL_INCLUDEDIR}/rubruf)
set(package_files ${CMAKE_INSTALL_LIBDIR}/cmake/rubruf)

# A Python outside the loader's search is found where it was found for the build. The command finds the library of its
# own installation, whatever the prefix: dlopen searches the caller's run path.
file(RELATIVE_PATH libraries_from_bin ${CMAKE_INSTALL_FULL_BINDIR} ${CMAKE_INSTALL_FULL_LIBDIR})
set_target_properties(rubruf PROPERTIES INSTALL_RPATH_USE_LINK_PATH ON)
set_target_properties(rubruf-host PROPERTIES INSTALL_RPATH "$ORIGIN/${libraries_from_bin}")

install(TARGETS rubruf EXPORT rubruf LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
install(TARGETS rubruf-host RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})

# A host writes #include <rubruf/...>, so that no folder of its own is in the way. The headers include each other by
# relative paths.
foreach(header
    host/tev_host.h
    provider/entry.h
    provider/tokens.h
    utils/dict/dict.h
    utils/export.h
    utils/log/log.h
    utils/python_env/python_env.h
    utils/strings/conversions.h
    utils/strings/templates.h)
  get_filename_component(folder ${header} DIRECTORY)
  install(FILES ${header} DESTINATION ${headers}/${folder})
endforeach()

install(EXPORT rubruf NAMESPACE rubruf:: FILE rubrufConfig.cmake DESTINATION ${package_files})
write_basic_package_version_file(rubrufConfigVersion.cmake COMPATIBILITY SameMinorVersion)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/rubrufConfigVersion.cmake DESTINATION ${package_files})

# The prefix is told from the file's own place, so that a moved tree stays usable.
file(RELATIVE_PATH prefix_from_pkgconfig ${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig ${CMAKE_INSTALL_PREFIX})
configure_file(cmake/rubruf.pc.in rubruf.pc @ONLY)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/rubruf.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)

install(FILES docs/rubruf-host.1 DESTINATION ${CMAKE_INSTALL_MANDIR}/man1)
install(FILES README.md CHANGELOG.md CONTRIBUTING.md DESTINATION ${CMAKE_INSTALL_DOCDIR})
install(DIRECTORY docs/ DESTINATION ${CMAKE_INSTALL_DOCDIR}/docs FILES_MATCHING PATTERN "*.md")
install(DIRECTORY examples DESTINATION ${CMAKE_INSTALL_DOCDIR} FILES_MATCHING PATTERN "*.py" PATTERN "*.cfg"
  PATTERN __pycache__ EXCLUDE)

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_CONTACT "rubruf developers")
set(CPACK_STRIP_FILES ON)
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION utils)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_PROJECT_CONFIG_FILE ${CMAKE_CURRENT_SOURCE_DIR}/cmake/RubrufPackage.cmake)
include(CPack)
