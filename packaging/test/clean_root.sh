# SPDX-License-Identifier: Apache-2.0
# shellcheck shell=bash
# Makes an empty Debian root from the sources of this machine's apt. The files in WORK_DIR/stage are in
# /stage there. The root and its mounts are removed afterwards.

readonly suite=bookworm

# prepare_stage WORK_DIR
prepare_stage() {
  rm -rf "$1"
  mkdir -p "$1/stage" "$1/tmp"
  chmod 755 "$1" "$1/stage" "$1/tmp"
}

# The new root needs the same apt settings as this machine to reach the sources, for example a proxy.
write_apt_settings() {
  apt-config dump | grep -E '^Acquire::(Check-|http|https|Retries|Proxy)' >"$1/apt.conf" || true
  apt-get indextargets --format 'deb $(REPO_URI) $(RELEASE) $(COMPONENT)' 'Created-By: Packages' \
    'Origin: Debian' | grep -E " $suite(-updates|-security)? " | sort -u >"$1/sources.list" || true
  if [[ ! -s $1/sources.list ]]; then
    echo "this machine's apt has no index of Debian $suite; run apt-get update first" >&2
    return 1
  fi
}

# run_in_root WORK_DIR SECONDS PROGRAM: runs PROGRAM, a path in the root. Prints its lines "in root: …",
# and its whole output if it fails.
run_in_root() {
  local work=$1 limit=$2 program=$3
  write_apt_settings "$work"
  # The new root may lack the compiler launcher that CMake uses here.
  unset "${!CMAKE_@}"
  # The `null` format discards the root. A user who may not mount gets a root without /proc, which is not
  # needed here.
  if ! TMPDIR=$(realpath "$work/tmp") STAGE=$(realpath "$work/stage") PROGRAM=$program \
    timeout --kill-after=60 "$limit" mmdebstrap --quiet --format=null --variant=apt \
    --aptopt="$(realpath "$work/apt.conf")" --dpkgopt=force-unsafe-io \
    --customize-hook='cp -r "$STAGE" "$1/stage"' \
    --customize-hook='chroot "$1" "$PROGRAM" >&2' \
    "$suite" /dev/null "$work/sources.list" >"$work/log" 2>&1; then
    cat "$work/log" >&2
    return 1
  fi
  grep '^in root: ' "$work/log"
}
