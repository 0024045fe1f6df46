#!/bin/sh
# SPDX-License-Identifier: Apache-2.0
# usage: casync.sh first|poll|update ELEMENT URL
# The job of the library, done with casync: the index and its chunks come over HTTP, and the files in
# the cache serve as a seed. casync verifies each chunk against the index.
set -eu

step=$1
cache=$2/cache
scratch=$2/scratch
url=$3

curl -fsS -o "$scratch/config.caidx" "$url/config.caidx"
if cmp -s "$scratch/config.caidx" "$cache/config.caidx"; then
  [ "$step" = poll ]
  exit
fi
[ "$step" != poll ]

set --
if [ -e "$cache/config" ]; then
  set -- --seed="$cache/config"
fi
rm -rf "$cache/config.new" "$cache/config.old"
casync extract --without=privileged --store="$url/default.castr" "$@" "$scratch/config.caidx" \
  "$cache/config.new" >/dev/null
if [ -e "$cache/config" ]; then
  mv "$cache/config" "$cache/config.old"
fi
mv "$cache/config.new" "$cache/config"
rm -rf "$cache/config.old"
cp "$scratch/config.caidx" "$cache/config.caidx"
