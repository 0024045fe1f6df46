#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# usage: run_client.sh ZOTCONF SAMPLE PROGRAM
# The C++ client commits what it can use, rolls back what it cannot use, and reports which.
set -euo pipefail

zotconf=$1 sample=$2 program=$3
# shellcheck source=tests/api/service.sh
source "$(dirname "$0")/service.sh"

cp -R "$sample" "$work/source"
publish "$zotconf" "$work/source"
start_service "$zotconf"
expect 0 "$program" "$index"
shows '^added Wlan/guest, [0-9]+ bytes$'
shows '^in force: a configuration of cluster 7d0b6a52-'
shows '^ZOT_OK: Success$'
[[ $(grep -c '^added ' "$work/output") == "$(count_files "$sample")" ]] || fail "entries are missing"

expect 0 "$program" "$index"
shows '^ZOT_OK: '
shows_not '^added '

echo useless >"$work/source/Wlan/guest"
rm "$work/source/DnsServer/public"
publish "$zotconf" "$work/source"
expect 1 "$program" "$index"
shows '^deleted DnsServer/public, 0 bytes$'
shows '^cannot use Wlan/guest$'
expect 1 "$program" "$index"
shows '^ZOT_ERR_SAME_AS_CORRUPTED: New configuration is still corrupted\.$'
cmp -s "$sample/Wlan/guest" "$work/conf/writable/zot/config/Wlan/guest/1" ||
  fail "the configuration in force has changed"
stop_service
expect 1 "$program" "$index"
shows '^ZOT_ERR_REMOTE_UNAVAIL: curl error get K.checksum'
