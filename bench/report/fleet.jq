# SPDX-License-Identifier: Apache-2.0
# usage: jq -rs -L FOLDER --arg name TABLE --argjson change NUMBERS -f fleet.jq FLEET.jsonl
# The tables and plots of what a fleet costs. NUMBERS are the bytes that an update of one element
# moves, and those of its K, as in the document that lists what a change costs.
include "figures";

# Ethernet, IP, and TCP with a time stamp.
def frame_headers: 66;
def fleets: [1000, 10000, 100000, 1000000];

def polls: map(.poll // empty);
def poll($which): polls | map(select(.name == $which))[0];
def command($what): map(.command // empty | select(.what == $what))[0];
def publication: map(.publication // empty)[0];
def report: map(.report // empty)[0];
def rollouts: map(.rollout // empty);

def protocol: if .tls then "HTTPS" else "HTTP" end;
def cpu_of_each: .server_cpu / .answers;
def bytes_of_each: (.payload + frame_headers * .frames) / .answers;
def percent: "\(.) %";
# A count, or a number with one digit after the point if it is small.
def number: or_none(if . < 99.95 then fixed(1) else count end);
def bytes:
  or_none(
    if . >= 1e12 then "\(. / 1e12 | three_digits) TB"
    elif . >= 1e9 then "\(. / 1e9 | three_digits) GB"
    elif . >= 1e6 then "\(. / 1e6 | three_digits) MB"
    elif . >= 1e3 then "\(. / 1e3 | three_digits) kB"
    else "\(fixed(0)) B"
    end);
def cores: if . < 0.0995 then fixed(3) else fixed(2) end;
def bits_per_second: or_none("\(. * 8 / 1e6 | three_digits) Mbit/s");
def long_duration:
  or_none(
    if . >= 5400 then "\(. / 3600 | three_digits) h"
    elif . >= 90 then "\(. / 60 | three_digits) min"
    else duration
    end);

def machine:
  (map(.[] | .load? // empty) | "\(min | fixed(1)) to \(max | fixed(1))") as $load
  | (map(select(.machine))[0].machine
     | [
         ["processor", "\(.cpu), \(.cores) cores"],
         ["memory", (.memory_kib * 1024 / 1073741824 | "\(fixed(1)) GiB")],
         ["kernel", .kernel],
         ["packages", (.versions | to_entries | map("\(.key) \(.value)") | join(", "))],
         ["date", .date],
         ["commit", .commit // "unknown"]
       ] + [["load average", $load]])
  | table("ll"; ["item", "value"]);

# How the elements of a measurement poll.
def shown_mode:
  if .mode == "flood" then "at once after each answer"
  elif .jitter > 0 then "every \(.every) s, jitter \(.jitter | percent)"
  else "every \(.every) s, no jitter, all together"
  end;

def most_in_a_second:
  .per_slot as $slots
  | [range(0; $slots | length; 10) | $slots[.:. + 10] | add]
  | max;
def mean_rate: if .mode == "flood" then .answers / .seconds else .elements / .every end;
def polls_table:
  [polls[] | select(.mode != "herd")
   | [shown_mode, protocol, (mean_rate | count), (most_in_a_second | count),
      (cpu_of_each | duration), (1 / cpu_of_each | count), (.p50 | duration), (.p99 | duration),
      (bytes_of_each | count)]]
  | table("llrrrrrrr"; ["each element polls", "protocol", "requests/s", "most in a second",
      "CPU of nginx per request", "requests/s of a core", "median", "99 %",
      "bytes on the wire per poll"]);

def shown_spread: if .spread == 0 then "all at once" else "spread over \(.spread) s" end;
def herds_table:
  [polls[] | select(.mode == "herd")
   | [shown_spread, protocol, (.seconds | duration), (most_in_a_second | count),
      (cpu_of_each | duration), (1 / cpu_of_each | count), (.p50 | duration), (.p99 | duration),
      (.late | count), (.dropped | count), (.failures | add // 0 | count)]]
  | table("llrrrrrrrrr"; ["elements come back", "protocol", "all answered after",
      "most answers in a second", "CPU of nginx per element", "elements/s of a core", "median",
      "99 %", "answers after 10 s", "connections dropped", "elements without an answer"]);

# When a share of the elements has committed.
def committed_after($share):
  .committed[((.committed | length) * $share | ceil) - 1] | "\(fixed(1)) s";
def in_seconds($from; $to): [.requests[] | select(.[0] >= $from and .[0] < $to) | .[1]];
def rollouts_table:
  [rollouts[]
   | .every as $every
   | [(.jitter | percent), committed_after(0.5), committed_after(0.99), committed_after(1),
      (in_seconds(-$every; 0) | (add // 0) / $every | fixed(1)),
      (in_seconds(-$every; 0) | max // 0 | count), (in_seconds(0; 1e9) | max | count)]]
  | table("rrrrrrr"; ["jitter", "50 % committed", "99 %", "100 %", "requests/s before, on average",
      "most in a second before", "most in a second after"]);

def publishing_rows:
  [map(.command // empty)[]
   | [.what, (.elements | count), (.wall | duration), (.cpu | duration), (.peak | bytes)]]
  | table("lrrrr"; ["command", "elements", "time", "CPU", "peak memory"]);
def publication_rows:
  publication
  | [["elements", (.elements | count)],
     ["files of each element", (.entries | count)],
     ["own files among them", (.own | count)],
     ["K of an element", (.k_bytes | bytes)],
     ["publication on disk", (.disk | bytes)]]
  | table("lr"; ["item", "value"]);

# What the plan computes with.
def basis:
  {
    kept: poll("paced-tls"),
    plain: poll("paced"),
    busy: poll("flood-tls"),
    new: poll("herd-spread-tls"),
    publication: publication,
    first: command("first publication"),
    changed: command("one common file changed"),
    fleet: command("zotconf fleet"),
    report: report
  };

def row_of_polls($elements; $every; $cost; $how):
  ($elements / $every) as $rate
  | [($elements | count), "\($every) s", $how, ($rate | number),
     ($rate * ($cost | cpu_of_each) | cores), ($rate * ($cost | bytes_of_each) | bits_per_second)];
def plan_polls:
  basis as $basis
  | [fleets[] as $elements
     | row_of_polls($elements; 30; $basis.kept; "kept"),
       row_of_polls($elements; 300; $basis.new; "new for each poll")]
  | table("rrlrrr"; ["elements", "`--every`", "connection", "polls/s", "cores of nginx",
      "bandwidth"]);

# A row of the plan: a figure of each fleet.
def row($what; figure): [$what] + [fleets[] | figure];
def plan_rows:
  basis as $basis
  | ($basis.new | cpu_of_each) as $back
  | ($basis.publication | .disk / .elements) as $disk
  | ($basis.first | .wall / .elements) as $first
  | ($basis.changed | .wall / .elements) as $changed
  | ($basis.busy | .server_memory / .elements) as $memory
  | [
      row("open connections with `--every 30s`"; count),
      row("memory of nginx for them"; . * $memory | bytes),
      row("update of 1 % of 10,000 files: to all elements"; . * $change.bytes | bytes),
      row("— of it K, which is different for each element"; . * $change.k_bytes | bytes),
      row("— at 1 Gbit/s"; . * $change.bytes * 8 / 1e9 | long_duration),
      row("first publication"; . * $first | long_duration),
      row("publication after a change of one common file"; . * $changed | long_duration),
      row("publication on disk"; . * $disk | bytes),
      row("reports a day, three of each element"; . * 3 | count),
      row("— their bytes"; if $basis.report then . * 3 * $basis.report.bytes else null end | bytes),
      row("`zotconf fleet`"; if $basis.fleet then . * $basis.fleet.wall / $basis.fleet.elements
        else null end | long_duration),
      row("power cut: CPU time of all handshakes"; . * $back | long_duration),
      row("power cut, over 30 s: handshakes/s"; . / 30 | count),
      row("— cores of nginx"; . / 30 * $back | cores),
      row("power cut, over 5 min: handshakes/s"; . / 300 | count),
      row("— cores of nginx"; . / 300 * $back | cores)
    ]
  | table("lrrrr"; ["elements"] + (fleets | map(count)));

# A column for each rollout, with the requests in each second. The publication begins at 0.
def requests_in($second): .requests | map(select(.[0] == $second)) | .[0][1] // 0;
def rollout_plot:
  rollouts as $all
  | $all[0].every as $every
  | (["s"] + ($all | map("jitter \(.jitter | percent)")) | @tsv),
    (range(-$every; $every * 2) as $second
     | [$second] + ($all | map(requests_in($second))) | @tsv);

def herd_plot:
  [poll("herd-tls"), poll("herd-spread-tls")] as $all
  | ($all | map(.per_slot | length) | max) as $slots
  | (["s"] + ($all | map(shown_spread)) | @tsv),
    (range(0; $slots + 10; 10) as $slot
     | [$slot / 10] + ($all | map(.per_slot[$slot:$slot + 10] | add // 0)) | @tsv);

if $name == "fleet-machine" then machine
elif $name == "fleet-polls" then polls_table
elif $name == "fleet-herds" then herds_table
elif $name == "fleet-rollouts" then rollouts_table
elif $name == "fleet-publication" then publication_rows
elif $name == "fleet-publishing" then publishing_rows
elif $name == "fleet-plan-polls" then plan_polls
elif $name == "fleet-plan" then plan_rows
elif $name == "rollout" then rollout_plot
elif $name == "herd" then herd_plot
else error("there is no table \($name)")
end
