# SPDX-License-Identifier: Apache-2.0
# shellcheck shell=bash disable=SC2034,SC2154
# Installs the missing Debian packages that a command needs. A file here that needs more than these
# passes its own list to `need`.

# Packages to build and run the library and the program.
readonly build_packages=(
  binutils g++
  cmake ninja-build pkg-config
  gzip tar
  libarchive-dev
  libcjson-dev
  libcli11-dev
  libcurl4-openssl-dev
  libmicrohttpd-dev
  libssl-dev)

# Packages that the tests and lint need in addition.
readonly check_packages=(
  busybox-static
  clang-format clang-tidy
  gcovr
  libcpp-httplib-dev
  libengine-pkcs11-openssl
  libgtest-dev
  mandoc
  mount
  nginx-light
  opensc
  openssl
  shellcheck
  softhsm2)

is_installed() {
  [[ "$(dpkg-query -W -f='${db:Status-Status}' "$1" 2>/dev/null)" == installed ]]
}

are_installed() {
  local package
  for package in "$@"; do
    is_installed "$package" || return 1
  done
}

need() {
  command -v dpkg-query >/dev/null ||
    fail "setup supports only Debian; install the equivalents of: $*"
  local missing=() package
  for package in "$@"; do
    is_installed "$package" || missing+=("$package")
  done
  if ((${#missing[@]} == 0)); then
    return
  fi
  if ((EUID != 0)); then
    fail "packages are missing and only root may install them; run as root:
  apt-get update && apt-get install --no-install-recommends ${missing[*]}"
  fi
  say "installing ${missing[*]}"
  export DEBIAN_FRONTEND=noninteractive
  # Two commands may run side by side.
  flock dev.d apt-get update -qq
  flock dev.d apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
}

setup() {
  need "${build_packages[@]}" "${check_packages[@]}"
}
