# SPDX-License-Identifier: Apache-2.0
# usage: jq -n -L FOLDER --slurpfile cycles … --slurpfile pieces … --slurpfile memory …
#   -f summary.jq
# Prints one object with all results: the median over the rounds of each step, and the median over
# the repetitions of each operation.
include "figures";

def medians($figures):
  . as $rounds
  | $figures | map(select($rounds[0][.] != null)
    | . as $figure | {key: $figure, value: ($rounds | map(.[$figure]) | median)})
  | from_entries;

def summary_of_step:
  medians(["wall", "cpu", "peak_kib", "written"])
  + {rounds: (map({key: "\(.round)", value: {wall, cpu}}) | from_entries)};

def steps:
  map(select(.step) | . + {part: (.part // .phase)})
  | group_by(step_name)
  | map({key: (.[0] | step_name), value: summary_of_step})
  | from_entries;

def cases:
  map(select(.step) | {files, size, medium}) | unique_by([.size, .files, .medium]);

def seconds: {ns: 1e-9, us: 1e-6, ms: 1e-3, s: 1}[.];

def pieces:
  map(select(.run_type == "iteration" and (.error_occurred | not)))
  | group_by(.name)
  | map({key: .[0].name, value: (map(.cpu_time * (.time_unit | seconds)) | median)})
  | from_entries;

{
  machine: ($cycles | map(.machine // empty) | first),
  cases: ($cycles | cases),
  steps: ($cycles | steps),
  pieces: ($pieces[0].benchmarks // [] | pieces),
  memory: $memory[0]
}
