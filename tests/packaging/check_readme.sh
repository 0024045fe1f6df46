#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# usage: check_readme.sh README EXAMPLE
# Checks that the C program in the README is the example that is compiled and run.
set -euo pipefail

shown=$(awk '/^```c$/ { inside = 1; next } /^```$/ { inside = 0 } inside' "$1")
example=$(sed -n '/^\/\/ begin: cycle$/,/^\/\/ end: cycle$/p' "$2" | sed '1d;$d')

if [[ -z $example ]]; then
  echo "$2 has no region between 'begin: cycle' and 'end: cycle'" >&2
  exit 1
fi
diff -u --label "the example" --label "the README" - <(echo "$shown") <<<"$example"
