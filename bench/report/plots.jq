# SPDX-License-Identifier: Apache-2.0
# usage: jq -r -L FOLDER --arg name PLOT -f plots.jq SUMMARY
# The data of a plot: columns separated by tabs, with titles in the first line.
include "figures";
include "aims";
include "phases";
include "takeaway";

# Prints a column for each line of the plot, with "?" where nothing was measured. A line is
# {title, points: [[x, y]…]}.
def columns($x_title):
  map(.points |= map(select(.[1]))) | map(select(.points != []))
  | . as $lines
  | ($lines | map(.points[][0]) | unique) as $places
  | ([$x_title] + map(.title) | @tsv),
    ($places[] as $x
     | [$x] + ($lines | map((.points | map(select(.[0] == $x)) | .[0][1]) // "?"))
     | @tsv);

def first_of($who; $size):
  . as $summary
  | {
      title: "\($who | shown_name), \($size | file_size)",
      points: [on_tmpfs[] as $case
        | select($case.size == $size)
        | [$case.files, ($summary | contender($who; "first"; $case) | .wall)]]
    };
def first:
  [(1024, 4096, 65536) as $size | ("zotconf", "floor") as $who | first_of($who; $size)]
  | columns("files");

def poll_of($who; $title):
  . as $summary
  | {
      $title,
      points: [poll_cases[] as $case
        | [$case.files, ($summary | step($who; "poll"; "loop"; $case) | .wall * 1e3)]]
    };
def poll: [poll_of("zotconf"; "poll"), poll_of("bare"; "bare request")] | columns("files");

def pieces_as(figure):
  . as $summary
  | names_of_pieces
  | map(. as $name | {
      title: $name,
      points: [(100, 1000, 10000, 100000) as $scale
        | $summary | piece($name; $scale) | select(.)
        | [$scale, ({seconds: ., $scale} | figure)]]})
  | columns("entries");

# A line for each bar: number of files, file size, total time, and the parts in percent.
def bars($step):
  (["files", "size", "together"] + parts_of_a_bar | @tsv),
  (cycles_with_phases($step)[]
   | . as $cycle
   | [(.case.files | grouped), (.case.size | file_size), (.together | duration)]
     + [parts_of_a_bar[] | $cycle.parts[.] / $cycle.together * 100]
   | @tsv);

if $name == "first" then first
elif $name == "takeaway" then takeaway_bars
elif $name == "poll" then poll
elif $name == "pieces" then pieces_as(.seconds * 1e6)
elif $name == "pieces-per-entry" then pieces_as(.seconds / .scale * 1e9)
elif $name == "phases-first" then bars("first")
elif $name == "phases-update" then bars("update")
else error("there is no plot \($name)")
end
