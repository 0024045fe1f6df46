#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# usage: run_c_client.sh ZOTCONF SAMPLE PROGRAM
# Publishes SAMPLE, serves it on a free port, and runs PROGRAM against it with directories of its
# own and the number of published files as its argument.
set -euo pipefail

zotconf=$1 sample=$2 program=$3
# shellcheck source=tests/api/service.sh
source "$(dirname "$0")/service.sh"

publish "$zotconf" "$sample"
start_service "$zotconf"
"$program" "$(count_files "$sample")" || fail "$program failed with status $?"
stop_service
