# SPDX-License-Identifier: Apache-2.0
# shellcheck shell=bash disable=SC2034,SC2154
# Runs everything in its long form, and writes the document of the release. A step that has passed is not
# repeated for the same sources, so an interrupted release continues where it stopped.

readonly release_folder=build/release/steps
# A record for each step that has passed. They are committed, so that a release can go on in another checkout
# or on another machine.
readonly release_records=docs/release/steps
# What a step prints about something that this machine refuses, or that was left out for time. A release
# leaves nothing out.
readonly release_left_out='^left out|\*\*\*Skipped|\*\*\*Not Run|this user may not replace it|^== skipped'
readonly release_documents=(docs/reliability.md docs/performance.md docs/footprint.md docs/scale.md)

# Name, command, and the lines of its output that have the figures. What every change has to pass is first,
# so that a release that cannot pass fails early. The others are long forms of its parts, and measurements.
readonly release_steps=(
  'ci|.ci/run|^== tests: .* cases$| s system: '
  'lint-paths|./dev lint --paths|'
  'musl-arm|./dev musl --arm|passed'
  'footprint|./dev footprint|^library\.text .* ok$'
  'coverage|./dev test --coverage|^(lines|branches): '
  'mutate|./dev mutate 200 1| survived of which '
  'fuzz|./dev fuzz 600|^fuzz: .* runs, '
  'faults|./dev faults|^== faults: .* s$'
  'bench-peers|./dev bench --peers|'
  'bench-relay|./dev bench --relay|'
  'bench-fleet|./dev bench --fleet|'
)

release_check_clean() {
  local changes
  changes=$(bench/commit.sh --changes)
  [[ -z $changes ]] || fail "a release needs sources that are committed: $changes"
}

# The first line of a record is "DIGEST SECONDS", the second the machine. The others have the figures.
release_has_passed() {
  local digest=
  read -r digest _ 2>/dev/null <"$release_records/$1" || true
  [[ $digest == "$release_digest" ]]
}

release_machine() {
  printf '%s, %d processors, %.1f GiB of memory, %s\n' \
    "$(sed -n 's/^model name[^:]*: //p' /proc/cpuinfo | head -n 1)" "$(nproc)" \
    "$(awk '/^MemTotal:/ { print $2 / 1048576 }' /proc/meminfo)" "$(uname -sr)"
}

# release_step NAME FIGURE COMMAND...
release_step() {
  local -r name=$1 figure=$2 log=$release_folder/$1.log begin=$SECONDS
  shift 2
  if release_has_passed "$name"; then
    say "release: $name has passed"
    return
  fi
  say "release: $name"
  rm -f "$release_records/$name"
  "$@" >"$log" 2>&1 </dev/null || {
    tail -n 40 "$log" >&2
    fail "release: $name failed after $((SECONDS - begin)) s; its output is in $log"
  }
  ! grep -E "$release_left_out" "$log" >&2 || fail "release: $name left something out"
  [[ $(bench/commit.sh --digest) == "$release_digest" && -z $(bench/commit.sh --changes) ]] ||
    fail "release: the sources changed while $name ran"
  {
    echo "$release_digest $((SECONDS - begin))"
    release_machine
    [[ -z $figure ]] || grep -E "$figure" "$log" | sed 's/^== //' ||
      fail "release: $name printed no figure: $figure"
  } >"$release_folder/$name.new"
  mv "$release_folder/$name.new" "$release_records/$name"
  say "release: $name passed after $((SECONDS - begin)) s"
}

release_row() {
  local -r name=$1 command=$2
  local seconds figures
  read -r _ seconds <"$release_records/$name"
  figures=$(tail -n +3 "$release_records/$name" | awk '
    { gsub(/\|/, "\\|"); text = text (NR > 1 ? "<br>" : "") $0 }
    END { print text }')
  printf "| \`%s\` | %d s | passed | %s | %s |\n" "$command" "$seconds" "$figures" "$release_commit"
}

release_write_document() {
  local -r version=$1
  local step name command
  cat <<DOCUMENT
# Release $version

Everything that \`./dev release\` runs, in its long form, on commit $release_commit. A later commit has the same
sources if it changes only what the steps write: this document, ${release_documents[*]##*/},
the plots and the records in steps/.

Measured on:

$(awk 'FNR == 2 { print "- " $0 }' "$release_records"/* | sort -u)

| step | time | result | figures | commit |
|---|---:|---|---|---|
DOCUMENT
  for step in "${release_steps[@]}"; do
    IFS='|' read -r name command _ <<<"$step"
    release_row "$name" "$command"
  done
}

# Each document with measured figures names the commit of the release, and no other.
release_check_documents() {
  local document others
  for document in "${release_documents[@]}"; do
    others=$(sed -nE 's/^(Measured at commit (.*)\.|\| commit \| ([0-9a-f]{12}.*|unknown) \|)$/\2\3/p' \
      "$document" |
      grep -vxF "$release_commit") || true
    [[ -z $others ]] || fail "$document has figures of commit $others, not of $release_commit"
    grep -qwF "$release_commit" "$document" || fail "$document does not name commit $release_commit"
  done
}

release_is_complete() {
  local step
  for step in "${release_steps[@]}"; do
    release_has_passed "${step%%|*}" || return 1
  done
}

# release [STEP]...: without a name, runs all steps.
release() {
  local step name command figure version wanted=("$@")
  ((${#wanted[@]} > 0)) || mapfile -t wanted < <(printf '%s\n' "${release_steps[@]%%|*}")
  for name in "${wanted[@]}"; do
    [[ " ${release_steps[*]%%|*} " == *" $name "* ]] || fail "a release has no step '$name'"
  done
  setup
  release_check_clean
  mkdir -p "$release_folder" "$release_records"
  release_digest=$(bench/commit.sh --digest)
  release_commit=$(bench/commit.sh)
  for step in "${release_steps[@]}"; do
    IFS='|' read -r name command figure <<<"$step"
    [[ " ${wanted[*]} " == *" $name "* ]] || continue
    local words
    read -ra words <<<"$command"
    release_step "$name" "$figure" "${words[@]}"
  done
  release_is_complete || {
    say "release: the document is written when every step has passed"
    return
  }
  release_check_documents
  say "release: the documents that the steps have written"
  docs_links
  ctest --test-dir build/release -R '^docs\.' --output-on-failure --no-tests=error
  version=$(sed -nE 's/^project\(zotconf VERSION ([0-9.]+).*/\1/p' CMakeLists.txt)
  release_write_document "$version" >build/release.md
  cp build/release.md "docs/release/$version.md"
  say "release: every step has passed; docs/release/$version.md"
}
