# SPDX-License-Identifier: Apache-2.0
# The figures that a reader takes away: the library beside the best other tool and the minimum work.
include "figures";
include "aims";

def other_tools: ["script", "ostree", "casync"];
def of_ten_thousand: {files: 10000, size: 4096, medium: "tmpfs"};
def of_a_thousand: {files: 1000, size: 4096, medium: "tmpfs"};

# {who, value} of the other tool with the lowest figure; null if none ran.
def best_other($step; $figure; $case):
  . as $summary
  | [other_tools[] as $who
     | $summary | contender($who; $step; $case) | select(.) | {$who, value: .[$figure]}]
  | min_by(.value);

def takeaway_row($what; $own; $best; $least; shown):
  [$what, ($own | shown),
   (if $best then "\($best.value | shown) (\($best.who))" else "–" end),
   ($least | shown), ($own | over($least) | ratio)];

def takeaway_of_step($what; $step; $figure; shown):
  of_ten_thousand as $case
  | takeaway_row($what; contender("zotconf"; $step; $case)[$figure];
      best_other($step; $figure; $case); contender("floor"; $step; $case)[$figure]; shown);

def takeaway_of_poll:
  of_a_thousand as $case
  | takeaway_row("poll without an update, 1,000 files"; step("zotconf"; "poll"; "loop"; $case).wall;
      best_other("poll"; "wall"; $case); step("bare"; "poll"; "loop"; $case).wall; duration);

def takeaway:
  [
    takeaway_of_step("first get and commit, 10,000 files"; "first"; "wall"; duration),
    takeaway_of_step("update of 1 % of 10,000 files"; "update"; "wall"; duration),
    takeaway_of_step("restart with 10,000 files"; "restart"; "wall"; duration),
    takeaway_of_poll,
    takeaway_of_step("peak memory of the update"; "update"; "peak_kib"; . * 1024 | amount)
  ]
  | table("lrrrr"; ["files of 4 KiB", "zotconf", "best other tool", "baseline", "zotconf : baseline"]);

# A line for each step and a column for each tool, in seconds.
def takeaway_bars:
  . as $summary
  | of_ten_thousand as $case
  | ["zotconf", "floor"] + other_tools
  | . as $tools
  | (["step"] + map(shown_name) | @tsv),
    (("first", "update", "restart") as $step
     | [$step] + ($tools | map(. as $who
         | $summary | contender($who; $step; $case) | if . then .wall else "?" end))
     | @tsv);
