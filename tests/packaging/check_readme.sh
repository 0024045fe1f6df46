#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# usage: check_readme.sh README EXAMPLE
# The C program shown in the README is the example that is compiled and run.
set -euo pipefail

shown=$(awk '/^```c$/ { inside = 1; next } /^```$/ { inside = 0 } inside' "$1")
example=$(sed -n '/^\/\/ begin: cycle$/,/^\/\/ end: cycle$/p' "$2" | sed '1d;$d')

if [[ -z $example ]]; then
  echo "$2 has no marked region" >&2
  exit 1
fi
diff -u --label "the example" --label "the README" - <(echo "$shown") <<<"$example"
