# What `cmake --install` puts down: the headers, both forms of the library, a CMake package, a
# pkg-config file, and what belongs to the program: manual pages, bash completion and the systemd units.
# The tree may be moved after it was installed, but for the units. The components are those of the
# Debian packages.
include(CMakePackageConfigHelpers)

set(package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/zotconf)

install(FILES
  ${PROJECT_SOURCE_DIR}/include/zot_conf.h ${PROJECT_SOURCE_DIR}/include/zot_conf_ext.h
  ${PROJECT_SOURCE_DIR}/include/zot_conf.hpp
  DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} COMPONENT dev)
install(TARGETS zotconf zotconf_static EXPORT zotconf_targets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT lib NAMELINK_COMPONENT dev
  ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT dev)
install(EXPORT zotconf_targets
  NAMESPACE zotconf:: FILE zotconfTargets.cmake DESTINATION ${package_dir} COMPONENT dev)

configure_package_config_file(
  ${PROJECT_SOURCE_DIR}/cmake/zotconfConfig.cmake.in ${PROJECT_BINARY_DIR}/zotconfConfig.cmake
  INSTALL_DESTINATION ${package_dir} NO_SET_AND_CHECK_MACRO)
write_basic_package_version_file(
  ${PROJECT_BINARY_DIR}/zotconfConfigVersion.cmake COMPATIBILITY SameMajorVersion)
install(FILES
  ${PROJECT_BINARY_DIR}/zotconfConfig.cmake ${PROJECT_BINARY_DIR}/zotconfConfigVersion.cmake
  DESTINATION ${package_dir} COMPONENT dev)

# The prefix is told from the place of the pkg-config file, as seen from a root of any name.
file(RELATIVE_PATH pc_to_prefix /prefix/${CMAKE_INSTALL_LIBDIR}/pkgconfig /prefix)
configure_file(
  ${PROJECT_SOURCE_DIR}/cmake/zotconf.pc.in ${PROJECT_BINARY_DIR}/zotconf.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/zotconf.pc
  DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT dev)

install(FILES ${PROJECT_SOURCE_DIR}/docs/man/zot_conf.3
  DESTINATION ${CMAKE_INSTALL_MANDIR}/man3 COMPONENT dev OPTIONAL)
if(ZOTCONF_BUILD_TOOLS)
  # The program writes its own manual pages and completion when it is built.
  install(DIRECTORY ${PROJECT_BINARY_DIR}/manual/
    DESTINATION ${CMAKE_INSTALL_MANDIR}/man1 COMPONENT tools OPTIONAL
    FILES_MATCHING PATTERN "*.1")
  install(FILES ${PROJECT_BINARY_DIR}/manual/zotconf.bash
    DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions RENAME zotconf
    COMPONENT tools OPTIONAL)
  # A unit names the whole path of its program, and only the installation knows the prefix. What is
  # packed goes to the prefix of the build, whatever folder it is collected in.
  set(unit_prefix "\${CMAKE_INSTALL_PREFIX}")
  if(ZOTCONF_PACKAGE)
    set(unit_prefix "${CMAKE_INSTALL_PREFIX}")
  endif()
  install(CODE "
    get_filename_component(prefix \"${unit_prefix}\" ABSOLUTE)
    get_filename_component(bindir \"${CMAKE_INSTALL_BINDIR}\" ABSOLUTE BASE_DIR \"\${prefix}\")
    foreach(unit zotconf-relay.service zotconf-watch.service)
      configure_file(\"${PROJECT_SOURCE_DIR}/packaging/\${unit}.in\"
        \"${PROJECT_BINARY_DIR}/\${unit}\" @ONLY)
      file(INSTALL \"${PROJECT_BINARY_DIR}/\${unit}\"
        DESTINATION \"\${CMAKE_INSTALL_PREFIX}/lib/systemd/system\")
    endforeach()"
    COMPONENT tools)
endif()
