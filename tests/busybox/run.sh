#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# usage: run.sh FOLDER PROGRAM
# Runs a test program with only busybox on PATH, and with busybox as /bin/sh where the user may create a
# mount namespace. The links to busybox go into FOLDER.
set -euo pipefail

# These tests replace rm, cp and tar with scripts on PATH. A busybox shell does not use those: it prefers
# its own applets to the programs on PATH.
readonly not_in_its_shell='RmRf.HandsOnTheRawStatusOfTheCommand:CommitGpb.CommandsRunInPlaceOfTheirShells:SharingWithACommit.*:InPlaceWithAFailure.*'

busybox=$(command -v busybox) || {
  echo "busybox: not installed; ./dev setup installs it" >&2
  exit 1
}
readonly busybox applets=$1
program=$(command -v "$2")

rm -rf "$applets"
mkdir -p "$applets"
"$busybox" --install -s "$applets"
for name in sh cp rm tar gzip; do
  [[ -e $applets/$name ]] || {
    echo "busybox: this build has no $name" >&2
    exit 1
  }
done

# shellcheck disable=SC2016 # the inner shell expands it
readonly put_in_place='mount --bind "$0" "$(readlink -f /bin/sh)"'
# shellcheck disable=SC2016
readonly then_run=$put_in_place' && exec "$@"'
readonly is_busybox=$put_in_place' && /bin/sh --help 2>&1 | grep -q BusyBox'
in_namespace=()
left_out=none
if unshare --mount "$BASH" -c "$is_busybox" "$busybox" 2>/dev/null; then
  in_namespace=(unshare --mount "$BASH" -c "$then_run" "$busybox")
  left_out=$not_in_its_shell
  shell="busybox as /bin/sh, in a mount namespace of its own"
else
  shell="the machine's own /bin/sh: this user may not replace it"
fi

"$busybox" | sed -n 1p
echo "busybox: PATH is $applets, $(find "$applets" -type l | wc -l) applets"
echo "busybox: shell commands run in $shell"
echo "busybox: skipped tests: $left_out"
exec "${in_namespace[@]}" "$applets/env" PATH="$applets" \
  "$program" --gtest_filter="-$left_out" --gtest_brief=1
