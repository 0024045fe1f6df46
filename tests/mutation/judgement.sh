#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# usage: judgement.sh SURVIVORS FILE OLD NEW
# Prints how SURVIVORS judges the mutation of the line OLD of FILE into NEW; nothing if it does not.
set -euo pipefail

survivors=$1 file=$2 old=${3#"${3%%[! ]*}"} new=${4#"${4%%[! ]*}"}
{
  grep -F -A 3 "file: \`$file\`" "$survivors" | grep -F -A 2 -x -- "- old: \`$old\`" |
    grep -F -A 1 -x -- "- new: \`$new\`" | sed -n 's/^- judgement: //p'
} || true
