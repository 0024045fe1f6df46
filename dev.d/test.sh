# SPDX-License-Identifier: Apache-2.0
# shellcheck shell=bash disable=SC2034,SC2154
# The tests, and the coverage of the code by them.

readonly coverage_floor=95

run_tests() {
  say "tests: $1"
  ctest --test-dir "build/$1" -j "$jobs" --output-on-failure --no-tests=error --timeout 300
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
  run_tests coverage
  say "line coverage of src and utilities"
  gcovr --root . --object-directory build/coverage --filter 'src/' --filter 'utilities/' \
    -j "$jobs" --print-summary --fail-under-line "$coverage_floor" build/coverage
}
