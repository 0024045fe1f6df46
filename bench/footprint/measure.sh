#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# usage: measure.sh HOST_BUILD ARM_BUILD ARM_SYSROOT
# Measures what the library costs and prints lines "NAME VALUE". Heap and sizes are those of 32-bit
# ARM, under emulation. Resident memory and transfers are those of the host, because under emulation
# those of the emulator would be included.
set -euo pipefail
export LC_ALL=C

if (($# != 3)); then
  echo "usage: $0 HOST_BUILD ARM_BUILD ARM_SYSROOT" >&2
  exit 2
fi
host=$(realpath "$1")
arm=$(realpath "$2")
sysroot=$(realpath "$3")
here=$(dirname "$(readlink -f "$0")")
readonly host arm sysroot here
readonly zotconf=$host/tools/zotconf tools=$host/bench/footprint
readonly emulate=(qemu-arm -L "$sysroot")
readonly index=001122334455 file_size=4096
readonly counts=(100 1000 10000)
readonly commands=(tar cp rm)

# Uses a file system in memory if it has enough space. The results do not depend on the medium, but
# the duration does.
work_folder() {
  local -r room=1048576
  local free
  free=$(df --output=avail -k /dev/shm 2>/dev/null | tail -n 1)
  if [[ -w /dev/shm ]] && ((${free:-0} >= room)); then
    mktemp -d -p /dev/shm
  else
    mktemp -d
  fi
}

work=$(work_folder)
readonly work
services=()

clean_up() {
  local service
  for service in "${services[@]}"; do
    kill "$service" 2>/dev/null || true
    wait "$service" 2>/dev/null || true
  done
  rm -rf "$work"
}
trap clean_up EXIT

fail() {
  printf 'footprint: %s\n' "$*" >&2
  exit 1
}

publish() {
  local files=$1 letter=$2 changed=$3
  "$host/bench/source/bench_source" "$work/$files/source" "$files" "$file_size" "$changed"
  "$zotconf" publish "$work/$files/source" --out "$work/$files/$letter" --index "$index" \
    --cluster 7d0b6a52-41c5-4b0e-9d7e-2f6f0c1a8e11 --firmware 7.1.0 \
    --config-id "00000000-0000-4000-8000-00000000000$changed" >"$work/$files/publish.log" ||
    fail "publishing $files files failed"
}

# Serves a publication and writes its port into FILES/LETTER.port.
serve() {
  local folder=$work/$1/$2 port=
  : >"$folder.log"
  "$zotconf" serve "$folder" --port 0 >"$folder.log" 2>&1 &
  services+=($!)
  for _ in {1..200}; do
    port=$(sed -n 's/^listening on 127\.0\.0\.1:\([0-9]*\)$/\1/p' "$folder.log")
    [[ -z $port ]] || break
    sleep 0.05
  done
  [[ -n $port ]] || fail "the service does not listen"
  echo "$port" >"$folder.port"
}

# Publication b is publication a with one file changed.
prepare() {
  local files=$1
  mkdir -p "$work/$files"
  publish "$files" a 0
  cp -r "$work/$files/a" "$work/$files/b"
  publish "$files" b 1
  rm -rf "$work/$files/source"
  serve "$files" a
  serve "$files" b
}

# run FILES NAME COMMAND… -- STEP…: runs a client on an empty element; writes FILES/NAME.out.
run() {
  local files=$1 name=$2 prefix=()
  shift 2
  while [[ $1 != -- ]]; do
    prefix+=("$1")
    shift
  done
  shift
  local element=$work/$files/$name
  mkdir -p "$element/flash" "$element/ram"
  env -u ZOT_DEV_PATH ZOT_PREFIX_CONF_ROOT="$element/flash" ZOT_PREFIX_TMP_ROOT="$element/ram" \
    ZOT_REMOTE_PORT="$(<"$work/$files/a.port")" FOOTPRINT_COMMANDS="$element/commands" \
    FOOTPRINT_PATH="$PATH" "${prefix[@]}" "$index" "$@" >"$element.out" 2>"$element.err" || {
    cat "$element.err" >&2
    fail "$name with $files files: no figures"
  }
  rm -rf "$element/flash" "$element/ram"
}

readonly first_cycle=(init=init first.get=get first.commit=commit)

every_step() {
  printf '%s\n' sizes=sizes "${first_cycle[@]}" settle=poll poll=poll \
    "port:$(<"$work/$1/b.port")" update.get=get update.commit=commit resettle=poll \
    repoll=poll end=free
}

# select_lines PREFIX PATTERN FILE: prints the lines whose names match, with a prefix.
select_lines() {
  awk -v prefix="$1" -v pattern="^($2)\$" '$1 ~ pattern { print prefix $1, $2 }' "$3"
}

measure_library() {
  local stripped=$work/library
  arm-linux-gnueabihf-strip -o "$stripped" "$arm/src/libzotconf.so"
  arm-linux-gnueabihf-size "$stripped" |
    awk 'NR == 2 { printf "library.text %d\nlibrary.data %d\nlibrary.bss %d\n", $1, $2, $3 }'
  echo "library.file $(stat -c %s "$stripped")"
}

measure_heap() {
  local files=$1 steps
  mapfile -t steps < <(every_step "$files")
  run "$files" heap "${emulate[@]}" "$arm/bench/footprint/footprint_heap" -- "${steps[@]}"
  local bytes='(first|update)\.(get|commit)\.peak\.bytes|(first\.commit|poll|repoll)\.held\.bytes'
  if ((files == 100)); then
    select_lines "" 'sizeof\..*|stack\.(init|first\.(get|commit)|settle|poll)' \
      "$work/$files/heap.out"
    select_lines "heap." 'init\.held\.(bytes|blocks)' "$work/$files/heap.out"
  elif ((files == 1000)); then
    bytes+='|(first\.get\.peak|poll\.held|update\.get\.peak)\..*'
  fi
  select_lines "heap.$files." "$bytes" "$work/$files/heap.out"
}

# Puts commands on PATH that record their peak memory and run the real command.
wrap_commands() {
  local command
  mkdir -p "$work/bin"
  for command in "${commands[@]}"; do
    ln -sf "$tools/footprint_command" "$work/bin/$command"
  done
}

measure_memory() {
  local files=$1 steps
  mapfile -t steps < <(every_step "$files")
  run "$files" memory env PATH="$work/bin:$PATH" "$tools/footprint_process" -- "${steps[@]}"
  select_lines "memory.$files." '(start|poll|(first|update)\.(get|commit))\.rss_kib' \
    "$work/$files/memory.out"
  awk -v files="$files" '
    $2 > peak[$1] { peak[$1] = $2 }
    END { for (name in peak) printf "memory.%d.%s.rss_kib %d\n", files, name, peak[name] }' \
    "$work/$files/memory/commands"
}

readonly transfers=(
  read readv pread64 recvfrom recvmsg write writev pwrite64 sendto sendmsg copy_file_range splice
  sendfile open openat creat mkdir mkdirat unlink unlinkat rmdir execve fsync fdatasync sync syncfs
  access faccessat)

trace_summary() {
  local files=$1 name=$2
  awk -v persistent="$work/$files/$name/flash" -v scratch="$work/$files/$name/ram" \
    -f "$here/trace.awk" "$work/$files/$name.trace"
}

measure_transfers() {
  local files=$1 steps=("${first_cycle[@]}") wanted=first
  if ((files == 1000)); then
    mapfile -t steps < <(every_step "$files")
    wanted='first|update|poll'
  fi
  run "$files" transfers strace -f -q -y -s 0 --seccomp-bpf -e verbose=none -e signal=none \
    -e "trace=$(IFS=,; echo "${transfers[*]}")" -o "$work/$files/transfers.trace" \
    "$tools/footprint_process" -- "${steps[@]}"
  # Prints every figure, even if nothing was counted for it.
  trace_summary "$files" transfers | awk -v files="$files" -v wanted="$wanted" '
    { sum[$1] = $2 }
    END {
      steps = split(wanted, step, "|")
      figures = split("read.persistent read.scratch read.network write.persistent write.scratch " \
        "write.network write.pipes files.persistent files.scratch folders.persistent " \
        "folders.scratch removed.persistent removed.scratch programs syncs", figure, " ")
      for (i = 1; i <= steps; ++i)
        for (j = 1; j <= figures; ++j)
          printf "%s.%d.%s %d\n", step[i], files, figure[j], sum[step[i] "." figure[j]]
    }'
}

measure_poll_on_host() {
  local files=$1 steps
  mapfile -t steps < <(every_step "$files")
  run "$files" calls strace -f -q -y -s 0 -e verbose=none -e signal=none \
    -o "$work/$files/calls.trace" "$tools/footprint_process" -- "${steps[@]}"
  trace_summary "$files" calls | sed -n 's/^poll\.\(calls\|call\.\)/poll.host.\1/p'
}

# The emulator traces only the calls of the program itself. This suffices: a poll starts no other.
measure_poll_on_arm() {
  local files=$1 steps
  mapfile -t steps < <(every_step "$files")
  run "$files" arm_calls "${emulate[@]}" -strace -D "$work/$files/arm_calls.trace" \
    "$arm/bench/footprint/footprint_process" -- "${steps[@]}"
  sed -E 's/^([0-9]+) ([a-z0-9_]+\(.*\) = )(.*)$/\1 \2\3/' "$work/$files/arm_calls.trace" |
    awk -v persistent=/ -v scratch=/ -f "$here/trace.awk" |
    sed -n 's/^poll\.\(calls\|call\.\)/poll.arm.\1/p'
}

# Runs two measurements at a time, except those that count waits.
measure() {
  local files
  measure_library
  wrap_commands
  for files in "${counts[@]}"; do
    prepare "$files"
  done
  measure_poll_on_host 100
  measure_poll_on_arm 100
  (for files in "${counts[@]}"; do measure_heap "$files"; done >"$work/heap.values") &
  local heap=$!
  for files in "${counts[@]}"; do
    measure_memory "$files"
    measure_transfers "$files"
  done
  wait "$heap"
  cat "$work/heap.values"
}

measure >"$work/values"
sort -u "$work/values"
