#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# usage: commit.sh [--digest | --changes]
# Prints the last commit that changed the sources: all files but the documents that measurements write.
# With --digest, prints a digest of the sources instead; with --changes, those that are not committed.
set -euo pipefail
cd "$(dirname "$(readlink -f "${BASH_SOURCE[0]}")")/.."

readonly sources=(. ':!docs/release/[0-9]*.md' ':!docs/release/steps' ':!docs/reliability.md'
  ':!docs/footprint.md' ':!docs/performance.md' ':!docs/performance' ':!docs/scale.md' ':!docs/scale')

case ${1:-} in
  --digest) git ls-files -s -- "${sources[@]}" | sha256sum | cut -c 1-16 ;;
  --changes) git status --porcelain -- "${sources[@]}" ;;
  '')
    git rev-parse --quiet --verify HEAD >/dev/null 2>&1 || {
      echo unknown
      exit
    }
    commit=$(git log -1 --format=%h --abbrev=12 -- "${sources[@]}")
    changes=$(git status --porcelain -- "${sources[@]}")
    echo "$commit${changes:+ with changes}"
    ;;
  *)
    echo "usage: $0 [--digest | --changes]" >&2
    exit 2
    ;;
esac
