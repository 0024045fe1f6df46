#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# usage: check_build_steps.sh BUILD_PART
# What `./dev` shows of a build that nobody watches on a terminal: how far it is, in few lines, and
# whatever is not a step, as it is.
set -euo pipefail

# shellcheck source=dev.d/build.sh
source "$1"

fail() {
  printf '%s\n' "$*" >&2
  exit 1
}

shown=$({
  printf '[%d/500] Building CXX object some/file.o\n' {1..250}
  echo 'FAILED: some/file.o'
  echo '[1] a warning of the compiler'
  printf '[%d/500] Building CXX object some/file.o\n' {251..500}
} | sparse_steps)
[[ $shown == "   1 of 500 steps"$'\n'* ]] || fail "does not begin with the first step: $shown"
[[ $shown == *$'\n'"   500 of 500 steps" ]] || fail "does not end with the last step: $shown"
[[ $shown == *$'\nFAILED: some/file.o\n[1] a warning of the compiler\n'* ]] ||
  fail "does not show what is not a step: $shown"
# A slow machine may take longer than the time between two lines, but not for every one.
(($(wc -l <<<"$shown") < 20)) || fail "shows too many steps: $shown"

# A build that goes on for long is seen to go on.
shown=$({
  echo '[1/3] first'
  sleep $((seconds_between_steps + 1))
  echo '[2/3] second'
} | sparse_steps)
[[ $shown == $'   1 of 3 steps\n   2 of 3 steps' ]] || fail "is silent for too long: $shown"

# The status is that of the build.
cmake() { printf '[1/2] step\n' && return 3; }
jobs=1
status=0
build_steps release >/dev/null || status=$?
((status == 3)) || fail "a build that fails with 3 ends with $status"
echo "steps of a build are shown"
