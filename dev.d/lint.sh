# SPDX-License-Identifier: Apache-2.0
# shellcheck shell=bash disable=SC2034,SC2154
# Automated checks, so that a review need not cover them.

files_of() {
  local pattern=$1
  shift
  local folder
  for folder in "$@"; do
    if [[ -d $folder ]]; then
      find "$folder" -type f -regextype posix-extended -regex "$pattern"
    fi
  done | sort
}

lint_format() {
  say "lint: formatting"
  files_of '.*\.(c|h|cpp|hpp)' include src utilities tools tests bench examples fuzz |
    xargs clang-format --dry-run -Werror
}

lint_shell() {
  say "lint: shell scripts"
  { printf '%s\n' dev .ci/run && files_of '.*\.sh' dev.d examples tests bench cmake packaging; } |
    xargs shellcheck --severity=warning
}

# The layers of the library and of the program, from the bottom up. Each is a pattern of paths. If
# several patterns match, the last one counts.
readonly layers_of_library=(
  ^include/
  ^utilities/
  '^src/zot_[a-z_]+[.]'
  ^src/zot_priv/model/
  ^src/zot_priv/storage/
  ^src/zot_priv/cycle/
  '^src/zot_(conf|init|util)[.]'
)
readonly layers_of_tools=(
  ^include/
  ^utilities/
  '^tools/(output|files)/'
  ^tools/model/
  ^tools/publication/
  '^tools/(cache|service|probe|reference)/'
  ^tools/element/
  '^tools/(relay|selftest|fleet)/'
  ^tools/cli/
  ^tools/manual/
)

# For awk: the number of a path's layer in `pattern`, which has `count` layers; 0 if there is none.
readonly layer_of_a_path='
  function layer(path,   at) {
    for (at = count; at > 0 && path !~ pattern[at];) --at
    return at
  }
'

# includes_run_down LAYERS FILE...: checks that each file belongs to a layer and includes nothing of a
# higher layer, and nothing of another folder of the same layer.
includes_run_down() {
  local layers=$1
  shift
  awk -v layers="$layers" "$layer_of_a_path"'
    function folder(path) {
      sub(/[^\/]*$/, "", path)
      return path
    }
    function is_file(path,   line, found) {
      found = (getline line < path) >= 0
      close(path)
      return found
    }
    # A file that the build generates exists as its template.
    function exists(path) {
      return is_file(path) || is_file(path ".in")
    }
    function resolve(from, name) {
      if (exists(folder(from) name)) return folder(from) name
      if (exists("src/" name)) return "src/" name
      if (exists("include/" name)) return "include/" name
      return name
    }
    function refuse(what) {
      printf "%s:%d: %s\n", FILENAME, FNR, what
      refused = 1
    }
    BEGIN { count = split(layers, pattern, " ") }
    FNR == 1 && !layer(FILENAME) { refuse("the file belongs to no layer") }
    /^[ \t]*#[ \t]*include[ \t]*"/ {
      split($0, piece, "\"")
      target = resolve(FILENAME, piece[2])
      if (!layer(target) || !exists(target)) refuse("\"" piece[2] "\" belongs to no layer")
      else if (layer(target) > layer(FILENAME)) refuse("\"" piece[2] "\" is on a higher layer")
      else if (layer(target) == layer(FILENAME) && folder(target) != folder(FILENAME))
        refuse("\"" piece[2] "\" is in another folder of the same layer")
    }
    END { exit refused }' "$@"
}

# operations_run_down LAYERS FILE...: checks that a file names no operation of a higher layer. The public
# header declares the operations of all layers, so an include does not show which layer is used. The
# layer of an operation is that of the file that defines it.
operations_run_down() {
  local layers=$1
  shift
  awk -v layers="$layers" "$layer_of_a_path"'
    BEGIN {
      count = split(layers, pattern, " ")
      for (at = 1; at < ARGC; ++at) {
        if (ARGV[at] !~ /[.]cpp$/) continue
        while ((getline line < ARGV[at]) > 0) {
          if (line !~ /^[A-Za-z_].*[ *]_*(zot|ap)_[a-z0-9_]+[(]/ || line ~ /;$/) continue
          match(line, /_*(zot|ap)_[a-z0-9_]+[(]/)
          name = substr(line, RSTART, RLENGTH - 1)
          home[name] = layer(ARGV[at])
        }
        close(ARGV[at])
      }
    }
    # A pragma names an operation for the compiler but does not use it.
    !/^#pragma / {
      code = $0
      gsub(/"([^"\\]|\\.)*"/, "", code)
      sub(/\/\/.*/, "", code)
      while (match(code, /[A-Za-z0-9_]+/)) {
        name = substr(code, RSTART, RLENGTH)
        code = substr(code, RSTART + RLENGTH)
        if (name in home && home[name] > layer(FILENAME)) {
          printf "%s:%d: %s is defined on a higher layer\n", FILENAME, FNR, name
          refused = 1
        }
      }
    }
    END { exit refused }' "$@"
}

