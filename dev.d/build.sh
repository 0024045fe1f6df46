# SPDX-License-Identifier: Apache-2.0
# shellcheck shell=bash disable=SC2034,SC2154
# Builds, and the demo.

configure() {
  cmake --preset "$1" --log-level=WARNING >/dev/null
}

build() {
  local preset=${1:-release}
  case $preset in
    release | debug | asan | coverage | arm) ;;
    *) fail "there is no preset '$preset': release, debug, asan, coverage or arm" ;;
  esac
  [[ $preset != arm ]] || arm_setup
  say "build: $preset"
  configure "$preset"
  local quiet=()
  [[ -t 1 ]] || quiet=(-- --quiet)
  cmake --build --preset "$preset" -j "$jobs" "${quiet[@]}"
}

demo() {
  setup
  build release
  examples/demo.sh "$PWD/build/release/tools/zotconf"
}
