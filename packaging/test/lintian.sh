#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# usage: lintian.sh PACKAGE...
# The packages keep Debian's policy: every tag is shown, an error or a warning fails.
set -euo pipefail

as_root=()
((EUID != 0)) || as_root=(--allow-root)
lintian "${as_root[@]}" --display-info --fail-on error,warning "$@"
