# SPDX-License-Identifier: Apache-2.0
# usage: jq -rs -L FOLDER --arg name TABLE -f relay.jq RELAY.jsonl
# The tables of what a change costs.
include "figures";
include "aims";
include "contenders";

def tools: {
  relay: "`zotconf relay`", archive: "complete archive", ostree: "ostree",
  delta: "ostree, static delta", casync: "casync", rsync: "rsync"};
def others: tools | keys_unsorted - ["relay"];

def change_cases: map(.case // empty) | sort_by(.files);
def round_trips: map(.round_trip // empty) | unique;

# updates(WHO; CASE; ROUND_TRIP): the figures of all rounds.
def updates($who; $case; $round_trip):
  map(select(.who == $who and .files == $case.files and .round_trip == $round_trip));

def median_of($figure): map(.[$figure]) | median;

# The tool with the lowest median.
def best($figure; $case; $round_trip):
  . as $all
  | others
  | min_by(. as $who | $all | updates($who; $case; $round_trip) | median_of($figure));

# {ratio, low, high} of the relay and something else; the rounds of both were measured in turn.
def relay_over($figure; $case; $round_trip; $who):
  updates($who; $case; $round_trip) as $others
  | updates("relay"; $case; $round_trip)
  | [., $others] as [$own, $others]
  | [range($own | length) | $own[.][$figure] / $others[.][$figure]] as $each
  | {ratio: (($own | median_of($figure)) / ($others | median_of($figure))),
     low: ($each | min), high: ($each | max)};

# The same for what the relay has to fetch: the files that changed, and K.
def relay_over_need($k_bytes; $case; $round_trip):
  ($case.changed_bytes + $k_bytes) as $need
  | updates("relay"; $case; $round_trip) | map(.bytes / $need)
  | {ratio: median, low: min, high: max};

def aims_of($case; $round_trip):
  "\($case | files_of_size), \($round_trip) ms" as $where
  | best("bytes"; $case; $round_trip) as $smallest
  | best("wall"; $case; $round_trip) as $fastest
  | (relay_over_need($case.k_bytes; $case; $round_trip)
     | aim("bytes : changed files and K, \($where)"; 1.1)),
    (relay_over_need($case.k_sent_bytes; $case; $round_trip)
     | aim("bytes : changed files and K compressed with gzip, \($where)"; 1.1)),
    (relay_over("bytes"; $case; $round_trip; $smallest)
     | aim("bytes : bytes of \(tools[$smallest]), \($where)"; 1; true)),
    (select($round_trip > 0) | relay_over("wall"; $case; $round_trip; $fastest)
     | aim("time : time of \(tools[$fastest]), \($where)"; 1));

def change_aims:
  . as $all
  | [change_cases[] as $case | round_trips[] as $round_trip
     | $all | aims_of($case; $round_trip)]
  | table("lrrrl"; ["ratio", "limit", "measured", "range over the rounds", "result"]);

def row_of_change($who; $case; $round_trip):
  updates($who; $case; $round_trip)
  | (map(.wall) | [min, max]) as [$shortest, $longest]
  | [
      ($case | files_of_size), "\($round_trip) ms", tools[$who],
      (median_of("bytes") | count), (median_of("payload") | count),
      (median_of("wall") | duration), "\($shortest | duration) to \($longest | duration)",
      (median_of("cpu") | duration)
    ];

def change:
  . as $all
  | [change_cases[] as $case | round_trips[] as $round_trip | (tools | keys_unsorted[]) as $who
     | $all | row_of_change($who; $case; $round_trip)]
  | table("lrlrrrrr"; ["files", "round trip", "tool", "bytes", "payload", "time",
                       "range over the rounds", "CPU"]);

def change_sizes:
  [change_cases[]
   | [files_of_size, (.changed_bytes, .k_bytes, .k_sent_bytes, .archive_bytes | grouped)]]
  | table("lrrrr"; ["files", "changed files, bytes", "K, bytes", "K compressed with gzip, bytes",
                    "complete archive, bytes"]);

# The rows of the machine, and its load.
def change_machine:
  (map(.load // empty) | "\(min | fixed(1)) to \(max | fixed(1))") as $load
  | (map(select(.machine))[0] | machine), (["load average", $load] | line);

if $name == "change-machine" then change_machine
elif $name == "change-sizes" then change_sizes
elif $name == "change-aims" then change_aims
elif $name == "change" then change
else error("there is no table \($name)")
end
