#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# usage: build_libraries.sh WORK_DIR JOBS [SYSROOT]
# Builds the libraries that the library needs on a small device, from Debian's source packages, with
# musl-gcc, into WORK_DIR/root: cJSON, a libcurl with HTTP only, and a libcrypto with SHA-256 and little
# else. The packages come from the release that this machine's apt uses. With SYSROOT, the libraries are
# for 32-bit ARM, with the musl and the kernel's headers in there.
set -euo pipefail

work=$(realpath -m "$1") jobs=$2 sysroot=${3:-}
# shellcheck source=tests/support/debian_source.sh
source "$(dirname "$0")/../support/debian_source.sh"
root=$work/root
readonly flags="-Os -ffunction-sections -fdata-sections"
if [[ -n $sysroot ]]; then
  sysroot=$(realpath "$sysroot")
  export MUSL_SYSROOT=$sysroot
  compiler=$(realpath "$(dirname "$0")/musl-arm-gcc.sh")
  host=arm-linux-musleabihf openssl_target=linux-armv4 headers=arm-linux-gnueabihf
  binutils=arm-linux-gnueabihf-
else
  compiler=musl-gcc binutils=
  host=$(uname -m)-linux-musl openssl_target=linux-$(uname -m) headers=$(gcc -print-multiarch)
fi
readonly compiler host openssl_target headers binutils

rm -rf "$work/source" "$work/kernel" "$root"
mkdir -p "$work/kernel" "$root/include" "$root/lib/pkgconfig"

make_cjson() {
  cd "$work"/source/cjson-*/
  # shellcheck disable=SC2086  # flags are several words
  "$compiler" $flags -c cJSON.c
  "${binutils}ar" rcs "$root/lib/libcjson.a" cJSON.o
  mkdir "$root/include/cjson"
  cp cJSON.h "$root/include/cjson"
  printf '%s\n' "Name: libcjson" "Description: JSON" "Version: $(basename "$PWD" | sed 's/.*-//')" \
    "Libs: -L$root/lib -lcjson" "Cflags: -I$root/include" >"$root/lib/pkgconfig/libcjson.pc"
}

# The library uses GET and POST, and requests the time of a file (hence the parser for dates).
make_curl() {
  cd "$work"/source/curl-*/
  CC=$compiler AR=${binutils}ar RANLIB=${binutils}ranlib CFLAGS=$flags ./configure \
    --host="$host" --prefix="$root" \
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

# The kernel's headers belong to no C library, but are in the same folders as those of glibc.
make_crypto() {
  local kernel=$work/kernel
  ln -s "$sysroot/usr/include/linux" "$sysroot/usr/include/asm-generic" \
    "$sysroot/usr/include/$headers/asm" "$kernel"
  cd "$work"/source/openssl-*/
  ./Configure "$openssl_target" CC="$compiler" AR="${binutils}ar" RANLIB="${binutils}ranlib" \
    CFLAGS="$flags -w -idirafter $kernel" \
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
step fetch fetch cjson curl openssl
step cJSON make_cjson
# libcurl spends most of its time in configure, which uses only one process.
step libcurl make_curl &
curl=$!
step libcrypto make_crypto
wait "$curl"
rm -rf "$work/source" "$work/kernel"
