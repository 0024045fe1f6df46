#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# usage: check_links.sh DOCUMENT…
# Checks that each relative link of a Markdown document leads to an existing file or folder, and its
# anchor, if it has one, to a heading of that document.
set -euo pipefail

# The anchors of a document: its headings in lower case, without punctuation, blanks as hyphens.
anchors_of() {
  awk '
    /^ *```/ { inside = !inside }
    !inside && /^#+ / {
      heading = tolower($0)
      sub(/^#+ +/, "", heading)
      gsub(/[^a-z0-9 _-]/, "", heading)
      gsub(/ /, "-", heading)
      print heading (seen[heading]++ ? "-" seen[heading] - 1 : "")
    }' "$1"
}

# "LINE TARGET" for each link outside of code.
links_of() {
  awk '
    /^ *```/ { inside = !inside }
    inside { next }
    {
      gsub(/`[^`]*`/, "")
      while (match($0, /\]\([^)]+\)/)) {
        print FNR, substr($0, RSTART + 2, RLENGTH - 3)
        $0 = substr($0, RSTART + RLENGTH)
      }
    }' "$1"
}

status=0
for document in "$@"; do
  while read -r line target; do
    [[ $target != http://* && $target != https://* && $target != mailto:* ]] || continue
    file=${target%%#*}
    path=$(dirname "$document")/$file
    [[ -n $file ]] || path=$document
    if [[ ! -e $path ]]; then
      echo "$document:$line: '$target' does not exist" >&2
      status=1
    elif [[ $target == *'#'* ]] && ! anchors_of "$path" | grep -qxF -- "${target#*#}"; then
      echo "$document:$line: '$target' matches no heading" >&2
      status=1
    fi
  done < <(links_of "$document")
done
exit "$status"
