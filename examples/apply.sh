#!/bin/sh
# SPDX-License-Identifier: Apache-2.0
# An apply command: zotconf cycle --index INDEX --apply 'apply.sh TARGET'
# Copies the changed files from ZOTCONF_DIR into TARGET, all or none of them, and removes from TARGET the
# files that ZOTCONF_CHANGES lists as deleted. If a file has a line that is not "name=value", the script
# refuses it with an exit status other than 0, and the configuration is rolled back.
#
# TARGET is a symbolic link to a folder beside it. The link is replaced in one step.
set -eu

target=${1:?usage: apply.sh TARGET}
changed=${ZOTCONF_DIR:?is set by zotconf}

# Refuse before anything is changed.
if [ -d "$changed" ]; then
  wrong=$(find "$changed" -type f -exec grep -Elv '^(#.*|[A-Za-z0-9._-]+=.*)?$' {} +) || true
  if [ -n "$wrong" ]; then
    echo "apply: not made of lines name=value:" >&2
    echo "$wrong" >&2
    exit 1
  fi
fi

# A separate folder holds the next state: the existing files, then the changed ones.
next=$(mktemp -d "$target.XXXXXX")
trap 'rm -rf "$next" "$next.link"' EXIT
# An interrupted script neither commits nor rolls back.
trap 'exit 130' INT
trap 'exit 143' TERM
chmod 755 "$next"
if [ -d "$target" ]; then
  cp -Rp "$target/." "$next"
fi
if [ -d "$changed" ]; then
  cp -R "$changed/." "$next"
fi
if [ -n "${ZOTCONF_CHANGES:-}" ]; then
  # One entry per line. This simple parser does not support keys with quotes or backslashes.
  tr -d '\n\t' <"$ZOTCONF_CHANGES" | tr '}' '\n' |
    sed -n 's/.*"category": *"\([^"\\]*\)", *"key": *"\([^"\\]*\)", *"status": *"deleted".*/\1\/\2/p' |
    while IFS= read -r name; do
      rm -f -- "$next/$name"
    done
fi

# The switch: TARGET is the old state or the next one, never a mixture.
before=$(readlink "$target") || before=
ln -s "$(basename "$next")" "$next.link"
trap '' INT TERM
mv -T "$next.link" "$target"
trap - EXIT INT TERM
# Remove the old folder only if this script created it: the link may have pointed elsewhere.
case $before in
  */*) ;;
  "$(basename "$target")".??????) rm -rf "$(dirname "$target")/${before:?}" ;;
esac
echo "apply: $target is $(find "$target/" -type f | wc -l) files"
