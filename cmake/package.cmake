# The Debian packages that `./dev package` makes and judges: the library, what one builds against it
# with, and the program. The preset `package` turns this on.
option(ZOTCONF_PACKAGE "Prepare Debian packages; implies what only such a package installs" OFF)
if(NOT ZOTCONF_PACKAGE)
  return()
endif()

set(packaging_dir ${PROJECT_SOURCE_DIR}/packaging)
file(STRINGS ${packaging_dir}/changelog newest LIMIT_COUNT 1)
if(NOT newest MATCHES "^zotconf \\(${PROJECT_VERSION}-([a-z0-9]+)\\) ")
  message(FATAL_ERROR "packaging/changelog has no entry for ${PROJECT_VERSION}: ${newest}")
endif()
set(package_revision ${CMAKE_MATCH_1})
set(package_version ${PROJECT_VERSION}-${package_revision})
set(lib_package libzotconf${PROJECT_VERSION_MAJOR})
set(dev_package libzotconf-dev)
set(tools_package zotconf-tools)

# Manual pages and completion are written by the program, and are packed with it.
if(TARGET zotconf_manual_pages)
  add_custom_target(zotconf_packed_pages ALL)
  add_dependencies(zotconf_packed_pages zotconf_manual_pages)
endif()

# ------------------------------------------------------------------ what Debian's policy asks for
find_program(gzip_program gzip REQUIRED)
file(MAKE_DIRECTORY ${PROJECT_BINARY_DIR}/packaging)
set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS
  ${packaging_dir}/changelog ${PROJECT_SOURCE_DIR}/CHANGELOG.md)
foreach(pair changelog:changelog.Debian.gz ../CHANGELOG.md:changelog.gz)
  string(REPLACE ":" ";" pair ${pair})
  list(GET pair 0 plain)
  list(GET pair 1 packed)
  execute_process(
    COMMAND ${gzip_program} -9nc ${packaging_dir}/${plain}
    OUTPUT_FILE ${PROJECT_BINARY_DIR}/packaging/${packed} COMMAND_ERROR_IS_FATAL ANY)
endforeach()
foreach(component lib dev tools)
  set(doc_dir ${CMAKE_INSTALL_DATADIR}/doc/${${component}_package})
  install(FILES ${packaging_dir}/copyright
    ${PROJECT_BINARY_DIR}/packaging/changelog.gz ${PROJECT_BINARY_DIR}/packaging/changelog.Debian.gz
    DESTINATION ${doc_dir} COMPONENT ${component})
endforeach()

# Documents and examples go with the package of those who need them.
set(docs ${PROJECT_SOURCE_DIR}/docs)
install(FILES ${docs}/architecture.md ${docs}/formats.md ${docs}/porting.md ${docs}/upgrading.md
  DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/${dev_package} COMPONENT dev)
install(FILES ${docs}/delivery.md ${docs}/deployment.md ${docs}/errors.md ${docs}/json.md
  ${docs}/operations.md
  DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/${tools_package} COMPONENT tools)
install(DIRECTORY ${PROJECT_SOURCE_DIR}/examples
  DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/${dev_package} COMPONENT dev
  FILES_MATCHING PATTERN "*.c" PATTERN "*.cpp" PATTERN "*.md" PATTERN sample EXCLUDE)
install(DIRECTORY ${PROJECT_SOURCE_DIR}/examples
  DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/${tools_package} COMPONENT tools
  USE_SOURCE_PERMISSIONS FILES_MATCHING PATTERN "*.sh" PATTERN sample EXCLUDE)
install(DIRECTORY ${PROJECT_SOURCE_DIR}/examples/sample
  DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/${tools_package}/examples COMPONENT tools)

# --------------------------------------------------------------------------- the control members
set(control_dir ${PROJECT_BINARY_DIR}/packaging/control)
configure_file(${packaging_dir}/${lib_package}.symbols ${control_dir}/symbols COPYONLY)
configure_file(${packaging_dir}/${lib_package}.triggers ${control_dir}/triggers COPYONLY)
file(CONFIGURE OUTPUT ${control_dir}/shlibs @ONLY
  CONTENT "libzotconf @PROJECT_VERSION_MAJOR@ @lib_package@ (>= @PROJECT_VERSION@)\n")

