# SPDX-License-Identifier: Apache-2.0
# shellcheck shell=bash disable=SC2034
# The Debian packages that run.sh needs, and those that --peers needs in addition.

readonly cycles_packages=(curl jq nginx-light)
readonly cycles_peers=(casync ostree)
# The packages whose versions are recorded with the figures.
readonly cycles_versions=(
  bash coreutils dash gzip libcjson1 libcurl4 libssl3 tar
  "${cycles_packages[@]}" "${cycles_peers[@]}")
