#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# usage: run_log_callback.sh ZOTCONF SAMPLE PROGRAM
# The log callback prints nothing while everything works, and reports what led to a failure.
set -euo pipefail

zotconf=$1 sample=$2 program=$3
# shellcheck source=tests/api/service.sh
source "$(dirname "$0")/service.sh"

publish "$zotconf" "$sample"
start_service "$zotconf"
expect 0 "$zotconf" cycle --index "$index" --commit
expect 0 "$program" "$index"
shows '^[1-9][0-9]* messages kept, 0 of them shown$'
shows_not '^<3>'
shows_not '^<[67]>'

stop_service
expect 1 "$program" "$index"
shows '^<3>zotconf: [a-z]+: .*curl error get K.checksum'
shows '^<6>zotconf: transfer: .*Query with URL'
shows '^<7>zotconf: '
shows '^[1-9][0-9]* messages kept, [1-9][0-9]* of them shown$'
# The cause comes before the failure.
awk '/^<6>.*Query with URL/ { asked = NR } /^<3>.*curl error/ { failed = NR }
  END { exit !(asked && failed && asked < failed) }' "$work/output" || fail "$(<"$work/output")"
