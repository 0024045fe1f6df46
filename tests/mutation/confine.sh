#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# usage: confine.sh COMMAND…
# Runs a command with every file system read-only, apart from /tmp and /dev/shm, which are new and
# empty. It has to be called in name spaces of its own, for mounts, processes and the network.
set -euo pipefail

mount --make-rprivate /
mount -t proc proc /proc
# The options of a mount stay, apart from this one.
while read -r place; do
  mount -o remount,bind,ro "$place" 2>/dev/null || true
done < <(findmnt --raw --noheadings --output TARGET | grep -vE '^/(proc|sys|dev)(/|$)')
mount -t tmpfs tmpfs /tmp
[[ ! -d /dev/shm ]] || mount -t tmpfs tmpfs /dev/shm
if touch /confined 2>/dev/null || touch /var/tmp/confined 2>/dev/null; then
  echo "confine.sh: the file system can still be written to" >&2
  exit 1
fi
ip link set lo up
cd /tmp
exec "$@"
