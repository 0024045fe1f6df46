# SPDX-License-Identifier: Apache-2.0
# Looks up figures in the summary and formats them.

def median: sort | (.[(length - 1) / 2 | floor] + .[length / 2 | floor]) / 2;

def step_name: "\(.who) \(.step) \(.part) \(.medium) \(.files) \(.size)";

# The name of a contender as readers see it.
def shown_name: if . == "floor" then "baseline" else . end;

# step(WHO; STEP; PART; CASE): the medians of a step, null when it was not measured.
def step($who; $step; $part; $case):
  .steps[$case + {who: $who, step: $step, part: $part} | step_name];

# The figures of the whole step. The library's poll is one call in a process that keeps running.
def contender($who; $step; $case):
  step($who; $step; if $who == "zotconf" and $step == "poll" then "get" else "whole" end; $case);

# piece(NAME; SCALE): seconds of CPU time.
def piece($name; $scale): .pieces["\($name)/\($scale)"];

def over($divisor): if . == null or $divisor == null then null else . / $divisor end;

# {ratio, low, high}: the ratio of the medians, and the lowest and highest ratio of a single round.
def ratios($figure; $other):
  if . == null or $other == null then null
  else
    . as $one
    | [$one.rounds | keys_unsorted[] | select($other.rounds[.] != null)
       | $one.rounds[.][$figure] / $other.rounds[.][$figure]] as $each
    | {ratio: ($one[$figure] / $other[$figure]), low: ($each | min), high: ($each | max)}
  end;

def grouped:
  tostring | [while(length > 0; .[:-3]) | .[-3:]] | reverse | join(",");

def fixed($places):
  pow(10; $places) as $scale
  | (. * $scale | round) as $number
  | ($number / $scale | floor | grouped)
    + if $places == 0 then ""
      else "." + ($number % $scale | tostring | "0" * ($places - length) + .)
      end;

# Three significant digits.
def three_digits:
  if . >= 99.95 then fixed(0) elif . >= 9.995 then fixed(1) else fixed(2) end;

def or_none(shown): if . == null then "–" else shown end;
def ratio: or_none(fixed(2));
def count: or_none(round | grouped);
def duration:
  or_none(
    if . >= 0.9995 then "\(three_digits) s"
    elif . >= 0.0009995 then "\(. * 1e3 | three_digits) ms"
    elif . >= 0.0000009995 then "\(. * 1e6 | three_digits) µs"
    else "\(. * 1e9 | three_digits) ns"
    end);
def amount:
  or_none(
    if . >= 1047000 then "\(. / 1048576 | three_digits) MiB"
    elif . >= 1024 then "\(. / 1024 | three_digits) KiB"
    else "\(fixed(0)) B"
    end);
def file_size:
  if . >= 1048576 then "\(. / 1048576) MiB" elif . >= 1024 then "\(. / 1024) KiB" else "\(.) B" end;
def files_of_size: "\(.files | grouped) × \(.size | file_size)";

def line: "| " + join(" | ") + " |";
# Prints rows of cells as a table; the kinds of the columns are "l" and "r" (left and right).
def table($kinds; $titles):
  ($titles | line),
  "|" + ($kinds | split("") | map(if . == "r" then "---:" else "---" end) | join("|")) + "|",
  (.[] | line);
