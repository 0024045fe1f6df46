# SPDX-License-Identifier: Apache-2.0
# shellcheck shell=bash disable=SC2154
# Measures `zotconf publish --fleet`: the first publication of a generated fleet, a repeat without a
# change, and a repeat after one common file changed; and, if the program has it, `zotconf fleet`.

# file NAME NUMBER PATH: some hundred bytes, different for each number.
file() {
  printf 'name = "%s"\nnumber = %d\n%0256d\n' "$1" "$2" "$2" >"$3"
}

# make_fleet FOLDER ELEMENTS COMMON REPLACED: each element replaces some of the common files by its own,
# so each of these objects has as many versions as elements.
make_fleet() {
  local fleet=$1 count=$2 common=$3 replaced=$4 element folder index i
  mkdir -p "$fleet/common/Wlan" "$fleet/common/Zone"
  for ((i = 0; i < common; ++i)); do
    folder=$fleet/common/Wlan
    ((i % 2)) || folder=$fleet/common/Zone
    file common "$i" "$folder/entry-$i"
  done
  for ((element = 0; element < count; ++element)); do
    printf -v index '%012X' "$((element * 7919 + 1))"
    folder=$fleet/elements/$index/Wlan
    mkdir -p "$folder"
    for ((i = 0; i < replaced; ++i)); do
      file "$index" "$((element * replaced + i))" "$folder/entry-$((2 * i + 1))"
    done
  done
}

# Changes a file that all elements have.
change_common_file() {
  echo changed >>"$1/common/Zone/entry-0"
}

publish_fleet() {
  "$zotconf" publish --fleet "$1" --out "$2" --cluster 7d0b6a52
}

# measure_command WHAT COMMAND...: the time and memory of a command.
measure_command() {
  local what=$1
  shift
  progress "$what"
  /usr/bin/time -f '%e %U %S %M' -o "$work/time" "$@" >"$work/command.log" 2>&1 ||
    fail "cannot measure: $*"
  record 'split(" ") | map(tonumber) |
    {command: {$what, $elements, wall: .[0], cpu: (.[1] + .[2]), peak: (.[3] * 1024)}}' \
    -R --arg what "$what" --argjson elements "$elements" <"$work/time"
}

# What the publication needs on disk, and the bytes of a K.
describe_publication() {
  local disk k_files k_bytes
  disk=$(du -s -B1 "$1" | cut -f 1)
  read -r k_files k_bytes < <(find "$1/file" -name '*.k' -printf '%s\n' |
    awk '{ sum += $1 } END { print NR, sum }')
  ((k_files == elements)) || fail "the publication has $k_files K files"
  record '{publication: {$elements, $entries, $own, $disk, k_bytes: ($k_bytes / $elements)}}' -n \
    --argjson elements "$elements" --argjson entries "$entries" --argjson own "$own" \
    --argjson disk "$disk" --argjson k_bytes "$k_bytes"
}

# measure_publishing PUB: leaves the publication there.
measure_publishing() {
  local fleet=$work/fleet pub=$1
  local -r publish=("$zotconf" publish --fleet "$fleet" --out "$pub" --cluster 7d0b6a52)
  progress "a fleet of $elements elements"
  make_fleet "$fleet" "$elements" "$entries" "$own"
  measure_command "first publication" "${publish[@]}"
  describe_publication "$pub"
  measure_command "no change" "${publish[@]}"
  change_common_file "$fleet"
  measure_command "one common file changed" "${publish[@]}"
  rm -rf "$fleet"
  ! "$zotconf" fleet --help >"$work/command.log" 2>&1 || measure_reading_reports "$pub"
}

# The report of an element that is in force, with all its members.
readonly report='{"format":1,"time":"%s","subsys":"AP","index":"%s",'\
'"versions":{"relay":"1.0.0","element":"1.0.0"},"relay":{"state":"good","problem":null,'\
'"kind":"none","refused":false,"refused_digest":null,"since":null},'\
'"offered":{"digest":"%s","sequence":1795431928,"config_id":null},'\
'"in_force":{"digest":"%s","config_id":null},"refused":null,"undo":null,"problem":null,'\
'"element_known":true}'

make_reports() {
  local checksum index digest time
  time=$(date -u +%FT%TZ)
  mkdir -p "$2/AP"
  for checksum in "$1"/file/knowledge/AP/*/latest/*.checksum; do
    index=${checksum##*/}
    index=${index%.checksum}
    read -r digest <"$checksum" || [[ -n $digest ]]
    # shellcheck disable=SC2059  # the format is above
    printf "$report\n" "$time" "$index" "$digest" "$digest" >"$2/AP/$index.json"
  done
}

# measure_reading_reports PUB
measure_reading_reports() {
  local reports=$work/reports
  make_reports "$1" "$reports"
  measure_command "zotconf fleet" "$zotconf" fleet "$1" "$reports" --min-in-force 100%
  record '{report: {bytes: ($bytes / $elements)}}' -n --argjson elements "$elements" \
    --argjson bytes "$(find "$reports" -name '*.json' -printf '%s\n' |
      awk '{ sum += $1 } END { print sum }')"
  rm -rf "$reports"
}
