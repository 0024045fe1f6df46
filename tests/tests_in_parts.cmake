# tests_in_parts(PROGRAM COUNT FILTER PROPERTIES...): registers the tests of a GoogleTest program that
# the filter names as so many tests of CTest, which run side by side, each in a process of its own.
function(tests_in_parts program count filter)
  math(EXPR last "${count} - 1")
  foreach(index RANGE ${last})
    math(EXPR number "${index} + 1")
    set(name ${program}.${number}_of_${count})
    add_test(NAME ${name} COMMAND ${program} --gtest_brief=1 --gtest_filter=${filter})
    set_tests_properties(${name} PROPERTIES
      TIMEOUT 600
      ENVIRONMENT "${test_environment};GTEST_TOTAL_SHARDS=${count};GTEST_SHARD_INDEX=${index}"
      ${ARGN})
  endforeach()
endfunction()
