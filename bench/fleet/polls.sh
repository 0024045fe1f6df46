# SPDX-License-Identifier: Apache-2.0
# shellcheck shell=bash disable=SC2154
# Measures many elements that poll nginx, and their return after a power cut. A program plays them.

# poll NAME MODE [OPTION]...: with TLS if the name ends in -tls.
poll() {
  local name=$1 port=$plain_port tls=()
  if [[ $name == *-tls ]]; then
    port=$secure_port
    tls=(--ca "$work/servers.crt" --cert "$work/element.crt" --key "$work/element.key")
  fi
  progress "$name"
  "$host/bench/fleet/bench_poll" "${@:2}" --paths "$work/paths" --port "$port" \
    --server "$server" "${tls[@]}" >"$work/poll.log" 2>&1 || fail "cannot measure $name"
  record '.poll += {$name}' --arg name "$name" <"$work/poll.log"
}

# measure_polls PUBLICATION
measure_polls() {
  local -r time=$((period * rounds))
  (cd "$1" && find file -name '*.checksum' | sed 's,^,/,' | sort) >"$work/paths"
  make_server_certificates
  serve "$1" off
  poll flood flood
  poll flood-tls flood
  poll paced paced --time "$time" --every "$period" --jitter 10
  poll paced-tls paced --time "$time" --every "$period" --jitter 10
  poll paced-even paced --time "$time" --every "$period"
  poll herd herd
  poll herd-spread herd --spread "$spread"
  poll herd-tls herd
  poll herd-spread-tls herd --spread "$spread"
  stop_all
}
