# Which test got which status from which call: the linker puts a function that notes it between the
# tests and each call whose comment promises statuses.
set(promises ${CMAKE_CURRENT_SOURCE_DIR}/promises)
set(promises_made ${CMAKE_CURRENT_BINARY_DIR}/promises)
set(headers ${PROJECT_SOURCE_DIR}/include/zot_conf.h ${PROJECT_SOURCE_DIR}/include/zot_conf_ext.h)
set(pairs ${promises}/pairs.awk)
set(wrappers ${promises}/wrappers.awk)
set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${headers} ${pairs} ${wrappers})
execute_process(COMMAND awk -v form=calls -f ${pairs} ${headers}
  OUTPUT_VARIABLE calls COMMAND_ERROR_IS_FATAL ANY)
file(WRITE ${promises_made}/calls.txt "${calls}")
execute_process(COMMAND awk -f ${wrappers} ${promises_made}/calls.txt
  OUTPUT_VARIABLE functions COMMAND_ERROR_IS_FATAL ANY)
file(CONFIGURE OUTPUT ${promises_made}/wrappers.cpp CONTENT "${functions}" @ONLY)
target_sources(zotconf_tests PRIVATE
  promises/failing_memory.cpp promises/witness.cpp ${promises_made}/wrappers.cpp)
target_link_options(zotconf_tests PRIVATE
  -Wl,--wrap=malloc -Wl,--wrap=calloc -Wl,--wrap=strndup)
set_source_files_properties(${promises_made}/wrappers.cpp
  PROPERTIES SKIP_PRECOMPILE_HEADERS ON)
string(REGEX MATCHALL "[a-z_0-9]+[|]" names "${calls}")
foreach(name ${names})
  string(REPLACE "|" "" name ${name})
  target_link_options(zotconf_tests PRIVATE -Wl,--wrap=${name})
  # The library calls it by a name of its own, and the tests compare the addresses.
  if(name MATCHES "^ap_")
    target_link_options(zotconf_tests PRIVATE
      -Wl,--wrap=zot_own_${name} -Wl,--defsym=__wrap_zot_own_${name}=__wrap_${name})
  endif()
endforeach()

# The check reads what the tests of the whole program have recorded.
set(promises_kept ${promises_made}/kept.txt)
add_test(NAME promises.begin COMMAND ${CMAKE_COMMAND} -E rm -f ${promises_kept})
set_tests_properties(promises.begin PROPERTIES FIXTURES_SETUP promises_begin)
set_tests_properties(${parts_of_zotconf_tests} PROPERTIES
  FIXTURES_REQUIRED promises_begin FIXTURES_SETUP promises_kept)
foreach(part ${parts_of_zotconf_tests})
  set_property(TEST ${part} APPEND PROPERTY ENVIRONMENT "ZOT_TEST_PROMISES=${promises_kept}")
endforeach()
# Under emulation some of the tests are left out.
if(NOT CMAKE_CROSSCOMPILING)
  add_test(NAME promises.statuses
    COMMAND ${promises}/check.sh ${promises_kept}
      ${promises}/promises.txt ${PROJECT_SOURCE_DIR}/tests ${headers})
  set_tests_properties(promises.statuses PROPERTIES FIXTURES_REQUIRED promises_kept)
endif()
