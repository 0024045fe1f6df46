#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# usage: check_install.sh BUILD_DIR CONSUMER_DIR CMAKE C_COMPILER
# Installs the build into an empty prefix and moves the prefix. Then builds and runs a C program with it
# in each way that a user has: pkg-config or CMake, shared or static library. The systemd units start
# the program where it was installed.
set -euo pipefail
# Ninja may be the only build program on the machine.
export CMAKE_GENERATOR=Ninja

build=$1 consumer=$2 cmake=$3 compiler=$4
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

# units_start PROGRAM PREFIX
units_start() {
  local command unit
  for command in relay watch; do
    unit=$2/lib/systemd/system/zotconf-$command.service
    if ! grep -q "^ExecStart=$1 $command --" "$unit"; then
      echo "$unit does not start $1 $command: $(grep '^ExecStart=' "$unit")" >&2
      exit 1
    fi
  done
}

# As a package is collected: the prefix is not yet where the files are.
DESTDIR=$work/collected "$cmake" --install "$build" --prefix /usr/local >/dev/null
if [[ -e $work/collected/usr/local/bin/zotconf ]]; then
  units_start /usr/local/bin/zotconf "$work/collected/usr/local"
fi
# Where a person looks for what was installed there, without a search path of his own.
if [[ ! -s $work/collected/usr/local/lib/pkgconfig/zotconf.pc ]] ||
  [[ :$(pkg-config --variable=pc_path pkg-config): != *:/usr/local/lib/pkgconfig:* ]]; then
  echo "pkg-config does not look for zotconf.pc where it is installed below /usr/local" >&2
  exit 1
fi

(cd "$work" && "$cmake" --install "$build" --prefix first >/dev/null)
if [[ -e $work/first/bin/zotconf ]]; then
  units_start "$work/first/bin/zotconf" "$work/first"
  LD_LIBRARY_PATH=$work/first/lib "$work/first/bin/zotconf" --version >/dev/null
fi
mv "$work/first" "$work/prefix"
pc_file=$(find "$work/prefix" -name zotconf.pc)
package=$(find "$work/prefix" -name zotconfConfig.cmake)
export PKG_CONFIG_PATH=${pc_file%/*}
libdir=$(pkg-config --variable=libdir zotconf)
warnings=(-std=c11 -Wall -Wextra -Wpedantic -Werror)

run() {
  local program=$1
  mkdir "$program.conf" "$program.tmp"
  env -u ZOT_DEV_PATH LD_LIBRARY_PATH="$libdir" \
    ZOT_PREFIX_CONF_ROOT="$program.conf" ZOT_PREFIX_TMP_ROOT="$program.tmp" "$program"
  if [[ ! -d $program.conf/writable/zot/knowledge ]]; then
    echo "$program created no cache directory" >&2
    exit 1
  fi
}

# The program has to use the library in the way that is being tested, and in no other.
must_load_library() {
  if [[ $(readelf -d "$1") != *NEEDED*libzotconf.so.1* ]]; then
    echo "$1 is not linked with the shared library" >&2
    exit 1
  fi
}
must_hold_library() {
  if readelf -d "$1" | grep -E 'NEEDED.*(libzotconf|libstdc\+\+)'; then
    echo "$1 is not linked statically or needs a C++ runtime" >&2
    exit 1
  fi
}

read -ra cflags <<<"$(pkg-config --cflags zotconf)"
read -ra shared_libs <<<"$(pkg-config --libs zotconf)"
"$compiler" "${warnings[@]}" "$consumer/main.c" -o "$work/pc_shared" \
  "${cflags[@]}" "${shared_libs[@]}"
must_load_library "$work/pc_shared"
run "$work/pc_shared"

# --static would also require the static libraries behind libcurl, which distributions do not ship. The
# private requirements of the package suffice to link the archive.
mapfile -t private < <(pkg-config --print-requires-private zotconf)
read -ra private_libs <<<"$(pkg-config --libs "${private[@]}")"
"$compiler" "${warnings[@]}" "$consumer/main.c" -o "$work/pc_static" \
  "${cflags[@]}" "$libdir/libzotconf.a" "${private_libs[@]}"
must_hold_library "$work/pc_static"
run "$work/pc_static"
static_libs=$(pkg-config --static --libs zotconf)
if [[ $static_libs != *-lzotconf*-lcurl*-lcrypto*-lcjson* ]]; then
  echo "the libraries of a static link are incomplete: $static_libs" >&2
  exit 1
fi

"$cmake" -S "$consumer" -B "$work/cmake" -Dzotconf_DIR="${package%/*}" \
  -DCMAKE_C_COMPILER="$compiler" -DCMAKE_BUILD_TYPE=Release >/dev/null
"$cmake" --build "$work/cmake" >/dev/null
must_load_library "$work/cmake/with_shared"
run "$work/cmake/with_shared"
must_hold_library "$work/cmake/with_static"
run "$work/cmake/with_static"
