# SPDX-License-Identifier: Apache-2.0
# shellcheck shell=bash disable=SC2034
# The Debian packages that run.sh needs, and those whose versions are recorded with the figures.

readonly fleet_packages=(gnuplot-nox iproute2 jq nginx-light openssl time)
readonly fleet_versions=(libcurl4 libssl3 nginx-light)
