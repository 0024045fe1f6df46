#!/bin/sh
# SPDX-License-Identifier: Apache-2.0
# An apply command: zotconf cycle --index INDEX --apply 'apply.sh TARGET'
# Takes the changed files of ZOTCONF_DIR into TARGET, all or none of them, and removes there what
# ZOTCONF_CHANGES tells as deleted. It refuses, with a status other than 0, a file that is not made of
# lines "name=value"; the configuration is rolled back then.
#
# TARGET is a symbolic link to a folder beside it, which is replaced in one step.
set -eu

target=${1:?usage: apply.sh TARGET}
changed=${ZOTCONF_DIR:?is set by zotconf}

# Refuse before anything is touched.
if [ -d "$changed" ]; then
  wrong=$(find "$changed" -type f -exec grep -Elv '^(#.*|[A-Za-z0-9._-]+=.*)?$' {} +) || true
  if [ -n "$wrong" ]; then
    echo "apply: not made of lines name=value:" >&2
    echo "$wrong" >&2
    exit 1
  fi
fi

# A folder of its own holds the next state: what is there, then what changed.
next=$(mktemp -d "$target.XXXXXX")
trap 'rm -rf "$next" "$next.link"' EXIT
# Whoever is interrupted has decided nothing.
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
  # One entry a line. Keys with quotes or backslashes are beyond this small reading.
  tr -d '\n\t' <"$ZOTCONF_CHANGES" | tr '}' '\n' |
    sed -n 's/.*"category": *"\([^"\\]*\)", *"key": *"\([^"\\]*\)", *"status": *"deleted".*/\1\/\2/p' |
    while IFS= read -r name; do
      rm -f -- "$next/$name"
    done
fi

# The step that counts: TARGET is the old state or the next, never a mixture.
before=$(readlink "$target") || before=
ln -s "$(basename "$next")" "$next.link"
trap '' INT TERM
mv -T "$next.link" "$target"
trap - EXIT INT TERM
# Only what this command has made before: the link may have led elsewhere.
case $before in
  */*) ;;
  "$(basename "$target")".??????) rm -rf "$(dirname "$target")/${before:?}" ;;
esac
echo "apply: $target is $(find "$target/" -type f | wc -l) files"
