# SPDX-License-Identifier: Apache-2.0
# shellcheck shell=bash disable=SC2034,SC2154
# Runs the tests and measures their coverage.

readonly coverage_least_lines=97
readonly coverage_least_branches=90

# run_tests PRESET [OPTION OF CTEST]...
run_tests() {
  local preset=$1
  shift
  say "tests: $preset"
  # Many tests mostly wait, so two more run in parallel. The sweeps have their own command.
  ctest --test-dir "build/$preset" -j $((jobs + 2)) -LE faults --output-on-failure \
    --no-tests=error --timeout 300 "$@"
  say "tests: $preset: $(count_tests "build/$preset/Testing/Temporary/LastTest.log") cases"
}

# Counts test cases. A test of CTest may be a GoogleTest program with many cases, which are counted
# one by one. The second run with busybox does not count.
count_tests() {
  awk '
    / Testing: / { again = $NF ~ /^busybox\./ }
    !again && /^\[  PASSED  \] [0-9]+ tests?\.$/ { cases += $4; --programs }
    /^Test Passed\.$/ { ++programs }
    END { print cases + programs }' "$1"
}

test_all() {
  setup
  build release
  build asan
  run_tests asan
  run_tests release
}

test_coverage() {
  setup
  build coverage
  find build/coverage -name '*.gcda' -delete
  # The first run creates the files of the counts. A process of zotconf that changes its user has to be
  # able to write them too, or it says on standard error that it cannot.
  build/coverage/tools/zotconf --version >/dev/null
  find build/coverage -name '*.gcda' -exec chmod a+w {} +
  run_tests coverage
  say "coverage of src and utilities"
  gcovr --root . --object-directory build/coverage --filter 'src/' --filter 'utilities/' \
    -j "$jobs" --print-summary --fail-under-line "$coverage_least_lines" \
    --fail-under-branch "$coverage_least_branches" build/coverage
}
