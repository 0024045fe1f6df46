# SPDX-License-Identifier: Apache-2.0
# The library beside the floor and what would be used instead.
include "figures";
include "aims";

def contenders: ["zotconf", "floor", "script", "ostree", "casync"];

# On tmpfs the cases that the peers did too, all when they did none.
def cases_with_peers:
  . as $summary
  | on_tmpfs as $all
  | ($all | map(select(. as $case | $summary | contender("script"; "first"; $case)))) as $with
  | if $with == [] then $all else $with end;

def row_of($who; $step; $case):
  contender("zotconf"; $step; $case) as $own
  | contender($who; $step; $case)
  | select(.)
  | [
      ($case | files_of_size), $who, (.wall | duration),
      (if $who == "zotconf" then "" else $own.wall / .wall | ratio end),
      (.cpu | duration),
      (if $who == "zotconf" or .cpu == 0 then "" else $own.cpu / .cpu | ratio end),
      (.peak_kib * 1024 | amount), (.written | amount)
    ];

def beside($step; $cases):
  [$cases[] as $case | contenders[] as $who | row_of($who; $step; $case)]
  | table("llrrrrrr"; [
      "files", "who", "wall", "zotconf over it", "CPU", "zotconf over it", "peak", "written"]);

def on_disk: .cases | map(select(.medium == "disk"));

def beside_on_disk:
  . as $summary
  | [on_disk[] as $case | ("first", "update") as $step | ("zotconf", "floor") as $who
     | $summary | contender($who; $step; $case) | select(.)
     | (.rounds | map(.wall)) as $walls
     | [$step, ($case | files_of_size), $who, (.wall | duration), ($walls | min | duration),
        ($walls | max | duration), (.cpu | duration)]]
  | table("lllrrrr"; ["step", "files", "who", "wall", "least", "most", "CPU"]);

def polls:
  . as $summary
  | [on_tmpfs[] as $case
     | $summary | step("bare"; "poll"; "loop"; $case) | select(.) | .wall as $request
     | $summary | step("zotconf"; "poll"; "loop"; $case).wall
     | [($case | files_of_size), duration, ($request | duration), (over($request) | ratio)]]
  | table("lrrr"; ["files", "a poll", "a bare request", "poll over request"]);

def machine:
  .machine
  | [
      ["processor", "\(.cpu), \(.cores) cores"],
      ["memory", (.memory_kib * 1024 / 1073741824 | "\(fixed(1)) GiB")],
      ["kernel", .kernel],
      ["compiler", .compiler],
      ["packages", (.versions | to_entries | map("\(.key) \(.value)") | join(", "))],
      ["date", .date]
    ]
  | table("ll"; ["what", "on which it was measured"]);
