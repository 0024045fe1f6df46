# SPDX-License-Identifier: Apache-2.0
# shellcheck shell=bash disable=SC2034
# The Debian packages that run.sh needs, and those whose versions are recorded with the figures.

readonly relay_packages=(casync curl iproute2 jq nginx-light openssl ostree rsync)
readonly relay_versions=(casync curl libcurl3-gnutls libcurl4 libssl3 nginx-light ostree rsync)
