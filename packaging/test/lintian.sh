#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# usage: lintian.sh PACKAGE...
# Checks that the packages follow Debian's policy: prints every tag and fails on an error or a warning.
set -euo pipefail

as_root=()
((EUID != 0)) || as_root=(--allow-root)
lintian "${as_root[@]}" --display-info --fail-on error,warning "$@"
