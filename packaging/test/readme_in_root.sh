#!/bin/bash
# SPDX-License-Identifier: Apache-2.0
# Runs in an empty Debian root that has the tree in /stage/zotconf. Follows README.md from top to bottom
# in one shell and changes no line of it: runs the shell blocks and saves the programs.
set -euo pipefail
cd /stage/zotconf

# Markers of another test: these blocks run here too, because the root is discarded.
readonly run_here=("" "builds the tree" "installs into the system")

is_run_here() {
  local reason
  for reason in "${run_here[@]}"; do
    [[ $reason != "$1" ]] || return 0
  done
  return 1
}

# Prints the exit statuses that the comments of a block announce, in order.
announced() {
  sed -n 's/.*# exit status \([0-9]*\)$/\1/p' "$1" | paste -sd' '
}

# Records each command with an exit status other than 0; the shell continues.
session_begin() {
  cat <<'BEGIN'
trap 'kill $(jobs -p) 2>/dev/null || true' EXIT
trap 'statuses+=("$?")' ERR
begin_block() { statuses=(); }
end_block() {
  if [[ "${statuses[*]}" != "$2" ]]; then
    echo "README.md:$1: commands ended with '${statuses[*]}' instead of '$2'" >&2
    exit 1
  fi
  echo "in root: README.md:$1: done in $SECONDS s"
  SECONDS=0
}
BEGIN
}

session_block() {
  local file=$1 line=$2
  echo "begin_block"
  cat "$file"
  echo "end_block $line '$(announced "$file")'"
}

write_session() {
  session_begin
  local number kind line name reason
  while read -r number kind line name reason; do
    [[ $reason != - ]] || reason=
    if [[ $kind == sh ]] && is_run_here "$reason"; then
      session_block "/stage/blocks/$number.sh" "$line"
    elif [[ $kind == sh ]]; then
      echo "echo 'in root: README.md:$line: skipped: $reason'"
    elif [[ $name != - ]]; then
      echo "cp /stage/blocks/$number.$kind $name"
    fi
  done </stage/blocks/list
}

mkdir -p /stage/blocks
awk -v out=/stage/blocks -f tests/docs/blocks.awk README.md >/stage/blocks/list
write_session >/stage/session
bash /stage/session

# Checks that the blocks have the result that the text around them promises.
fail() {
  echo "$*" >&2
  exit 1
}
[[ $(ldd ./cycle) == *"libzotconf.so.1 => /usr/local/lib/"* ]] ||
  fail "cycle does not find the library: $(ldd ./cycle)"
for command in relay watch; do
  unit=/usr/local/lib/systemd/system/zotconf-$command.service
  grep -q "^ExecStart=/usr/local/bin/zotconf $command " "$unit" || fail "$unit starts another program"
done
[[ -s /usr/local/share/man/man1/zotconf.1 ]] || fail "there is no manual page"
for package in busybox-static clang-tidy gcovr libgtest-dev mandoc shellcheck; do
  ! dpkg-query -W "$package" >/dev/null 2>&1 || fail "a reader who runs no test got $package"
done
echo "in root: README.md: all blocks done"
