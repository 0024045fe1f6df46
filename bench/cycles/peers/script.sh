#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# usage: script.sh first|poll|update ELEMENT URL INDEX
# The job of the library, done by a shell script in ELEMENT/scratch and ELEMENT/cache. It lists the
# changes in ELEMENT/scratch/changes and verifies each file once, after unpacking.
set -euo pipefail
export LC_ALL=C

readonly step=$1 element=$2 url=$3 index=$4
readonly knowledge=$url/file/knowledge/AP/$index/latest/$index
readonly cache=$element/cache scratch=$element/scratch

announced=$(curl -fsS "$knowledge.checksum")
current=
if [[ -e $cache/subsys.checksum ]]; then
  current=$(<"$cache/subsys.checksum")
fi
if [[ $announced == "$current" ]]; then
  [[ $step == poll ]]
  exit
fi
[[ $step != poll ]]

cd "$scratch"
curl -fsS -o subsys.k "$knowledge.k"
echo "$announced  subsys.k" | sha256sum -c --quiet -
echo "$announced" >subsys.checksum
jq -r '.gpbs[] | .checksum + "  config" + .path' subsys.k >sums
jq -c '{files: [.gpbs[] | "/config/" + .path]}' subsys.k >names
curl -fsS -o gpb.tgz -d @names "$url/tgz"
rm -rf config
tar xzf gpb.tgz
sha256sum -c --quiet sums

# Lines "config/CATEGORY/KEY VERSION".
cut -c 67- sums | sed 's,/\([^/]*\)$, \1,' | sort >list
touch "$cache/list"
join -a 1 -a 2 -e - -o 0,1.2,2.2 "$cache/list" list |
  awk '
    $2 == "-" { print "added", $1; next }
    $3 == "-" { print "deleted", $1; next }
    $2 != $3 { print "modified", $1 }' >changes

for file in subsys.k subsys.checksum; do
  if [[ -e $cache/$file ]]; then
    mv "$cache/$file" "$cache/prev_$file"
  fi
done
rm -rf "$cache/config" "$cache/config.new"
cp -r config "$cache/config.new"
mv "$cache/config.new" "$cache/config"
cp subsys.k list "$cache"
# Copied last, because it marks the cache as complete.
cp subsys.checksum "$cache"
