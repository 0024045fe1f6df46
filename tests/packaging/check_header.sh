#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# usage: check_header.sh HEADER C_COMPILER CXX_COMPILER
# The header stands alone in a strict C11 and a strict C++17 program, and the C++ layer beside it in
# a strict C++20 program, with and without exceptions and RTTI.
set -euo pipefail

header=$1 c_compiler=$2 cxx_compiler=$3
warnings=(-Wall -Wextra -Wpedantic -Wshadow -Wconversion -Werror)
program="#include \"$header\"
int main(void) { return zot_util_is_err(ZOT_OK) ? 1 : 0; }"

"$c_compiler" -std=c11 "${warnings[@]}" -fsyntax-only -x c - <<<"$program"
"$cxx_compiler" -std=c++17 "${warnings[@]}" -fsyntax-only -x c++ - <<<"$program"

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
