# Registers each test of zotconf_tests with CTest. A test whose suite is named …Port8087 needs the
# default port of the service for itself.
gtest_discover_tests(zotconf_tests
  DISCOVERY_MODE PRE_TEST
  TEST_FILTER "-*Port8087*"
  TEST_LIST ordinary_tests
  PROPERTIES TIMEOUT 120)
gtest_discover_tests(zotconf_tests
  DISCOVERY_MODE PRE_TEST
  TEST_FILTER "*Port8087*"
  TEST_LIST default_port_tests
  PROPERTIES TIMEOUT 120 RESOURCE_LOCK port8087)
# The discovery would pass on the first variable of the list only.
set(environment_script ${CMAKE_CURRENT_BINARY_DIR}/test_environment.cmake)
file(CONFIGURE OUTPUT ${environment_script} @ONLY CONTENT
[=[foreach(test IN LISTS ordinary_tests default_port_tests tool_tests)
  set_tests_properties("${test}" PROPERTIES ENVIRONMENT "@test_environment@")
endforeach()
]=])
set_property(DIRECTORY APPEND PROPERTY TEST_INCLUDE_FILES ${environment_script})
