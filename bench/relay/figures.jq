# SPDX-License-Identifier: Apache-2.0
# usage: jq -c --argjson round_trip MS --arg before COUNTERS --arg after COUNTERS \
#   --argjson load AVERAGE -f figures.jq
# Adds to the figures of an update what crossed the network. The payload is what TCP carried: each
# frame has 66 bytes of headers (Ethernet, IP, TCP with a time stamp).

def counters: split(" ") | map(tonumber);

($before | counters) as [$bytes_before, $frames_before]
| ($after | counters) as [$bytes_after, $frames_after]
| ($bytes_after - $bytes_before) as $bytes
| ($frames_after - $frames_before) as $frames
| . + {$round_trip, $load, $bytes, $frames, payload: ($bytes - 66 * $frames)}
