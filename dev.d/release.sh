# SPDX-License-Identifier: Apache-2.0
# shellcheck shell=bash disable=SC2034,SC2154
# Runs everything in its long form, and writes the document of the release. A step that has passed is not
# repeated for the same sources, so an interrupted release continues where it stopped.

readonly release_folder=build/release/steps
# What the steps write into the tree. It does not count as a change of the sources.
readonly release_written='^docs/(release/|reliability\.md|footprint\.md|performance\.md|performance/|scale\.md|scale/)'

# Name, command after ./dev, and the lines of its output that have the figure. Quick steps are first, so
# that a release that cannot pass fails early.
readonly release_steps=(
  'lint|lint --quick|'
  'demo|demo|^All [0-9]+ steps passed'
  'test|test|^== tests: .* cases$'
  'lint-paths|lint --paths|'
  'counts|bench --counts|'
  'demo-fleet|demo --fleet|^All [0-9]+ steps passed'
  'web|test --web|'
  'delivery|delivery|^== tests: .* cases$|tests passed'
  'curl|curl|tests passed'
  'musl|musl|passed'
  'musl-arm|musl --arm|passed'
  'docs|docs|'
  'package|package|  ok  '
  'arm|arm|^== tests: .* cases$|tests passed'
  'footprint|footprint|'
  'coverage|test --coverage|^lines|^branches|coverage'
  'fuzz|fuzz 600|^fuzz: .* runs, '
  'faults|faults|^== faults: .* s$'
  'bench-peers|bench --peers|'
  'bench-relay|bench --relay|'
  'bench-fleet|bench --fleet|'
  'mutate|mutate 200 1| survived of which '
)

# Identifies the sources: the names and contents of all files that the steps do not write.
release_sources() {
  git ls-files -s | awk -F '\t' -v written="$release_written" '$2 !~ written' | sha256sum |
    cut -c 1-16
}

release_check_clean() {
  local changed
  changed=$(git status --porcelain | awk -v written="$release_written" '{
    name = substr($0, 4)
    if (name !~ written) print name
  }')
  [[ -z $changed ]] || fail "a release needs a tree without changes: $changed"
}

# The first line of a result is "SOURCES SECONDS COMMIT".
release_has_passed() {
  local sources=
  read -r sources _ 2>/dev/null <"$release_folder/$1.passed" || true
  [[ $sources == "$release_now" ]]
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
  rm -f "$release_folder/$name.passed"
  ./dev "$@" >"$log" 2>&1 || {
    tail -n 40 "$log" >&2
    fail "release: $name failed after $((SECONDS - begin)) s; its output is in $log"
  }
  {
    echo "$release_now $((SECONDS - begin)) $(git rev-parse --short=12 HEAD)"
    [[ -z $figure ]] || grep -E "$figure" "$log" | sed 's/^== //' || true
  } >"$release_folder/$name.new"
  mv "$release_folder/$name.new" "$release_folder/$name.passed"
  say "release: $name passed after $((SECONDS - begin)) s"
}

release_row() {
  local -r name=$1 command=$2
  local seconds commit figures
  read -r _ seconds commit <"$release_folder/$name.passed"
  figures=$(tail -n +2 "$release_folder/$name.passed" | awk '
    { gsub(/\|/, "\\|"); text = text (NR > 1 ? "<br>" : "") $0 }
    END { print text }')
  printf "| \`./dev %s\` | %d s | passed | %s | %s |\n" "$command" "$seconds" "$figures" "$commit"
}

release_write_document() {
  local -r version=$1
  local step name command
  cat <<DOCUMENT
# Release $version

Everything that \`./dev release\` runs, in its long form, on the same sources (\`$release_now\`). The commits
differ at most in the documents that the steps write.

The machine: $(sed -n 's/^model name[^:]*: //p' /proc/cpuinfo | head -n 1), $(nproc) processors,
$(awk '/^MemTotal:/ { printf "%.1f", $2 / 1048576 }' /proc/meminfo) GiB of memory, $(uname -sr).

| step | time | result | figures | commit |
|---|---:|---|---|---|
DOCUMENT
  for step in "${release_steps[@]}"; do
    IFS='|' read -r name command _ <<<"$step"
    release_row "$name" "$command"
  done
}

release() {
  local step name command figure
  setup
  release_check_clean
  mkdir -p "$release_folder" docs/release
  release_now=$(release_sources)
  for step in "${release_steps[@]}"; do
    IFS='|' read -r name command figure <<<"$step"
    local words
    read -ra words <<<"$command"
    release_step "$name" "$figure" "${words[@]}"
  done
  local version
  version=$(sed -nE 's/^project\(zotconf VERSION ([0-9.]+).*/\1/p' CMakeLists.txt)
  release_write_document "$version" >build/release.md
  cp build/release.md "docs/release/$version.md"
  say "release: every step has passed; docs/release/$version.md"
}
