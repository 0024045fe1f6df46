# SPDX-License-Identifier: Apache-2.0
# shellcheck shell=bash disable=SC2034,SC2154
# Builds the project and runs the demo.

# hold_folder PRESET: until the subshell ends. Commands may run side by side, but a build folder takes one
# at a time.
hold_folder() {
  mkdir -p build
  exec 9>"build/$1.lock"
  flock 9
}

# configure PRESET [OPTION OF CMAKE]...
configure() (
  hold_folder "$1"
  cmake --preset "$@" --log-level=WARNING >/dev/null
)

readonly seconds_between_steps=10

# Prints the output of ninja, but its progress only every few seconds.
sparse_steps() {
  local line step next=$SECONDS
  while IFS= read -r line; do
    if [[ $line =~ ^\[([0-9]+)/([0-9]+)\]\  ]]; then
      step="   ${BASH_REMATCH[1]} of ${BASH_REMATCH[2]} steps"
      ((SECONDS >= next || BASH_REMATCH[1] == BASH_REMATCH[2])) || continue
      next=$((SECONDS + seconds_between_steps))
      line=$step
    fi
    printf '%s\n' "$line"
  done
}

# run_ninja PRESET [TARGET]... [-- OPTION OF NINJA]...
run_ninja() (
  command=(cmake --build --preset "$1" -j "$jobs")
  hold_folder "$1"
  shift
  [[ ${1:---} == -- ]] || command+=(--target)
  "${command[@]}" "$@"
)

# build_steps PRESET [TARGET]...: a terminal gets one updated line, a file gets few lines.
build_steps() {
  if [[ -t 1 ]]; then
    run_ninja "$@"
  else
    run_ninja "$@" | sparse_steps
  fi
}

# build_quietly PRESET [TARGET]...: a file gets no lines.
build_quietly() {
  local quiet=()
  [[ -t 1 ]] || quiet=(-- --quiet)
  run_ninja "$@" "${quiet[@]}"
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
  build_steps "$preset"
}

# The targets that the demo and an installation need: the library, the program and its manual pages.
readonly demo_targets=(zotconf zotconf_static zotconf_cli zotconf_manual_pages)

# Builds what the demos need, with only the packages that this needs.
demo_build() {
  need "${build_packages[@]}" nginx-light openssl
  local without=()
  # Without the test packages, the tests cannot be configured.
  are_installed "${check_packages[@]}" || without=(-DZOTCONF_BUILD_TESTS=OFF)
  say "build: release, the library and the program"
  configure release "${without[@]}"
  build_steps release "${demo_targets[@]}"
}

demo() {
  demo_build
  say "demo: configuration cycles of one element"
  examples/demo.sh "$PWD/build/release/tools/zotconf"
  say "demo: from the controller to the element, over a web server"
  examples/demo_delivery.sh "$PWD/build/release/tools/zotconf"
}

demo_fleet() {
  demo_build
  say "demo: a change reaches a fleet of 200 elements in two waves"
  examples/demo_fleet.sh "$PWD/build/release/tools/zotconf"
}
