#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# usage: check_header.sh HEADER C_COMPILER CXX_COMPILER
# Checks that the header compiles alone in a strict C11 and a strict C++11 program, with and without
# ZOT_CONF_CLIENT, and the C++ layer in a strict C++20 program, with and without exceptions and RTTI.
set -euo pipefail

header=$1 c_compiler=$2 cxx_compiler=$3
warnings=(-Wall -Wextra -Wpedantic -Wshadow -Wconversion -Werror)
program="#include \"$header\"
int main(void) { return zot_util_is_err(ZOT_OK) ? 1 : 0; }"

for scope in -UZOT_CONF_CLIENT -DZOT_CONF_CLIENT; do
  "$c_compiler" -std=c11 "${warnings[@]}" "$scope" -fsyntax-only -x c - <<<"$program"
  for standard in c++11 c++17; do
    "$cxx_compiler" "-std=$standard" "${warnings[@]}" "$scope" -fsyntax-only -x c++ - <<<"$program"
  done
done

# refused MESSAGE COMMAND...: the compiler prints exactly one error, and it contains MESSAGE.
refused() {
  local message=$1 said
  shift
  if said=$("$@" 2>&1); then
    echo "compiles, but should not: $*" >&2
    exit 1
  fi
  if [[ $(grep -c 'error:' <<<"$said") != 1 || $said != *"$message"* ]]; then
    printf '%s\n' "$said" >&2
    exit 1
  fi
}

# The header hides from a client what it does not need.
for hidden in 'handle->err = 0' 'read_file("", 0)' 'zot_priv_commit_k(handle, 0)'; do
  name=${hidden#handle->}
  refused "${name%%[ (]*}" "$cxx_compiler" -std=c++17 -DZOT_CONF_CLIENT -fsyntax-only -x c++ - <<END
#include "$header"
void touch(zot_ctx *handle);
void touch(zot_ctx *handle) { (void)handle, (void)($hidden); }
END
done

layer="#include \"${header%.h}.hpp\"
int main() {
  auto client = zotconf::handle::create({.index = \"a\"});
  if (!client) {
    return 1;
  }
  for (const zotconf::entry one : client->get({ZOT_CAT_WLAN}, zotconf::change::any)) {
    if (one.bytes().empty()) {
      return 1;
    }
  }
  const zotconf::handle moved = std::move(*client);
  return moved.is_new() ? 1 : 0;
}"
"$cxx_compiler" -std=c++20 "${warnings[@]}" -fsyntax-only -x c++ - <<<"$layer"
"$cxx_compiler" -std=c++20 -fno-exceptions -fno-rtti "${warnings[@]}" -fsyntax-only -x c++ - \
  <<<"$layer"
"$cxx_compiler" -std=c++20 -DZOT_CONF_CLIENT "${warnings[@]}" -fsyntax-only -x c++ - <<<"$layer"
refused "zot_conf.hpp needs C++20" "$cxx_compiler" -std=c++17 -fsyntax-only -x c++ - \
  <<<"#include \"${header%.h}.hpp\""

# On 32 bits with glibc, struct stat has two sizes: that of the library, and a smaller one. A caller
# that would pass the smaller one must not compile.
caller="#include <sys/stat.h>
#include \"$header\"
int main(void) {
  struct stat st;
  return get_file_type(\"/\", &st, -1);
}"
compiles() {
  "$c_compiler" -std=c11 "${warnings[@]}" -S -o /dev/null "$@" -x c - <<<"$caller"
}
compiles -D_FILE_OFFSET_BITS=64 -D_TIME_BITS=64
if "$c_compiler" -E -dM -include sys/types.h -x c /dev/null | grep -q '^#define __TIMESIZE 32$'; then
  for narrow in -D_FILE_OFFSET_BITS=64 -D_TIME_BITS=32; do
    if compiles "$narrow" 2>/dev/null; then
      echo "with $narrow alone, the library would write beyond the caller's struct stat" >&2
      exit 1
    fi
  done
fi
