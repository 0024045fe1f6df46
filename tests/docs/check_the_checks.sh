#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# Checks that the checks of the documents refuse wrong input.
set -euo pipefail

here=$(dirname "$(readlink -f "$0")")
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

refuses() {
  if "$@" >"$work/log" 2>&1; then
    echo "accepted: $*" >&2
    exit 1
  fi
}

echo '# A `good` heading' >"$work/other.md"
# shellcheck disable=SC2016  # the backquotes are Markdown
printf '%s\n' '[a](other.md)' '[b](other.md#a-good-heading)' '[c](#top)' '# Top' \
  '`[no link](nowhere.md)`' '```sh' '[[ -e x ]](nowhere)' '```' >"$work/good.md"
"$here/check_links.sh" "$work/good.md"
echo '[a](missing.md)' >"$work/file.md"
refuses "$here/check_links.sh" "$work/file.md"
echo '[a](other.md#absent)' >"$work/anchor.md"
refuses "$here/check_links.sh" "$work/anchor.md"

mkdir "$work/blocks"
printf '%s\n' 'text' '```sh' 'true' >"$work/open.md"
refuses awk -v out="$work/blocks" -f "$here/blocks.awk" "$work/open.md"

# Runs lines as a session of a document, with the exit statuses that they expect.
session() {
  { echo 'expect_status() { [[ $1 == "$2" ]] || exit 9; }; set -e' &&
    printf '%s\n' "$@" | awk -f "$here/session.awk"; } | bash
}
session 'sh -c "exit 3"  # exit status 3' 'echo done'
refuses session 'sh -c "exit 4"  # exit status 3'
refuses session 'true  # exit status 3'
refuses session 'false'
