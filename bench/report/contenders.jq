# SPDX-License-Identifier: Apache-2.0
# The library compared with the baseline (minimum work) and with other tools.
include "figures";
include "aims";

def contenders: ["zotconf", "floor", "script", "ostree", "casync"];

# The cases on tmpfs that the other tools ran too, or all of them if the other tools ran none.
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
      ($case | files_of_size), ($who | shown_name), (.wall | duration),
      (if $who == "zotconf" then "" else $own.wall / .wall | ratio end),
      (.cpu | duration),
      (if $who == "zotconf" or .cpu == 0 then "" else $own.cpu / .cpu | ratio end),
      (.peak_kib * 1024 | amount), (.written | amount)
    ];

def compared($step; $cases):
  [$cases[] as $case | contenders[] as $who | row_of($who; $step; $case)]
  | table("llrrrrrr"; [
      "files", "tool", "wall", "zotconf : tool", "CPU", "zotconf : tool", "peak", "written"]);

def on_disk: .cases | map(select(.medium == "disk"));

def compared_on_disk:
  . as $summary
  | [on_disk[] as $case | ("first", "update") as $step | ("zotconf", "floor") as $who
     | $summary | contender($who; $step; $case) | select(.)
     | (.rounds | map(.wall)) as $walls
     | [$step, ($case | files_of_size), ($who | shown_name), (.wall | duration),
        ($walls | min | duration), ($walls | max | duration), (.cpu | duration)]]
  | table("lllrrrr"; ["step", "files", "tool", "wall", "minimum", "maximum", "CPU"]);

def polls:
  . as $summary
  | [on_tmpfs[] as $case
     | $summary | step("bare"; "poll"; "loop"; $case) | select(.) | .wall as $request
     | $summary | step("zotconf"; "poll"; "loop"; $case).wall
     | [($case | files_of_size), duration, ($request | duration), (over($request) | ratio)]]
  | table("lrrr"; ["files", "poll", "bare request", "poll : request"]);

def machine:
  .machine
  | [
      ["processor", "\(.cpu), \(.cores) cores"],
      ["memory", (.memory_kib * 1024 / 1073741824 | "\(fixed(1)) GiB")],
      ["kernel", .kernel],
      ["compiler", .compiler],
      ["packages", (.versions | to_entries | map("\(.key) \(.value)") | join(", "))],
      ["date", .date],
      ["commit", .commit // "unknown"]
    ]
  | table("ll"; ["item", "value"]);
