# tests_in_parts(PROGRAM COUNT LEFT_OUT): registers the tests of a GoogleTest program, but for those
# whose names match LEFT_OUT, as so many tests of CTest, which run side by side. Sets names_of_parts
# to their names. Each prints the name of a test before it begins, so that the log of one that does
# not end tells which it was.
function(tests_in_parts program count left_out)
  set(names)
  math(EXPR last "${count} - 1")
  foreach(index RANGE ${last})
    math(EXPR number "${index} + 1")
    set(name ${program}.${number}_of_${count})
    list(APPEND names ${name})
    add_test(NAME ${name} COMMAND ${program} --gtest_filter=-${left_out})
    set_tests_properties(${name} PROPERTIES
      ENVIRONMENT "${test_environment};GTEST_TOTAL_SHARDS=${count};GTEST_SHARD_INDEX=${index}")
  endforeach()
  set(names_of_parts ${names} PARENT_SCOPE)
endfunction()
