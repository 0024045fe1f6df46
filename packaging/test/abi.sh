#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# usage: abi.sh LIBRARY BASELINE [--update]
# Checks that the binary interface of LIBRARY, built with debug information, equals the stored one. Types
# count only as far as the public headers define them: a program cannot depend on types that it does not
# see.
set -euo pipefail

library=$1 baseline=$2 mode=${3:-}
headers=$(cd "$(dirname "${BASH_SOURCE[0]}")/../../include" && pwd)
suppressions=$(dirname "${BASH_SOURCE[0]}")/../abi/foreign.suppr
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

abidw --headers-dir "$headers" --drop-private-types --exported-interfaces-only --no-show-locs \
  --no-comp-dir-path --no-corpus-path --no-elf-needed --type-id-style hash --suppr "$suppressions" \
  --out-file "$work/now.abi" "$library"
if ! grep -q '<function-decl ' "$work/now.abi"; then
  echo "$library has no function in its debug information; build it with debug information" >&2
  exit 1
fi

if [[ $mode == --update ]]; then
  mkdir -p "$(dirname "$baseline")"
  cp "$work/now.abi" "$baseline"
  exit
fi
if [[ ! -e $baseline ]]; then
  echo "there is no baseline $baseline; ./dev package --update-abi writes it" >&2
  exit 1
fi
if ! abidiff --no-show-locs "$baseline" "$work/now.abi" >"$work/changes"; then
  cat "$work/changes" >&2
  cat >&2 <<'TELL'
The binary interface is not the stored one. Programs built against the released library may break:
take the change back, or, when the interface is meant to change, raise the version as
CONTRIBUTING.md tells and store the new one with: ./dev package --update-abi
TELL
  exit 1
fi