lint_layers() {
  say "lint: includes go in one direction"
  local library tools status=0
  mapfile -t library < <(files_of '.*\.(h|hpp|cpp)' include src utilities)
  mapfile -t tools < <(files_of '.*\.(h|hpp|cpp)' tools)
  includes_run_down "${layers_of_library[*]}" "${library[@]}" || status=1
  includes_run_down "${layers_of_tools[*]}" "${tools[@]}" || status=1
  mapfile -t library < <(files_of '.*\.(hpp|cpp)' utilities src)
  operations_run_down "${layers_of_library[*]}" "${library[@]}" || status=1
  return "$status"
}

# uses PATTERN FILE...: prints the lines whose code, without comments and string literals, matches the
# pattern; succeeds when there are any.
uses() {
  local pattern=$1
  shift
  awk -v pattern="$pattern" '
    {
      code = $0
      gsub(/"([^"\\]|\\.)*"/, "\"\"", code)
      sub(/\/\/.*/, "", code)
      sub(/\/\*.*/, "", code)
      sub(/^ *\*[ \/].*/, "", code)
    }
    (" " code) ~ pattern { printf "%s:%d: %s\n", FILENAME, FNR, $0; found = 1 }
    END { exit !found }' "$@"
}

lint_banned() {
  say "lint: banned functions"
  local library product status=0
  mapfile -t library < <(files_of '.*\.(hpp|cpp)' src utilities)
  mapfile -t product < <(files_of '.*\.(c|h|hpp|cpp)' include src utilities tools examples)
  local -r head='[^A-Za-z0-9_]' call='[ ]*[(]'
  uses "$head(strcpy|strcat|sprintf|vsprintf|gets|strtok)$call|${head}goto[ ]" "${product[@]}" &&
    status=1
  uses "${head}printf$call" "${library[@]}" && status=1
  local others
  mapfile -t others < <(printf '%s\n' "${library[@]}" | grep -v '^utilities/command\.cpp$')
  uses "${head}system$call" "${others[@]}" && status=1
  return "$status"
}

lint_knows_every_file() {
  local file status=0
  for file in $(files_of '.*\.cpp' src utilities tools); do
    grep -qF "$PWD/$file\"" build/lint/compile_commands.json ||
      { echo "no target builds $file" >&2 && status=1; }
  done
  return "$status"
}

# clang-tidy cannot read the precompiled headers of GCC.
lint_configure() {
  local folder=$1
  shift
  cmake --preset release -B "$folder" -DCMAKE_DISABLE_PRECOMPILE_HEADERS=ON \
    -DZOTCONF_BUILD_TESTS=OFF -DCMAKE_UNITY_BUILD=OFF --log-level=WARNING "$@" >/dev/null
}

# analyse FOLDER PATTERN [OPTION]...: runs clang-tidy on the files of the build in FOLDER that match.
analyse() {
  local folder=$1 pattern=$2
  shift 2
  # GCC compiles the project, and clang does not know all of its options.
  sed -nE 's|^ *"file": "(.*)",?$|\1|p' "$folder/compile_commands.json" | grep -E "$pattern" |
    xargs -n 1 -P "$jobs" \
      clang-tidy --quiet -p "$folder" --extra-arg=-Wno-unknown-warning-option "$@" 2>&1 |
    sed '/ warnings\{0,1\} generated\.$/d'
}

# Most checks read everything that a file includes, which is a lot in the tools: these checks get the
# files of the tools joined, several at a time. The analyser follows only paths of functions in the file
# itself, so it gets each file separately.
lint_analysis() {
  say "lint: static analysis"
  lint_configure build/lint
  lint_configure build/lint-joined -DCMAKE_UNITY_BUILD=ON -DCMAKE_UNITY_BUILD_BATCH_SIZE=8
  lint_knows_every_file
  analyse build/lint-joined '/tools/.*\.cxx$' \
    --checks='-clang-analyzer-*,-bugprone-suspicious-include'
  analyse build/lint-joined "^$PWD/tools/.*\.cpp$" --checks='-clang-analyzer-*'
  analyse build/lint "^$PWD/(src|utilities)/.*\.cpp$"
}

# lint_paths_of_tools [OPTION]...
lint_paths_of_tools() {
  say "lint: the paths of the tools' functions"
  lint_configure build/lint
  local -r without=-clang-analyzer-security.insecureAPI.DeprecatedOrUnsafeBufferHandling
  analyse build/lint "^$PWD/tools/.*\.cpp$" --checks="-*,clang-analyzer-*,$without" "$@"
}

# Ends the analysis of a function after a third of the analyser's usual steps, which takes half the time.
lint_short_paths_of_tools() {
  lint_paths_of_tools --extra-arg=-Xclang --extra-arg=-analyzer-config \
    --extra-arg=-Xclang --extra-arg=max-nodes=75000
}

lint_quick() {
  setup
  lint_format
  lint_shell
  lint_layers
  lint_banned
  lint_musl_headers
  lint_libc
  lint_analysis
}

lint() {
  lint_quick
  lint_paths_of_tools
  say "lint: clean"
}
