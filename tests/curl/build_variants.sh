#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# usage: build_variants.sh WORK_DIR JOBS
# Builds variants of libcurl from Debian's source package: one without each optional feature, and one
# without all of them. The result is WORK_DIR/NAME/libcurl.a for each NAME in WORK_DIR/names.
set -euo pipefail

work=$(realpath -m "$1") jobs=$2
# shellcheck source=tests/support/debian_source.sh
source "$(dirname "$0")/../support/debian_source.sh"

# For each feature of configure, the macro that disabling it defines, or with `!` undefines.
declare -rA features=([cookies]=CURL_DISABLE_COOKIES [ipv6]=!ENABLE_IPV6
  [progress-meter]=CURL_DISABLE_PROGRESS_METER [proxy]=CURL_DISABLE_PROXY
  [verbose]=CURL_DISABLE_VERBOSE_STRINGS)

# configure only warns about an unknown option, so the result is checked.
lacks() {
  local macro=${features[$1]} has=0
  grep -q "^#define ${macro#!} 1$" lib/curl_config.h || has=1
  [[ $macro != !* ]] || has=$((1 - has))
  ((has == 0)) || {
    echo "this libcurl still has $1"
    return 1
  }
}

# make_curl NAME FEATURE…: builds libcurl without the features. configure reuses the cached results of
# the first build.
make_curl() {
  local folder=$work/$1 feature
  shift
  mkdir "$folder"
  cd "$folder"
  [[ ! -e $work/found ]] || cp "$work/found" config.cache
  local source=("$work"/source/curl-*/)
  CFLAGS="-O0 -w" "${source[0]}configure" --quiet --config-cache --disable-shared \
    --disable-dependency-tracking \
    --without-ssl --without-zlib --without-brotli --without-zstd --without-libpsl \
    --without-libidn2 --without-nghttp2 --without-librtmp \
    --disable-{ftp,file,ldap,ldaps,rtsp,dict,telnet,tftp,pop3,imap,smb,smtp,gopher,mqtt} \
    --disable-{doh,manual,ntlm-wb,tls-srp} "${@/#/--disable-}"
  for feature in "$@"; do
    lacks "$feature"
  done
  make -C lib
  mv lib/.libs/libcurl.a .
  rm -rf docs lib src tests
}

rm -rf "$work"
mkdir -p "$work"
trap wait EXIT
step fetch fetch curl
mapfile -t names < <(printf '%s\n' "${!features[@]}" | sort)
step no-all make_curl no-all "${names[@]}"
cp "$work/no-all/config.cache" "$work/found"
builds=()
for name in "${names[@]}"; do
  ((${#builds[@]} < jobs)) || wait "${builds[-jobs]}"
  step "no-$name" make_curl "no-$name" "$name" &
  builds+=($!)
done
for build in "${builds[@]}"; do
  wait "$build"
done
printf 'no-%s\n' all "${names[@]}" >"$work/names"
rm -rf "$work/source"
