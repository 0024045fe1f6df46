# What `cmake --install` puts down: the header, both forms of the library, a CMake package and a
# pkg-config file. The tree may be moved after it was installed.
include(CMakePackageConfigHelpers)

set(package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/zotconf)

install(FILES ${PROJECT_SOURCE_DIR}/include/zot_conf.h DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
install(TARGETS zotconf zotconf_static EXPORT zotconf_targets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
  ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR})
install(EXPORT zotconf_targets
  NAMESPACE zotconf:: FILE zotconfTargets.cmake DESTINATION ${package_dir})

configure_package_config_file(
  ${PROJECT_SOURCE_DIR}/cmake/zotconfConfig.cmake.in ${PROJECT_BINARY_DIR}/zotconfConfig.cmake
  INSTALL_DESTINATION ${package_dir} NO_SET_AND_CHECK_MACRO)
write_basic_package_version_file(
  ${PROJECT_BINARY_DIR}/zotconfConfigVersion.cmake COMPATIBILITY SameMajorVersion)
install(FILES
  ${PROJECT_BINARY_DIR}/zotconfConfig.cmake ${PROJECT_BINARY_DIR}/zotconfConfigVersion.cmake
  DESTINATION ${package_dir})

# The prefix is told from the place of the pkg-config file, as seen from a root of any name.
file(RELATIVE_PATH pc_to_prefix /prefix/${CMAKE_INSTALL_LIBDIR}/pkgconfig /prefix)
configure_file(
  ${PROJECT_SOURCE_DIR}/cmake/zotconf.pc.in ${PROJECT_BINARY_DIR}/zotconf.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/zotconf.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
