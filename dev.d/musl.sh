# SPDX-License-Identifier: Apache-2.0
# shellcheck shell=bash disable=SC2034,SC2154
# Checks the library with musl instead of glibc: headers, symbols and complete cycles.

readonly musl_build=build/musl
readonly musl_packages=(binutils g++ musl musl-dev musl-tools)

readonly musl_arm_build=build/musl-arm
readonly musl_arm_packages=(musl musl-dev busybox-static linux-libc-dev)

# musl_configure FOLDER ROOT [TOOLCHAIN]: configures in FOLDER a build of the library with the libraries
# of ROOT.
musl_configure() {
  local folder=$1 root toolchain=${3:-toolchain}
  root=$(realpath "$2")
  PKG_CONFIG_LIBDIR=$root/lib/pkgconfig \
    cmake --preset release -B "$folder" --log-level=WARNING \
    -DCMAKE_TOOLCHAIN_FILE="$PWD/tests/musl/$toolchain.cmake" -DCMAKE_FIND_ROOT_PATH="$root" \
    -DCURL_NO_CURL_CMAKE=ON -DZOTCONF_BUILD_TOOLS=OFF -DZOTCONF_BUILD_TESTS=OFF >/dev/null
}

musl_make_library() {
  musl_configure "$@"
  cmake --build "$1" -j "$jobs" --target zotconf_static -- --quiet
}

# Copies this machine's headers of libcurl, libcrypto and cJSON out of glibc's include folders. The
# libraries are found but never linked, because only a static library is built.
musl_stage_headers() {
  local root=$1 folder name
  rm -rf "$root"
  mkdir -p "$root/include" "$root/lib/pkgconfig"
  for folder in /usr/include "/usr/include/$(g++ -print-multiarch)"; do
    for name in cjson curl openssl; do
      [[ ! -d $folder/$name ]] || cp -rp "$folder/$name" "$root/include"
    done
  done
  for name in cjson crypto curl; do
    ln -s "$(g++ -print-file-name="lib$name.so")" "$root/lib/lib$name.so"
  done
  printf '%s\n' "Name: libcjson" "Description: JSON" \
    "Version: $(pkg-config --modversion libcjson)" \
    "Libs: -L$PWD/$root/lib -lcjson" "Cflags: -I$PWD/$root/include" \
    >"$root/lib/pkgconfig/libcjson.pc"
}

lint_musl_headers() {
  say "lint: the sources compile against musl's headers"
  need "${musl_packages[@]}"
  local folder=$musl_build/headers sources objects
  musl_stage_headers "$folder/root"
  musl_make_library "$folder" "$folder/root"
  sources=$(files_of '.*\.cpp' src utilities | wc -l)
  objects=$(ar t "$folder/src/libzotconf.a" | wc -l)
  ((sources == objects)) || fail "$sources sources exist, but $objects were compiled"
  tests/packaging/check_header.sh include/zot_conf.h musl-gcc tests/musl/musl-g++.sh
}

# offered_by LIBRARY...: the symbols that the libraries define for others.
offered_by() {
  nm -D --defined-only "$@" | awk 'NF == 3 { sub(/@.*/, "", $3); print $3 }'
}

# needed_by [OPTION] FILE...: the undefined symbols. Weak ones (w) may stay undefined, and the linker
# itself provides the global offset table.
needed_by() {
  nm "$@" | awk '
    $1 == "U" && $2 != "_GLOBAL_OFFSET_TABLE_" { sub(/@.*/, "", $2); print $2 }'
}

# lint_needed NAME NEEDED OFFERED: compares two lists of symbols.
lint_needed() {
  local needed lacking
  needed=$(LC_ALL=C sort -u <<<"$2")
  lacking=$(LC_ALL=C comm -23 <(printf '%s\n' "$needed") <(LC_ALL=C sort -u <<<"$3"))
  if [[ -z $needed || -n $lacking ]]; then
    printf '%s needs what musl does not offer:\n%s\n' "$1" "${lacking:-(no symbols listed)}" >&2
    return 1
  fi
}

