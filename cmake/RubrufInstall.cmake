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
install(FILES README.md CHANGELOG.md CONTRIBUTING.md LICENSE DESTINATION ${CMAKE_INSTALL_DOCDIR})
install(DIRECTORY docs/ DESTINATION ${CMAKE_INSTALL_DOCDIR}/docs FILES_MATCHING PATTERN "*.md")

# The samples are not below share/doc, because slim systems leave that out. The file __pycache__ keeps Python from making
# a folder of this name, because Python as root would write into it, and removing the package would leave it behind.
set(samples ${CMAKE_INSTALL_DATADIR}/rubruf/examples)
install(DIRECTORY examples/ DESTINATION ${samples} FILES_MATCHING PATTERN "*.py" PATTERN "*.cfg"
  PATTERN __pycache__ EXCLUDE)
install(FILES cmake/no_bytecode.txt DESTINATION ${samples} RENAME __pycache__)

# Debian's own variables name the maintainer. No address is real below .invalid.
set(maintainer "$ENV{DEBFULLNAME} <$ENV{DEBEMAIL}>")
if(NOT maintainer MATCHES ". <.+>$")
  set(maintainer "rubruf developers <developers@rubruf.invalid>")
endif()

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_CONTACT ${maintainer})
set(CPACK_STRIP_FILES ON)
# Whatever the umask of the one who builds the package.
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
  OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION utils)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_DESCRIPTION
"A plug-in library for a telemetry host. Each script is a function that returns
a list or a dictionary; the host gets a new source for it. The command
rubruf-host runs and checks scripts without a host.
.
No licence has been chosen for this software yet.")
set(CPACK_DEBIAN_PACKAGE_CONTROL_EXTRA ${CMAKE_CURRENT_SOURCE_DIR}/cmake/triggers)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_PROJECT_CONFIG_FILE ${CMAKE_CURRENT_SOURCE_DIR}/cmake/RubrufPackage.cmake)
set(CPACK_PRE_BUILD_SCRIPTS ${CMAKE_CURRENT_SOURCE_DIR}/cmake/RubrufDebianFiles.cmake)
include(CPack)
