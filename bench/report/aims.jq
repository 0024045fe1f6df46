# SPDX-License-Identifier: Apache-2.0
# The performance goals: ratios within one run, their limits, and the measured values.
include "figures";

def on_tmpfs: .cases | map(select(.medium == "tmpfs"));

def is_met($limit; $is_below):
  if . == null then "–"
  elif . < $limit or (. == $limit and ($is_below | not)) then "met"
  else "**not met**"
  end;

# The input is the measured ratio, or {ratio, low, high}; the result is a row of the table.
def aim($what; $limit; $is_below):
  (if type == "object" then .ratio else . end) as $ratio
  | [
      $what,
      "\(if $is_below then "<" else "≤" end) \($limit)",
      if $ratio == null then "not measured" else $ratio | fixed(3) end,
      if type == "object" then "\(.low | fixed(3)) to \(.high | fixed(3))" else "" end,
      ($ratio | is_met($limit; $is_below))
    ];
def aim($what; $limit): aim($what; $limit; false);

def step_over($step; $other; $figure):
  {files: 10000, size: 4096, medium: "tmpfs"} as $case
  | contender("zotconf"; $step; $case) as $own
  | contender($other; $step; $case) as $others
  | $own | ratios($figure; $others);
def first_cycle_over($other; $figure): step_over("first"; $other; $figure);

# For each number of files, the case with the smallest measured file size.
def poll_cases:
  . as $summary
  | [on_tmpfs[] | select(. as $case | $summary | step("bare"; "poll"; "loop"; $case))]
  | (map(.size) | min) as $smallest
  | map(select(.size == $smallest));

def poll_over_request($case):
  step("bare"; "poll"; "loop"; $case) as $request
  | step("zotconf"; "poll"; "loop"; $case)
  | ratios("wall"; $request);

# The digits of the checksum are the same for all sizes. K is copied in memory.
def poll_limit: if .files <= 1000 then 1.4 else 3 end;

# The peak of a process over the bytes of the files that it returns.
def peak_over_files($step):
  {files: 10000, size: 4096, medium: "tmpfs"} as $case
  | contender("zotconf"; $step; $case)
  | if . then .peak_kib * 1024 / ($case.files * $case.size) else null end;

def wall_per_file($who; $files; $size):
  contender($who; "first"; {files: $files, size: $size, medium: "tmpfs"}).wall
  | over($files);

def growth_of_cycle($who; $size):
  wall_per_file($who; 1000; $size) as $few
  | wall_per_file($who; 100000; $size)
  | over($few);

def growth_of_piece($name):
  (piece($name; 1000) | over(1000)) as $few
  | piece($name; 100000)
  | over(100000) | over($few);

def names_of_pieces: [
  "cjson_parse", "k_validate", "list_build", "k_parse", "k_parse_ordered", "path_parse",
  "list_sort", "diff", "filter", "filter_narrow", "list_free"];
def names_of_own_pieces: names_of_pieces - ["cjson_parse"];

def growth_of_pieces:
  . as $summary
  | names_of_own_pieces
  | map(. as $name | {$name, growth: ($summary | growth_of_piece($name))})
  | map(select(.growth));

def aims_of_pieces:
  growth_of_pieces as $growths
  | ($growths | max_by(.growth)) as $most
  | ($growths | map(select(.growth <= 1.3)) | length) as $within
  | $most.growth
  | aim("CPU time per entry, 100,000 : 1,000 entries, of the operation that grows most, "
        + "`\($most.name)`; \($within) of \($growths | length) operations meet the limit"; 1.3);

def aims:
  [
    (first_cycle_over("floor"; "wall")
     | aim("first get and commit of 10,000 × 4 KiB : baseline, wall"; 1.05)),
    (step_over("update"; "floor"; "wall")
     | aim("update of 1 % of 10,000 × 4 KiB : baseline, wall"; 1.2)),
    (step_over("restart"; "floor"; "wall")
     | aim("restart with 10,000 × 4 KiB : baseline, wall"; 1.1)),
    (first_cycle_over("script"; "wall")
     | aim("first get and commit of 10,000 × 4 KiB : script, wall"; 1)),
    (first_cycle_over("script"; "cpu")
     | aim("first get and commit of 10,000 × 4 KiB : script, CPU"; 1; true)),
    (poll_cases[] as $case
     | poll_over_request($case)
     | aim("poll : bare request, \($case | files_of_size)"; $case | poll_limit)),
    (piece("cjson_parse"; 100000) as $bare
     | (piece("k_parse_ordered"; 100000) | over($bare)
        | aim("parsing and sorting a K of 100,000 entries : parsing it with cJSON alone; files "
              + "listed in order, as by `zotconf publish`"; 1.5)),
       (piece("k_parse"; 100000) | over($bare)
        | aim("the same, files listed in no order"; 1.6))),
    ((1024, 4096) as $size
     | growth_of_cycle("zotconf"; $size)
     | aim("wall time per file of a first cycle, 100,000 : 1,000 × \($size | file_size)"; 1.3)),
    (select(growth_of_pieces != []) | aims_of_pieces),
    (peak_over_files("update")
     | aim("peak memory of the update of 10,000 × 4 KiB : bytes of the files"; 1.6)),
    (select(.memory) | .memory
     | .entries as $entries | .peak / .sum
     | aim("peak memory of a get of \($entries | grouped) entries : sum of the records it needs";
           1.1))
  ]
  | table("lrrrl"; ["ratio", "limit", "measured", "range over the rounds", "result"]);
