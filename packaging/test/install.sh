#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# usage: install.sh WORK_DIR PACKAGE...
# Installs the packages into an empty Debian root, created below WORK_DIR from the sources that this
# machine's apt uses, and runs in_root.sh there. Removes the root and its mounts afterwards.
set -euo pipefail

readonly suite=bookworm
readonly seconds=600
here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
work=$1
shift

rm -rf "$work"
mkdir -p "$work/stage" "$work/tmp"
chmod 755 "$work" "$work/stage" "$work/tmp"
cp "$here/in_root.sh" "$here/consumer/CMakeLists.txt" "$work/stage"
cp -r "$here/../../examples" "$work/stage/examples"
for package in "$@"; do
  cp "$package" "$work/stage/$(dpkg-deb --field "$package" Package).deb"
done

# The new root needs the same settings as this machine to reach the sources, for example a proxy.
apt-config dump | grep -E '^Acquire::(Check-|http|https|Retries|Proxy)' >"$work/apt.conf" || true
apt-get indextargets --format 'deb $(REPO_URI) $(RELEASE) $(COMPONENT)' 'Created-By: Packages' \
  'Origin: Debian' | grep -E " $suite(-updates|-security)? " | sort -u >"$work/sources.list" || true
if [[ ! -s $work/sources.list ]]; then
  echo "this machine's apt has no index of Debian $suite; run apt-get update first" >&2
  exit 1
fi

# The `null` format discards the root. A user who may not mount gets a root without /proc, which
# nothing here needs.
if ! TMPDIR=$(realpath "$work/tmp") STAGE=$(realpath "$work/stage") \
  timeout --kill-after=60 "$seconds" mmdebstrap --quiet --format=null --variant=apt \
  --aptopt="$(realpath "$work/apt.conf")" --dpkgopt=force-unsafe-io \
  --customize-hook='cp -r "$STAGE" "$1/stage"' \
  --customize-hook='chroot "$1" /stage/in_root.sh >&2' \
  "$suite" /dev/null "$work/sources.list" >"$work/log" 2>&1; then
  cat "$work/log" >&2
  exit 1
fi
grep '^in root: ' "$work/log"
