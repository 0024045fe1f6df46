#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# usage: check_header.sh HEADER C_COMPILER CXX_COMPILER
# The header stands alone in a strict C11 and a strict C++17 program.
set -euo pipefail

header=$1 c_compiler=$2 cxx_compiler=$3
warnings=(-Wall -Wextra -Wpedantic -Wshadow -Wconversion -Werror)
program="#include \"$header\"
int main(void) { return zot_util_is_err(ZOT_OK) ? 1 : 0; }"

"$c_compiler" -std=c11 "${warnings[@]}" -fsyntax-only -x c - <<<"$program"
"$cxx_compiler" -std=c++17 "${warnings[@]}" -fsyntax-only -x c++ - <<<"$program"
