#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# usage: build_libraries.sh WORK_DIR JOBS
# Builds what the library needs on a small device from Debian's source packages, with musl-gcc and
# into WORK_DIR/root: cJSON, a libcurl that speaks HTTP and nothing else, and libcrypto with SHA-256
# and little else. The packages come from the release that this machine's apt uses.
set -euo pipefail

work=$(realpath -m "$1") jobs=$2
root=$work/root
readonly flags="-Os -ffunction-sections -fdata-sections"

rm -rf "$work/source" "$work/kernel" "$root"
mkdir -p "$work/source/lists" "$work/kernel" "$root/include" "$root/lib/pkgconfig"

# Tells how a step ended; its log shows up when it failed.
tell_end() {
  local status=$1 name=$2 begin=$3
  if ((status == 0)); then
    printf '%-10s %4d s\n' "$name" $((SECONDS - begin))
  else
    tail -n 40 "$work/$name.log" >&2
    echo "${0##*/}: $name failed; the whole log is $work/$name.log" >&2
  fi
}

# Runs in a process of its own, which ends at the first command that fails.
step() (
  local name=$1
  shift
  # shellcheck disable=SC2064  # the time to count from is this one
  trap "tell_end \$? '$name' $SECONDS" EXIT
  "$@" >"$work/$name.log" 2>&1
)

sources() {
  local codename
  codename=$(sed -n 's/^VERSION_CODENAME=//p' /etc/os-release)
  apt-get indextargets \
    --format 'deb-src [signed-by=$(SIGNED_BY)] $(REPO_URI) $(RELEASE) $(COMPONENT)' \
    'Created-By: Packages' 'Origin: Debian' 'Component: main' "Codename: $codename" |
    sed 's/ \[signed-by=\$(SIGNED_BY)\]//' | sort -u
}

# One suite alone: its index and its packages are of one piece.
fetch() {
  sources >"$work/source/apt.list"
  if [[ ! -s $work/source/apt.list ]]; then
    apt-get update
    sources >"$work/source/apt.list"
  fi
  if [[ ! -s $work/source/apt.list ]]; then
    echo "apt knows of no sources for the release of this machine"
    return 1
  fi
  cd "$work/source"
  local apt=(apt-get -o Dir::Etc::SourceList="$PWD/apt.list" -o Dir::Etc::SourceParts=/dev/null
    -o Dir::State::Lists="$PWD/lists" -o Dir::Cache="$PWD/cache" -o APT::Sandbox::User=root)
  "${apt[@]}" update
  "${apt[@]}" source cjson curl openssl
}

make_cjson() {
  cd "$work"/source/cjson-*/
  # shellcheck disable=SC2086  # flags are several words
  musl-gcc $flags -c cJSON.c
  ar rcs "$root/lib/libcjson.a" cJSON.o
  mkdir "$root/include/cjson"
  cp cJSON.h "$root/include/cjson"
  printf '%s\n' "Name: libcjson" "Description: JSON" "Version: $(basename "$PWD" | sed 's/.*-//')" \
    "Libs: -L$root/lib -lcjson" "Cflags: -I$root/include" >"$root/lib/pkgconfig/libcjson.pc"
}

# The library asks by GET and POST, and for the time of a file (hence the parser for dates).
make_curl() {
  cd "$work"/source/curl-*/
  CC=musl-gcc CFLAGS=$flags ./configure --host="$(uname -m)-linux-musl" --prefix="$root" \
    --disable-shared --enable-static --disable-dependency-tracking \
    --without-ssl --without-zlib --without-brotli --without-zstd --without-libpsl \
    --without-libidn2 --without-nghttp2 --without-librtmp \
    --disable-{ftp,file,ldap,ldaps,rtsp,dict,telnet,tftp,pop3,imap,smb,smtp,gopher,mqtt} \
    --disable-{alt-svc,ares,cookies,crypto-auth,doh,get-easy-options,headers-api,hsts,http-auth} \
    --disable-{ipv6,libcurl-option,manual,mime,netrc,ntlm-wb,progress-meter,proxy,socketpair} \
    --disable-{threaded-resolver,tls-srp,unix-sockets,verbose}
  make -C lib -j "$jobs" install
  make -C include install
}

# The headers of the kernel belong to no C library, but stand among those of glibc.
make_crypto() {
  local kernel=$work/kernel
  ln -s /usr/include/linux /usr/include/asm-generic "/usr/include/$(gcc -print-multiarch)/asm" \
    "$kernel"
  cd "$work"/source/openssl-*/
  ./Configure "linux-$(uname -m)" CC=musl-gcc CFLAGS="$flags -w -idirafter $kernel" \
    no-{asm,async,autoload-config,cached-fetch,dgram,dso,engine,err,filenames,ktls,legacy} \
    no-{multiblock,secure-memory,shared,sock,tests,threads,ui-console} \
    no-{aria,bf,blake2,camellia,cast,chacha,cmac,cmp,cms,comp,ct,des,dh,dsa,ec,gost,idea,md4} \
    no-{mdc2,ocb,ocsp,poly1305,psk,rc2,rc4,rfc3779,rmd160,scrypt,seed,siphash,siv,sm2,sm3,sm4} \
    no-{srp,srtp,ssl,tls,ts,whirlpool}
  make build_generated
  make -j "$jobs" libcrypto.a
  cp libcrypto.a "$root/lib"
  cp -r include/openssl "$root/include"
}

trap wait EXIT
step fetch fetch
step cJSON make_cjson
# Most of libcurl's time goes into its configure, which knows one process only.
step libcurl make_curl &
curl=$!
step libcrypto make_crypto
wait "$curl"
rm -rf "$work/source" "$work/kernel"
