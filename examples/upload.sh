#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# usage: upload.sh [--remove] PUB REMOTE
# Uploads the publication folder PUB to REMOTE, a folder of an rclone remote such as store:bucket/site.
# What announces a file is uploaded after the file: first config, then signatures, K files and checksums.
# An upload that was cut off is repeated as a whole; what is there already is not uploaded again.
#
#   --remove   afterwards remove from REMOTE the files of config that are no longer in PUB
#
# rclone takes more options from the environment, RCLONE_TRANSFERS=16 for example.
set -euo pipefail

fail() {
  echo "upload.sh: $*" >&2
  exit 1
}

remove=false
if [[ ${1:-} == --remove ]]; then
  remove=true
  shift
fi
if (($# != 2)) || [[ $1 == -* ]]; then
  echo "usage: upload.sh [--remove] PUB REMOTE" >&2
  exit 2
fi
readonly publication=$1 remote=${2%/}

# A file of config never changes, so its name and size suffice to know that it is there.
readonly config=(
  --include '/*/*/{{[0-9]+}}' --size-only --immutable --fast-list
  --header-upload 'Cache-Control: public, max-age=31536000, immutable')
# Files of latest are replaced by files of the same size: size and time are compared, then the bytes.
readonly latest=(--no-update-modtime --fast-list --header-upload 'Cache-Control: no-cache')

# step WHAT ARGUMENT…: runs rclone. Nothing of a later step is uploaded after a failure.
step() {
  local what=$1
  shift
  rclone "$@" || fail "cannot upload the $what; repeat the upload"
}

compgen -G "$publication/file/knowledge/*/*/latest/*.checksum" >/dev/null ||
  fail "$publication: nothing is published here"

# An upload that began earlier must not end later: it would announce an older K again.
exec {folder}<"$publication"
flock --nonblock "$folder" || fail "$publication: another upload is running"

# A K that is published from here on may name files that the first step has not seen. So the files that
# announce are copied while no publisher works, and uploaded from the copy.
announced=$(mktemp -d)
trap 'rm -rf "$announced"' EXIT
readonly lock=$publication/.lock
if [[ -e $lock ]]; then
  flock --shared "$lock" cp -Rp "$publication/file" "$announced"
else
  cp -Rp "$publication/file" "$announced"
fi
readonly knowledge=$announced/file/knowledge

step "files" copy "$publication/config" "$remote/config" "${config[@]}"
# Synchronised, because a K that is no longer signed must not keep the signature of the K before.
step "signatures" sync "$knowledge" "$remote/file/knowledge" --include '*.k.p7s' "${latest[@]}"
step "K files" copy "$knowledge" "$remote/file/knowledge" --include '*.k' "${latest[@]}"
step "checksums" copy "$knowledge" "$remote/file/knowledge" --include '*.checksum' "${latest[@]}"
if $remove; then
  step "removals" sync "$publication/config" "$remote/config" "${config[@]}"
fi
