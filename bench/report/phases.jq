# SPDX-License-Identifier: Apache-2.0
# The time that each phase of a cycle takes.
include "figures";
include "aims";

def names_of_phases: [
  "checksum", "k", "archive", "unpack", "verify", "diff", "returned", "commit_k", "remove", "copy",
  "sync", "rest"];

# The phases with a part of their own in a bar; the other phases are added up in one part.
def phases_of_a_bar: ["k", "archive", "unpack", "verify", "returned", "remove", "copy"];
def parts_of_a_bar: phases_of_a_bar + ["others"];

def wall_of_phases($step; $case):
  . as $summary
  | names_of_phases
  | map(. as $phase | {key: ., value: ($summary | step("zotconf"; $step; $phase; $case) | .wall)})
  | map(select(.value)) | from_entries;

# The time of each part of a bar.
def joined: (map(.) | add) as $together
  | . as $phases
  | phases_of_a_bar | map({key: ., value: $phases[.]})
  | from_entries
  | . + {others: ($together - (map(.) | add))};

def cycles_with_phases($step):
  . as $summary
  | [on_tmpfs[] as $case
     | $summary | wall_of_phases($step; $case) | select(. != {})
     | joined
     | {$case, parts: ., together: (map(.) | add)}];

def percent: . * 100 | "\(if . >= 9.95 or . < 0.05 then fixed(0) else fixed(1) end) %";

def phases($step):
  [cycles_with_phases($step)[]
   | . as $cycle
   | [(.case | files_of_size), (.together | duration)]
     + [parts_of_a_bar[]
        | $cycle.parts[.]
        | "\(duration)<br>\(. / $cycle.together | percent)"]]
  | table("lr" + "r" * (parts_of_a_bar | length);
          ["files", "cycle"] + (parts_of_a_bar | map("`\(.)`")));
