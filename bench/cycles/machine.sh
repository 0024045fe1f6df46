# SPDX-License-Identifier: Apache-2.0
# shellcheck shell=bash disable=SC2154

# describe_machine PACKAGE...: prints the machine and the versions of the packages that are installed,
# as a line of JSON. The caller sets $host.
describe_machine() {
  local compiler
  compiler=$(sed -n 's/^CMAKE_CXX_COMPILER:[A-Z]*=//p' "$host/CMakeCache.txt")
  {
    dpkg-query -W -f '${db:Status-Status} ${Package} ${Version}\n' "$@" \
      2>/dev/null || true
  } | jq -cRn \
    --arg cpu "$(sed -n 's/^model name[^:]*: //p' /proc/cpuinfo | head -n 1)" \
    --argjson cores "$(nproc)" \
    --argjson memory "$(awk '/^MemTotal:/ { print $2 }' /proc/meminfo)" \
    --arg kernel "$(uname -sr)" \
    --arg compiler "$("$compiler" --version | head -n 1)" \
    --arg date "$(date -u +%F)" \
    --arg commit "$("$(dirname "${BASH_SOURCE[0]}")/../commit.sh")" \
    '[inputs | split(" ") | select(.[0] == "installed") | {(.[1]): .[2]}] | add as $versions |
     {machine: {$cpu, $cores, memory_kib: $memory, $kernel, $compiler, $versions, $date,
      $commit}}'
}
