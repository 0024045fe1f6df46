#!/bin/sh
# SPDX-License-Identifier: Apache-2.0
# usage: ostree.sh first|poll|update ELEMENT REPOSITORY
# The job of the library, done with ostree from a repository as a server has it (mode archive).
#
# The element's own repository has mode bare-user-only. This mode needs neither root nor extended
# attributes, and a checkout can consist of hard links, which is the fastest kind. The received
# objects are verified (--untrusted), as in the other tools. A checkout never removes files, so it
# goes into a new folder.
set -eu

step=$1
own=$2/repository
cache=$2/cache
source=$3

announced=$(ostree --repo="$source" rev-parse config)
current=$(ostree --repo="$own" rev-parse config 2>/dev/null || true)
if [ "$announced" = "$current" ]; then
  [ "$step" = poll ]
  exit
fi
[ "$step" != poll ]

ostree --repo="$own" pull-local --untrusted "$source" config >/dev/null
rm -rf "$cache/config.new" "$cache/config.old"
ostree --repo="$own" checkout --user-mode config "$cache/config.new"
if [ -e "$cache/config" ]; then
  mv "$cache/config" "$cache/config.old"
fi
mv "$cache/config.new" "$cache/config"
rm -rf "$cache/config.old"
