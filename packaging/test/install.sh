#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# usage: install.sh WORK_DIR PACKAGE...
# Installs the packages into an empty Debian root in WORK_DIR, and runs in_root.sh there.
set -euo pipefail

readonly seconds=600
here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
# shellcheck source=packaging/test/clean_root.sh
source "$here/clean_root.sh"
work=$1
shift

prepare_stage "$work"
cp "$here/in_root.sh" "$here/consumer/CMakeLists.txt" "$work/stage"
cp -r "$here/../../examples" "$work/stage/examples"
for package in "$@"; do
  cp "$package" "$work/stage/$(dpkg-deb --field "$package" Package).deb"
done
run_in_root "$work" "$seconds" /stage/in_root.sh
