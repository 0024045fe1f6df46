# CPack runs this on the packages that it made. It removes the ldconfig scripts that CPack always adds,
# because the library's trigger already runs ldconfig. It marks the library package "Multi-Arch: same",
# so that libraries of several architectures can be installed together.
foreach(package IN LISTS CPACK_PACKAGE_FILES)
  set(tree ${package}.tree)
  file(REMOVE_RECURSE ${tree})
  execute_process(COMMAND dpkg-deb --raw-extract ${package} ${tree} COMMAND_ERROR_IS_FATAL ANY)
  file(REMOVE ${tree}/DEBIAN/postinst ${tree}/DEBIAN/postrm)
  if(package MATCHES "/libzotconf")
    file(READ ${tree}/DEBIAN/control control)
    string(STRIP "${control}" control)
    file(WRITE ${tree}/DEBIAN/control "${control}\nMulti-Arch: same\n")
  endif()
  execute_process(COMMAND dpkg-deb --root-owner-group -Zxz --build ${tree} ${package}
    OUTPUT_QUIET COMMAND_ERROR_IS_FATAL ANY)
  file(REMOVE_RECURSE ${tree})
endforeach()
