# SPDX-License-Identifier: Apache-2.0
# shellcheck shell=bash
# Sourced by the scripts that build the library's dependencies from Debian source packages, of the
# release that this machine's apt uses. `work` is the script's own folder. Each build is a step with
# its own log.

# Reports how a step ended, with its log if it failed.
tell_end() {
  local status=$1 name=$2 begin=$3
  if ((status == 0)); then
    printf '%-18s %4d s\n' "$name" $((SECONDS - begin))
  else
    # shellcheck disable=SC2154  # the script sets it
    tail -n 40 "$work/$name.log" >&2
    echo "${0##*/}: $name failed; the whole log is $work/$name.log" >&2
  fi
}

# Runs a step in a separate process, which ends at the first command that fails.
step() (
  local name=$1
  shift
  # shellcheck disable=SC2064  # the start time must be taken now
  trap "tell_end \$? '$name' $SECONDS" EXIT
  "$@" >"$work/$name.log" 2>&1
)

sources() {
  local codename
  codename=$(sed -n 's/^VERSION_CODENAME=//p' /etc/os-release)
  apt-get indextargets \
    --format 'deb-src [signed-by=$(SIGNED_BY)] $(REPO_URI) $(RELEASE) $(COMPONENT)' \
    'Created-By: Packages' 'Origin: Debian' 'Component: main' "Codename: $codename" |
    sed 's/ \[signed-by=\$(SIGNED_BY)\]//' | sort -u
}

# fetch PACKAGE…: unpacks the sources to $work/source. It uses one suite only, so that index and
# packages match.
fetch() {
  mkdir -p "$work/source/lists"
  sources >"$work/source/apt.list"
  if [[ ! -s $work/source/apt.list ]]; then
    apt-get update
    sources >"$work/source/apt.list"
  fi
  if [[ ! -s $work/source/apt.list ]]; then
    echo "apt knows of no sources for the release of this machine"
    return 1
  fi
  cd "$work/source" || return
  local apt=(apt-get -o Dir::Etc::SourceList="$PWD/apt.list" -o Dir::Etc::SourceParts=/dev/null
    -o Dir::State::Lists="$PWD/lists" -o Dir::Cache="$PWD/cache" -o APT::Sandbox::User=root)
  "${apt[@]}" update
  "${apt[@]}" source "$@"
}