# Checks the shipped library, and the objects that are compiled with the headers of musl.
lint_libc() {
  say "lint: musl offers what the library needs of a C library"
  need "${musl_packages[@]}"
  local library=build/release/src/libzotconf.so archive=$musl_build/headers/src/libzotconf.a
  local machine others offered own status=0
  configure release
  build_quietly release zotconf
  machine=$(musl-gcc -dumpmachine)
  mapfile -t others < <(ldd "$library" | awk '/^[ \t]*lib(curl|crypto|cjson)\./ { print $3 }')
  ((${#others[@]} == 3)) || fail "$library is not linked with libcurl, libcrypto and libcjson"
  offered=$(offered_by "${others[@]}" "/usr/lib/${machine/-gnu/-musl}/libc.so")
  # With _FILE_OFFSET_BITS=64, glibc uses open64 for open, and so on. In musl an offset always has 64
  # bits, also under the plain name. Fortified calls are glibc's variants of the plain ones.
  lint_needed "$library" "$(needed_by -D "$library" | sed 's/64$//; s/^__\(.*\)_chk$/\1/')" \
    "$offered" || status=1
  own=$(nm --defined-only "$archive" | awk 'NF == 3 { print $3 }')
  lint_needed "$archive" "$(needed_by "$archive")" "$offered"$'\n'"$own" || status=1
  return "$status"
}

# The builds take minutes, so they are repeated only when the scripts change.
musl_make_others() {
  local build=$1 sysroot=${2:-}
  local scripts=(tests/musl/build_libraries.sh tests/support/debian_source.sh)
  local stamp=$build/root/made
  if ! sha256sum --check --status "$stamp" 2>/dev/null; then
    say "musl: cJSON, libcurl and libcrypto from Debian's sources"
    "${scripts[0]}" "$build" "$jobs" "$sysroot"
    sha256sum "${scripts[@]}" >"$stamp"
  fi
}

# musl_link BUILD COMPILER PROGRAM SOURCE: links a static program, as small as the linker makes it.
musl_link() {
  local build=$1 compiler=$2 program=$1/programs/$3 source=$4
  "$compiler" -std=c11 -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Werror -Os -Iinclude -static \
    -Wl,--gc-sections -s "$source" -o "$program" "$build/library/src/libzotconf.a" \
    -L"$build/root/lib" -lcurl -lcrypto -lcjson
  ! readelf -lW "$program" | grep -E 'INTERP|DYNAMIC' || fail "$program is not static"
}

musl_link_programs() {
  mkdir -p "$1/programs"
  musl_link "$@" cycle examples/cycle.c
  musl_link "$@" client tests/musl/client.c
  musl_link "$@" c_client tests/api/c_client.c
  musl_link "$@" killing_shell tests/musl/killing_shell.c
}

musl_make_program() {
  configure release
  build_quietly release zotconf_cli
}

musl() {
  setup
  need "${musl_packages[@]}" busybox-static dpkg-dev linux-libc-dev make perl
  musl_make_others "$musl_build"
  say "musl: the library and its programs, linked statically"
  musl_make_library "$musl_build/library" "$musl_build/root"
  musl_link_programs "$musl_build" musl-gcc
  size "$musl_build/programs/cycle"
  say "musl: cycles with busybox, against a service on this machine"
  musl_make_program
  local where
  for where in path root; do
    tests/musl/run_cycle.sh build/release/tools/zotconf examples/sample "$musl_build/programs" \
      "$where"
  done
}

# Unpacks musl, busybox and the kernel's headers for 32-bit ARM; nothing is installed.
musl_arm_make_sysroot() {
  local sysroot=$musl_arm_build/sysroot
  [[ "$(cat "$sysroot/packages" 2>/dev/null)" != "$arm_suite ${musl_arm_packages[*]}" ]] || return 0
  mkdir -p "$musl_arm_build"
  arm_unpack "$sysroot.new" "${musl_arm_packages[@]}"
  echo "$arm_suite ${musl_arm_packages[*]}" >"$sysroot.new/packages"
  rm -rf "$sysroot"
  mv "$sysroot.new" "$sysroot"
}

# The same for 32-bit ARM, the processor of the access points. The emulator runs the programs and
# busybox.
musl_arm() {
  setup
  need "${musl_packages[@]}" "${arm_tools[@]}" dpkg-dev make perl
  musl_arm_make_sysroot
  local MUSL_SYSROOT=$PWD/$musl_arm_build/sysroot
  export MUSL_SYSROOT
  musl_make_others "$musl_arm_build" "$MUSL_SYSROOT"
  say "musl: the library and its programs for 32-bit ARM, linked statically"
  musl_configure "$musl_arm_build/library" "$musl_arm_build/root" arm-toolchain
  cmake --build "$musl_arm_build/library" -j "$jobs" --target zotconf_static -- --quiet
  musl_link_programs "$musl_arm_build" tests/musl/musl-arm-gcc.sh
  musl-gcc -std=c11 -Wall -Wextra -Wpedantic -Werror -static -s tests/musl/emulated.c \
    -o "$musl_arm_build/programs/emulated"
  cp "$MUSL_SYSROOT/bin/busybox" "$musl_arm_build/programs"
  arm-linux-gnueabihf-size "$musl_arm_build/programs/cycle"
  say "musl: cycles with busybox under emulation, against a service on this machine"
  musl_make_program
  tests/musl/run_cycle.sh build/release/tools/zotconf examples/sample "$musl_arm_build/programs" \
    emulated
}
