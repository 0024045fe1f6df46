#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# usage: readme.sh WORK_DIR
# Runs the commands of README.md in an empty Debian root in WORK_DIR. The root has this source tree,
# without anything built from it.
set -euo pipefail

readonly seconds=1500
here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
# shellcheck source=packaging/test/clean_root.sh
source "$here/clean_root.sh"
work=$1

prepare_stage "$work"
mkdir "$work/stage/zotconf"
tar -C "$here/../.." --exclude=./build --exclude=./.git -c . | tar -C "$work/stage/zotconf" -x
run_in_root "$work" "$seconds" /stage/zotconf/packaging/test/readme_in_root.sh
