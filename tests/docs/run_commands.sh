#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# usage: run_commands.sh DOCUMENT
# Runs what a document shows, as a reader would who has the library and the tools installed and
# stands in a folder with the examples, or among them for a document of theirs:
#
#   sh         the blocks of the document in order, in one shell
#   c, cpp     compiled; a program is run against a service that publishes the sample
#   json       has to be one JSON value
#   dot        rendered by ./dev docs
#   text …     shown, not run: output, layouts, files of other programs
#
# A block that cannot be run here has the comment "<!-- not run: REASON -->" above its fence.
# The service's port, 8087, is replaced by a free one.
#
# Environment: ZOTCONF, ZOTCONF_LIBRARY, ZOTCONF_SOURCE, ZOTCONF_VERSION, JSON_CHECK, CC, CXX.
set -euo pipefail

readonly document=$1
readonly shown_only=(text cmake ini nginx)
readonly reasons=(
  "builds the tree"
  "runs every test"
  "installs packages"
  "installs into the system"
  "needs a fleet that reports"
  "needs an object store"
  "needs a running relay"
  "needs systemd"
  "runs for ever")

start=home
[[ $document != */examples/* ]] || start=home/examples

here=$(dirname "$(readlink -f "$0")")
work=$(mktemp -d)
service=

clean_up() {
  if [[ -n $service ]]; then
    kill "$service" 2>/dev/null || true
    wait "$service" 2>/dev/null || true
  fi
  # What a document has left in the background.
  sed -n 's/^to stop: kill //p' "$work/started" 2>/dev/null | xargs -r kill 2>/dev/null || true
  rm -rf "$work"
}
trap clean_up EXIT

fail() {
  printf '%s\n' "$*" >&2
  exit 1
}

contains() {
  local wanted=$1 one
  shift
  for one in "$@"; do
    [[ $one != "$wanted" ]] || return 0
  done
  return 1
}

answers() {
  (exec 3<>"/dev/tcp/127.0.0.1/$1") 2>/dev/null
}

# Below the range that the kernel hands out to those who ask for any port.
free_port() {
  local port
  for _ in {1..50}; do
    port=$((20000 + RANDOM % 12000))
    if ! answers "$port"; then
      echo "$port"
      return
    fi
  done
  fail "there is no free port"
}

await_port() {
  for _ in {1..300}; do
    ! answers "$1" || return 0
    sleep 0.1
  done
  fail "nothing answers on port $1"
}

# What an installation brings: the program, the library and its pkg-config file.
install_for_reader() {
  mkdir -p "$work/bin" "$work/pkgconfig" "$work/home" "$work/tmp"
  ln -s "$CC" "$work/bin/cc"
  ln -s "$CXX" "$work/bin/c++"
  cat >"$work/bin/zotconf" <<PROGRAM
#!/usr/bin/env bash
if [[ \${1:-} == serve && " \$* " != *" --port"* ]]; then
  set -- "\$@" --port "$port"
fi
if [[ " \$* " == *" --background "* ]]; then
  "$ZOTCONF" "\$@" | tee -a "$work/started"
  exit "\${PIPESTATUS[0]}"
fi
exec "$ZOTCONF" "\$@"
PROGRAM
  chmod +x "$work/bin/zotconf"
  cat >"$work/pkgconfig/zotconf.pc" <<PACKAGE
Name: zotconf
Description: the library in its build tree
Version: $ZOTCONF_VERSION
Libs: -L${ZOTCONF_LIBRARY%/*} -lzotconf
Cflags: -I$ZOTCONF_SOURCE/include
PACKAGE
  cp -r "$ZOTCONF_SOURCE/examples" "$work/home/examples"
  export PATH=$work/bin:$PATH PKG_CONFIG_PATH=$work/pkgconfig
  export LD_LIBRARY_PATH=${ZOTCONF_LIBRARY%/*} TMPDIR=$work/tmp HOME=$work/home
  export ZOT_REMOTE_PORT=$port ZOT_PREFIX_CONF_ROOT=$work/element ZOT_PREFIX_TMP_ROOT=$work/element
  unset ZOT_DEV_PATH
}

compiler_for() {
  if [[ $1 == c ]]; then
    echo cc -std=c11 -x c
  else
    echo c++ -std=c++20 -x c++
  fi
}

readonly warnings=(-Wall -Wextra -Wpedantic -Werror)

# A block is a source file, or the inside of a function that has a handle.
check_fragment() {
  local kind=$1 file=$2 header=zot_conf.h compiler
  [[ $kind == c ]] || header=zot_conf.hpp
  read -ra compiler <<<"$(compiler_for "$kind")"
  local command=("${compiler[@]}" "${warnings[@]}" -Wno-unused -I"$ZOTCONF_SOURCE/include"
    -include stdio.h -include "$header" -fsyntax-only)
  if "${command[@]}" "$file" 2>/dev/null; then
    return
  fi
  {
    echo "void fragment(zot_ctx *handle);"
    echo "void fragment(zot_ctx *handle) { (void)handle;"
    cat "$file"
    echo "}"
  } >"$file.body"
  "${command[@]}" "$file.body"
}

start_service() {
  local own_port=$1
  "$ZOTCONF" publish "$ZOTCONF_SOURCE/examples/sample" --out "$work/published" \
    --index 001122334455 --cluster 7d0b6a52-41c5-4b0e-9d7e-2f6f0c1a8e11 >/dev/null
  "$ZOTCONF" serve "$work/published" --port "$own_port" >"$work/serve.log" 2>&1 &
  service=$!
  await_port "$own_port"
}

run_program() {
  local kind=$1 file=$2 compiler flags own_port
  read -ra compiler <<<"$(compiler_for "$kind")"
  read -ra flags <<<"$(pkg-config --cflags --libs zotconf)"
  "${compiler[@]}" "${warnings[@]}" "$file" -x none "${flags[@]}" -o "$file.program"
  own_port=$(free_port)
  start_service "$own_port"
  mkdir "$file.element"
  ZOT_REMOTE_PORT=$own_port ZOT_PREFIX_CONF_ROOT=$file.element ZOT_PREFIX_TMP_ROOT=$file.element \
    timeout 60 "$file.program" || fail "the program ended with status $?"
  kill "$service"
  wait "$service"
  service=
}

# Names the block and gives its kind's verdict.
run_block() {
  local number=$1 kind=$2 line=$3 name=$4
  local file=$work/blocks/$number.$kind
  printf '== %s:%s: %s\n' "${document##*/}" "$line" "$kind"
  case $kind in
    c | cpp)
      [[ $name == - ]] || cp "$file" "$work/$start/$name"
      if grep -qE '^int main\(' "$file"; then
        run_program "$kind" "$file"
      else
        check_fragment "$kind" "$file"
      fi
      ;;
    json) "$JSON_CHECK" "$file" ;;
    sh)
      printf 'echo "-- line %s"\n' "$line" >>"$work/session"
      sed "s/\b8087\b/$port/g" "$file" | awk -f "$here/session.awk" >>"$work/session"
      ;;
    dot) ;;
    *) contains "$kind" "${shown_only[@]}" || fail "line $line: no block is of the kind '$kind'" ;;
  esac
}

run_session() {
  [[ -s $work/session ]] || return 0
  {
    cat <<'PROLOGUE'
set -euo pipefail
trap 'kill $(jobs -p) 2>/dev/null || true; wait' EXIT
trap 'printf "this failed: %s\n" "$BASH_COMMAND" >&2' ERR
expect_status() {
  [[ $2 == "$1" ]] || { echo "command $3 of the block ended with $2 instead of $1" >&2; exit 1; }
}
PROLOGUE
    cat "$work/session"
  } >"$work/script"
  echo "== the commands"
  (cd "$work/$start" && timeout 240 bash "$work/script") || fail "the commands ended with status $?"
}

port=$(free_port)
install_for_reader
mkdir "$work/blocks"
: >"$work/session"
awk -v out="$work/blocks" -f "$here/blocks.awk" "$document" >"$work/list"
while read -r number kind line name reason; do
  if [[ $reason == - ]]; then
    run_block "$number" "$kind" "$line" "$name"
  elif contains "$reason" "${reasons[@]}"; then
    printf '== %s:%s: %s, not run: %s\n' "${document##*/}" "$line" "$kind" "$reason"
  else
    fail "line $line: '$reason' is no reason to leave a block out"
  fi
done <"$work/list"
run_session
