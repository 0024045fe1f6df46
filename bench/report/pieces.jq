# SPDX-License-Identifier: Apache-2.0
# The pieces one by one, and how what they cost grows.
include "figures";
include "aims";

def scales: [100, 1000, 10000, 100000];

# The aim is none for what others take.
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
      "processor time for each entry", "100 entries", "1,000", "10,000", "100,000",
      "100,000 over 1,000", ""]);

def growth:
  . as $summary
  | [(on_tmpfs | map(.size) | unique[]) as $size
     | ("zotconf", "floor") as $who
     | $summary
     | [scales[] as $files | wall_per_file($who; $files; $size)] as $each
     | select($each | any)
     | [($size | file_size), $who] + ($each | map(duration))
       + [growth_of_cycle($who; $size) | ratio]]
  | table("llrrrrr"; [
      "files of", "who", "100 files", "1,000", "10,000", "100,000", "100,000 over 1,000"]);

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
    bytes_row("digest, beside libcrypto's"; "digest"; "libcrypto_digest"),
    bytes_row("`fcopy`, beside `sendfile`"; "fcopy"; "kernel_copy")
  ]
  | table("lrrrr"; ["what", "bytes", "the library", "the other", "library over other"]);

def calls:
  .pieces as $pieces
  | [["log_disabled", "a line of the library, of a level that is off"],
     ["log_disabled_call", "the call alone, of a level that is off"],
     ["log_enabled", "a line that a callback takes"]
     | [.[1], ($pieces[.[0]] | duration)]]
  | table("lr"; ["log", "processor time"]);
