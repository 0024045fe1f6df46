# SPDX-License-Identifier: Apache-2.0
# shellcheck shell=bash disable=SC2034,SC2154
# Builds the Debian packages and checks them before a release.

readonly package_tools=(
  abigail-tools debian-archive-keyring dpkg-dev fakeroot file lintian mmdebstrap)
readonly package_build=build/package

abi_baseline() {
  printf 'packaging/abi/libzotconf1.%s.abi' "$(dpkg --print-architecture)"
}

package_built_library() {
  printf '%s' "$package_build"/src/libzotconf.so.*.*.*
}

# Runs a check and prints its result in one line; if it failed, its output follows.
package_check() {
  local name=$1 begin=$SECONDS status=0
  shift
  "$@" >"$package_build/check.log" 2>&1 || status=$?
  if ((status == 0)); then
    printf '%-8s ok      %3d s\n' "$name" $((SECONDS - begin))
  else
    printf '%-8s FAILED  %3d s\n' "$name" $((SECONDS - begin))
  fi
  sed 's/^/         /' "$package_build/check.log"
  return "$status"
}

package_setup() {
  setup
  need "${package_tools[@]}"
  configure package
}

package_make() {
  build_steps package
  rm -rf "$package_build/debs"
  SOURCE_DATE_EPOCH=$(dpkg-parsechangelog -l packaging/changelog -S Timestamp) \
    cpack --config "$package_build/CPackConfig.cmake" >"$package_build/cpack.log" 2>&1 || {
    cat "$package_build/cpack.log" >&2
    return 1
  }
  rm -rf "$package_build/debs/_CPack_Packages"
}

package() {
  package_setup
  say "package: build"
  package_make
  local debs=("$package_build"/debs/*.deb) deb failed=0
  for deb in "${debs[@]}"; do
    printf '%s: %s\n' "${deb##*/}" "$(dpkg-deb --field "$deb" Depends)"
  done
  say "package: checks"
  package_check symbols packaging/test/symbols.sh "$package_build"/debs/libzotconf1_*.deb || failed=1
  package_check abi packaging/test/abi.sh "$(package_built_library)" "$(abi_baseline)" || failed=1
  package_check lintian packaging/test/lintian.sh "${debs[@]}" || failed=1
  package_check install packaging/test/install.sh "$package_build/root" "${debs[@]}" || failed=1
  package_check readme packaging/test/readme.sh "$package_build/readme-root" || failed=1
  ((failed == 0)) || fail "a check of the packages failed"
}

package_update_abi() {
  package_setup
  build_steps package zotconf
  packaging/test/abi.sh "$(package_built_library)" "$(abi_baseline)" --update
  say "package: $(abi_baseline) now has the current interface"
}