# dpkg-shlibdeps learns which package the program's library comes from where it finds the library:
# in a folder laid out like that package.
set(shlibs_root ${PROJECT_BINARY_DIR}/packaging/shlibs)
set(shlibs_dir ${shlibs_root}${CMAKE_INSTALL_FULL_LIBDIR})
file(MAKE_DIRECTORY ${shlibs_root}/DEBIAN ${shlibs_dir})
file(COPY ${control_dir}/symbols ${control_dir}/shlibs DESTINATION ${shlibs_root}/DEBIAN)
add_custom_target(zotconf_shlibs ALL
  COMMAND ${CMAKE_COMMAND} -E copy
    $<TARGET_FILE:zotconf> ${shlibs_dir}/$<TARGET_SONAME_FILE_NAME:zotconf>
  COMMENT "" VERBATIM)
add_dependencies(zotconf_shlibs zotconf)

# ---------------------------------------------------------------------------------- the packages
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME zotconf)
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "")  # each package has its own synopsis
set(CPACK_PACKAGE_CONTACT "zotconf developers <zotconf@example.org>")
set(CPACK_PACKAGE_DIRECTORY ${PROJECT_BINARY_DIR}/debs)
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_COMPONENTS_ALL lib dev tools)
set(CPACK_COMPONENTS_GROUPING IGNORE)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_PRE_BUILD_SCRIPTS ${packaging_dir}/finish_trees.cmake)
set(CPACK_POST_BUILD_SCRIPTS ${packaging_dir}/finish_packages.cmake)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
  OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)

set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_RELEASE ${package_revision})
set(CPACK_DEBIAN_PACKAGE_SOURCE zotconf)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
set(CPACK_DEBIAN_COMPRESSION_TYPE xz)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${shlibs_dir})

set(CPACK_DEBIAN_LIB_PACKAGE_NAME ${lib_package})
set(CPACK_DEBIAN_LIB_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_LIB_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_LIB_PACKAGE_CONTROL_EXTRA
  ${control_dir}/symbols ${control_dir}/shlibs ${control_dir}/triggers)
set(CPACK_DEBIAN_LIB_DESCRIPTION "configuration cache for managed network elements
A process that links this library gets the configuration that a controller
published for its network element. The library verifies every byte and reports
what changed since the configuration in force. The process then commits the
configuration or rolls it back.
.
This package contains the shared library.")

set(CPACK_DEBIAN_DEV_PACKAGE_NAME ${dev_package})
set(CPACK_DEBIAN_DEV_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEV_PACKAGE_DEPENDS "${lib_package} (= ${package_version})\
, libcjson-dev, libcurl4-openssl-dev, libssl-dev")
set(CPACK_DEBIAN_DEV_PACKAGE_RECOMMENDS "pkg-config")
set(CPACK_DEBIAN_DEV_DESCRIPTION "configuration cache for managed network elements (development)
A process that links this library gets the configuration that a controller
published for its network element. The library verifies every byte and reports
what changed since the configuration in force. The process then commits the
configuration or rolls it back.
.
This package contains the C and C++ headers, the static library, the files for
pkg-config and CMake, and examples.")

set(CPACK_DEBIAN_TOOLS_PACKAGE_NAME ${tools_package})
set(CPACK_DEBIAN_TOOLS_PACKAGE_SECTION net)
set(CPACK_DEBIAN_TOOLS_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_TOOLS_DESCRIPTION "publish, serve and receive configurations of network elements
The program zotconf publishes a folder of files as the configuration of a
managed network element and serves it over HTTP. It also gets a configuration
as an element does: it verifies it, compares it with the configuration in
force, and commits it or rolls it back.
.
This package contains the program, its manual pages, its bash completion, and a
systemd units that keep an element up to date. Enable the units by hand.")

include(CPack)
