#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# usage: run_adapter.sh ZOTCONF SAMPLE PROGRAM
# The adapter takes configurations from a publication folder, without a service, and accepts nothing
# that differs from what was announced.
set -euo pipefail

zotconf=$1 sample=$2 program=$3
# shellcheck source=tests/api/service.sh
source "$(dirname "$0")/service.sh"

# Nothing listens on port 1, so everything must come from the folder.
export ZOT_REMOTE_PORT=1
cached=$work/conf/writable/zot/config
cp -R "$sample" "$work/source"
publish "$zotconf" "$work/source"
expect 0 "$program" "$index" "$published"
shows '^new configuration: no error$'
[[ $(count_files "$cached") == "$(count_files "$sample")" ]] || fail "files are missing"
cmp "$sample/Wlan/guest" "$cached/Wlan/guest/1"

expect 0 "$program" "$index" "$published"
shows '^no new configuration: no error$'

echo 'rate-limit=none' >>"$work/source/Wlan/guest"
rm "$work/source/Schedule/always"
publish "$zotconf" "$work/source"
expect 0 "$program" "$index" "$published"
shows '^new configuration: no error$'
cmp "$work/source/Wlan/guest" "$cached/Wlan/guest/2"
[[ ! -e $cached/Schedule/always && ! -e $cached/Wlan/guest/1 ]] || fail "old files are left"

echo 'rate-limit=one' >>"$work/source/Wlan/guest"
publish "$zotconf" "$work/source"
echo damage >>"$published/config/Wlan/guest/3"
expect 1 "$program" "$index" "$published"
shows '^no new configuration: .*wrong GPB size'
cmp -s "$cached/Wlan/guest/2" <(sed '$d' "$work/source/Wlan/guest") || fail "damage came through"
[[ ! -e $cached/Wlan/guest/3 ]] || fail "damage was cached"

echo '{}' >"$published/file/knowledge/AP/$index/latest/$index.k"
expect 1 "$program" "$index" "$published"
shows '^no new configuration: '
expect 1 "$program" "$index" "$work/absent"
shows '^no new configuration: '
