# SPDX-License-Identifier: Apache-2.0
# shellcheck shell=bash disable=SC2034,SC2154
# Runs complete cycles with builds of libcurl that lack optional features.

readonly curl_build=build/curl

# The builds take minutes, so they are repeated only when the scripts change.
curl_make_variants() {
  local scripts=(tests/curl/build_variants.sh tests/support/debian_source.sh)
  local stamp=$curl_build/variants/made
  if ! sha256sum --check --status "$stamp" 2>/dev/null; then
    say "curl: Debian's libcurl without its optional features"
    "${scripts[0]}" "$curl_build/variants" "$jobs"
    sha256sum "${scripts[@]}" >"$stamp"
  fi
}

# curl_link VARIANT SOURCE: builds a program with the library and that libcurl linked statically.
curl_link() {
  local variant=$1 source=$2
  gcc -std=c11 -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Werror -Iinclude "$source" \
    -o "$curl_build/programs/$variant/$(basename "$source" .c)" build/release/src/libzotconf.a \
    "$curl_build/variants/$variant/libcurl.a" -lcrypto -lcjson -lpthread
}

curl_cycles() {
  setup
  need busybox-static dpkg-dev make
  curl_make_variants
  say "curl: the library and its programs, with each libcurl"
  configure release
  build_quietly release zotconf_cli zotconf_static
  local variants variant source
  mapfile -t variants <"$curl_build/variants/names"
  for variant in "${variants[@]}"; do
    mkdir -p "$curl_build/programs/$variant"
    for source in examples/cycle.c tests/musl/client.c tests/api/c_client.c; do
      curl_link "$variant" "$source"
    done
    say "curl: cycles, $variant"
    tests/musl/run_cycle.sh build/release/tools/zotconf examples/sample \
      "$curl_build/programs/$variant" path
  done
}
