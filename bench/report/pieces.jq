# SPDX-License-Identifier: Apache-2.0
# Single operations of the library, and how their cost grows.
include "figures";
include "aims";

def scales: [100, 1000, 10000, 100000];

# cJSON is not part of the library, so no goal applies to it.
def growth_cells($name):
  [ratio, if . == null or $name == "cjson_parse" then "" else is_met(1.3; false) end];

def pieces:
  . as $summary
  | [names_of_pieces[] as $name
     | $summary
     | select(piece($name; 1000))
     | (["`\($name)`"] + [scales[] as $scale | piece($name; $scale) | over($scale) | duration])
       + (growth_of_piece($name) | growth_cells($name))]
  | table("lrrrrrl"; [
      "CPU time per entry", "100 entries", "1,000", "10,000", "100,000", "100,000 : 1,000",
      "result"]);

def growth:
  . as $summary
  | [(on_tmpfs | map(.size) | unique[]) as $size
     | ("zotconf", "floor") as $who
     | $summary
     | [scales[] as $files | wall_per_file($who; $files; $size)] as $each
     | select($each | any)
     | [($size | file_size), ($who | shown_name)] + ($each | map(duration))
       + [growth_of_cycle($who; $size) | ratio]]
  | table("llrrrrr"; [
      "file size", "tool", "100 files", "1,000", "10,000", "100,000", "100,000 : 1,000"]);

def bytes_row($what; $own; $other):
  . as $summary
  | [1024, 4096, 65536, 1048576, 16777216][] as $size
  | $summary
  | piece($other; $size) as $others
  | piece($own; $size)
  | select(.)
  | [$what, ($size | file_size), duration, ($others | duration), (over($others) | ratio)];

def bytes:
  [
    bytes_row("SHA-256, compared with libcrypto"; "digest"; "libcrypto_digest"),
    bytes_row("`fcopy`, compared with `sendfile`"; "fcopy"; "kernel_copy")
  ]
  | table("lrrrr"; ["operation", "bytes", "library", "other", "library : other"]);

def calls:
  .pieces as $pieces
  | [["log_disabled", "log statement of the library, level disabled"],
     ["log_disabled_call", "call of `zot_log()` alone, level disabled"],
     ["log_enabled", "message delivered to a callback"]
     | [.[1], ($pieces[.[0]] | duration)]]
  | table("lr"; ["logging", "CPU time"]);
