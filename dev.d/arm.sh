# SPDX-License-Identifier: Apache-2.0
# shellcheck shell=bash disable=SC2034,SC2154
# Builds and tests the library and the tools for 32-bit ARM, under emulation.

readonly arm_tools=(debian-archive-keyring g++-arm-linux-gnueabihf mmdebstrap qemu-user)
readonly arm_suite=bookworm
readonly arm_sysroot=build/arm-sysroot
readonly arm_packages=(
  libarchive-dev libcjson-dev libcli11-dev libcpp-httplib-dev libcurl4-openssl-dev libgtest-dev
  libmicrohttpd-dev libssl-dev libstdc++-12-dev)

# The packages of that release, from the sources of this machine's apt.
arm_sources() {
  apt-get indextargets --format 'deb $(REPO_URI) $(RELEASE) $(COMPONENT)' 'Created-By: Packages' \
    'Origin: Debian' "Codename: $arm_suite" 'Component: main' | sort -u
}

# arm_unpack FOLDER PACKAGE…: unpacks armhf packages and what they need; nothing is installed.
arm_unpack() {
  local folder=$1 sources settings=build/arm-apt.conf
  shift
  sources=$(arm_sources)
  if [[ -z $sources ]]; then
    flock dev.d apt-get update -qq
    sources=$(arm_sources)
  fi
  [[ -n $sources ]] || fail "apt has no sources for the release $arm_suite"
  say "arm: unpacking $# armhf packages and what they need"
  rm -rf "$folder"
  mkdir -p build
  apt-config dump | grep -E '^Acquire::(Check-|http|https|Retries|Proxy)' >"$settings" || true
  printf '%s\n' "$sources" |
    mmdebstrap --quiet --architectures=armhf --variant=extract --aptopt="$PWD/$settings" \
      --include="$(IFS=,; echo "$*")" "$arm_suite" "$folder" - ||
    fail "cannot unpack the armhf packages"
}

# Keeps only libraries and headers: the emulator prefers files in this folder to those of the machine, so
# an empty /tmp and /etc here would hide the machine's own.
arm_make_sysroot() {
  rm -rf "$arm_sysroot"
  arm_unpack "$arm_sysroot.new" "${arm_packages[@]}"
  find "$arm_sysroot.new" -mindepth 1 -maxdepth 1 ! -name usr ! -name lib -exec rm -rf {} +
  echo "$arm_suite ${arm_packages[*]}" >"$arm_sysroot.new/packages"
  mv "$arm_sysroot.new" "$arm_sysroot"
}

arm_setup() {
  setup
  need "${arm_tools[@]}"
  [[ "$(cat "$arm_sysroot/packages" 2>/dev/null)" == "$arm_suite ${arm_packages[*]}" ]] ||
    arm_make_sysroot
}

# CTest handles the names of its own tests; the test programs handle theirs. A program that hangs
# under the emulator, as one did in one of many runs, is run once more, and CTest tells both. The
# tests of this machine get no second run.
arm_run_tests() {
  local names
  names=$(sed -nE 's/^([^# ]+) .*/\1/p' tests/emulation.txt | paste -sd'|')
  run_tests arm --exclude-regex "^(${names//\*/.*})\$" --repeat after-timeout:2
  say "arm: not run under emulation"
  grep -v '^#' tests/emulation.txt
}

arm() {
  build arm
  arm_run_tests
}
