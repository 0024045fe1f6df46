# SPDX-License-Identifier: Apache-2.0
# shellcheck shell=bash disable=SC2034,SC2154
# Two network namespaces, for the server and for the client, and one link between them. The caller
# sets $host and $work.

readonly server_address=10.77.0.1 client_address=10.77.0.2
readonly server_side=bench-server-$$ client_side=bench-client-$$
# Fixed, so that no request for an address is among the counted frames.
readonly server_mac=02:00:00:00:00:01 client_mac=02:00:00:00:00:02
line=

on_server() {
  ip netns exec "$server_side" "$@"
}

on_client() {
  ip netns exec "$client_side" "$@"
}

# What a transfer taught TCP about the route must not help the next one.
readonly settings='
  echo 1 >/proc/sys/net/ipv6/conf/all/disable_ipv6
  echo 1 >/proc/sys/net/ipv6/conf/default/disable_ipv6
  echo 1 >/proc/sys/net/ipv4/tcp_no_metrics_save'

open_network() {
  local side
  for side in "$server_side" "$client_side"; do
    ip netns add "$side"
    ip netns exec "$side" sh -ec "$settings"
    ip -n "$side" link set lo up
  done
}

# set_up SIDE MAC ADDRESS PEER_MAC PEER_ADDRESS. A segment of TCP is a frame, as on a network card.
set_up() {
  ip -n "$1" link set wire address "$2" gso_max_segs 1 txqueuelen 10000 up
  ip -n "$1" address add "$3/24" dev wire
  ip -n "$1" neighbour replace "$5" lladdr "$4" dev wire nud permanent
}

# Creates both ends in the namespace of the client, as `wire` and `far`. A pair of virtual interfaces
# would drop frames when one processor handles both ends, so it is not used even without a delay.
start_line() {
  : >"$work/line.log"
  ip netns exec "$client_side" "$host/bench/relay/bench_delay_line" wire far "$1" \
    >"$work/line.log" &
  line=$!
  await "delay line" grep -q ready "$work/line.log"
}

disconnect() {
  [[ -n $line ]] || return 0
  kill "$line"
  wait "$line" || true
  line=
}

# connect ROUND_TRIP: links both sides; half of the round trip, in milliseconds, passes in each
# direction.
connect() {
  disconnect
  start_line $(($1 / 2))
  ip -n "$client_side" link set far netns "$server_side" name wire
  set_up "$server_side" "$server_mac" "$server_address" "$client_mac" "$client_address"
  set_up "$client_side" "$client_mac" "$client_address" "$server_mac" "$server_address"
}

close_network() {
  local side
  disconnect
  for side in "$server_side" "$client_side"; do
    ip netns delete "$side" 2>/dev/null || true
  done
}

# Prints the bytes and frames that crossed the link so far, in both directions.
traffic() {
  ip -n "$client_side" -s -j link show dev wire |
    jq -r '.[0].stats64 | "\(.rx.bytes + .tx.bytes) \(.rx.packets + .tx.packets)"'
}
