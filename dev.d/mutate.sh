# SPDX-License-Identifier: Apache-2.0
# shellcheck shell=bash disable=SC2034,SC2154
# Plants faults in the library, one at a time, and counts how many of them its tests notice.

readonly mutation=build/mutation
readonly least_killed=95
readonly mutation_packages=(ccache iproute2 util-linux)

mutation_files() {
  git ls-files --cached --others --exclude-standard -- \
    CMakeLists.txt CMakePresets.json bench cmake docs examples include packaging src tests utilities
}

# What the results depend on: a change of any of these files starts again. No test of the library reads
# the documents' figures.
mutation_key() {
  mutation_files | grep -v '^docs/' | sort | xargs sha256sum | sha256sum | cut -c 1-16
}

# Memory that nobody frees ends a test program with a failure. ccache does not keep what is compiled
# with precompiled headers, and the second copy of the tree takes its objects from there.
mutation_configure() {
  local worker=$1 tree=$mutation/worker.$1/tree
  rm -rf "$tree"
  mkdir -p "$tree"
  # With new times: an interrupted run may have left an object of a mutated file.
  mutation_files | tar -c -T - | tar -x -m -C "$tree"
  CCACHE_NOHASHDIR=1 cmake -S "$tree" -B "$mutation/worker.$worker/build" -G Ninja --log-level=WARNING \
    -DCMAKE_BUILD_TYPE=Debug -DCMAKE_C_FLAGS_DEBUG=-O0 -DCMAKE_CXX_FLAGS_DEBUG="-O0 -w" \
    -DCMAKE_C_COMPILER_LAUNCHER=ccache -DCMAKE_CXX_COMPILER_LAUNCHER=ccache \
    -DCMAKE_EXE_LINKER_FLAGS=-fsanitize=leak -DCMAKE_DISABLE_PRECOMPILE_HEADERS=ON \
    -DZOTCONF_BUILD_TOOLS=OFF >/dev/null
}

# Without a mutation every test passes where mutated programs run. With one, the tests may take three
# times as long.
mutation_check_tests() {
  say "mutation: the tests without a mutation"
  printf '0\tsrc/zot_conf.cpp\t1\tnone\t%s\n' "$(head -n 1 src/zot_conf.cpp)" >"$mutation/mutations"
  mv "$mutation/results.jsonl" "$mutation/results.kept"
  : >"$mutation/results.jsonl"
  echo 600 >"$mutation/longest"
  tests/mutation/worker.sh "$PWD/$mutation" 0 1 1
  local outcome
  outcome=$(<"$mutation/results.jsonl")
  mv "$mutation/results.kept" "$mutation/results.jsonl"
  [[ $outcome == *'"result":"survived"'* ]] || fail "the tests fail without a mutation: $outcome"
  [[ $outcome =~ \"seconds\":([0-9]+) ]]
  echo $((3 * BASH_REMATCH[1])) >"$mutation/longest"
}

# mutate [COUNT] [SEED]
mutate() {
  local count=${1:-200} seed=${2:-1} worker sources
  need "${build_packages[@]}" "${check_packages[@]}" "${mutation_packages[@]}"
  [[ $count =~ ^[0-9]+$ && $seed =~ ^[0-9]+$ ]] || fail "COUNT and SEED are numbers"
  mkdir -p "$mutation"
  touch "$mutation/results.jsonl"
  export CCACHE_BASEDIR=$PWD/$mutation
  echo "$(mutation_key)-$seed" >"$mutation/key"
  for worker in 0 1; do
    mutation_configure "$worker"
    cmake --build "$mutation/worker.$worker/build" -j "$jobs" --target zotconf_tests -- --quiet
  done
  mutation_check_tests
  mapfile -t sources < <(files_of '.*\.[ch]pp' src utilities | sort)
  LC_ALL=C awk -v seed="$seed" -f tests/mutation/mutations.awk "${sources[@]}" | sort -n |
    awk -F '\t' -v OFS='\t' '{ $1 = NR; print }' >"$mutation/mutations"
  say "mutation: $count of $(wc -l <"$mutation/mutations") mutations, seed $seed"
  tests/mutation/worker.sh "$PWD/$mutation" 0 2 $(((count + 1) / 2)) &
  local other=$!
  tests/mutation/worker.sh "$PWD/$mutation" 1 2 $((count / 2))
  wait "$other"
  tests/mutation/summary.sh "$mutation/results.jsonl" "$(<"$mutation/key")" \
    docs/release/mutations.md "$least_killed"
}
