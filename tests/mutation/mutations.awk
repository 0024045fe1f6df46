# SPDX-License-Identifier: Apache-2.0
# usage: awk -v seed=NUMBER -f mutations.awk FILE... | sort -n
# Prints mutations of C++ files:
#
#   PLACE <tab> FILE <tab> LINE <tab> KIND <tab> the mutated line
#
# Sorted by the place, they are in an order that the seed decides, and that a change elsewhere leaves alone.
# Comments, strings and preprocessor lines are left alone.

# The line with blanks in place of comments, strings and characters; as long as the line itself.
function masked(line,    i, c, quote, out) {
  out = ""
  quote = ""
  for (i = 1; i <= length(line); ++i) {
    c = substr(line, i, 1)
    if (quote != "") {
      if (c == "\\") {
        out = out " "
        ++i
      } else if (c == quote) {
        quote = ""
      }
      out = out "#"
    } else if (c == "/" && substr(line, i + 1, 1) == "/") {
      break
    } else {
      if (c == "\"" || (c == "'" && substr(line, i - 1, 1) !~ /[0-9]/)) {
        quote = c
        c = "#"
      }
      out = out c
    }
  }
  return out
}

BEGIN {
  for (i = 1; i < 256; ++i) {
    byte[sprintf("%c", i)] = i
  }
}

# A number for a text, which similar texts do not share.
function hash(text,    i, value) {
  value = 1
  for (i = 1; i <= length(text); ++i) {
    value = (value * 257 + byte[substr(text, i, 1)]) % 2147483647
  }
  for (i = 1; i <= 8; ++i) {
    value = value * 16807 % 2147483647
  }
  return value
}

function add(kind, text,    what) {
  what = seed FILENAME $0 text
  ++seen[what]
  printf "%d\t%s\t%d\t%s\t%s\n", hash(what seen[what]), FILENAME, FNR, kind, text
}

# Each place of `from` in the code becomes `to`. `skip` characters at its begin and end stay.
function swap(kind, from, to,    rest, start) {
  rest = code
  start = 0
  while (match(rest, from)) {
    start += RSTART
    add(kind, substr($0, 1, start - 1) to substr($0, start + RLENGTH))
    rest = substr(rest, RSTART + 1)
  }
}

function swap_words(kind, word, to,    rest, start) {
  rest = " " code
  start = 0
  while (match(rest, "[^A-Za-z_0-9:]" word "[^A-Za-z_0-9]")) {
    start += RSTART
    add(kind, substr($0, 1, start - 1) to substr($0, start + length(word)))
    rest = substr(rest, RSTART + 1)
  }
}

function change_constants(    rest, start, digits) {
  rest = " " code " "
  start = 0
  while (match(rest, /[^A-Za-z_0-9.#'][0-9]+[^A-Za-z_0-9.']/)) {
    start += RSTART
    digits = substr($0, start, RLENGTH - 2)
    add("constant off by one", substr($0, 1, start - 1) (digits + 1) substr($0, start + RLENGTH - 2))
    rest = substr(rest, RSTART + 1)
  }
}

function change_status(    status) {
  if (match(code, /return ZOT_(OK|ERR_[A-Z_]+|NO_UPDATE);/)) {
    status = substr(code, RSTART + 7, RLENGTH - 8)
    add("another status", substr($0, 1, RSTART + 6) (status == "ZOT_OK" ? "ZOT_ERR_GENERIC" : "ZOT_OK") \
      substr($0, RSTART + RLENGTH - 1))
  }
}

function is_balanced(text) {
  return gsub(/\(/, "", text) == gsub(/\)/, "", text)
}

function remove_call() {
  if (before ~ /[;{}:]$|^ *(\/\/.*)?$/ && code ~ /^ +[A-Za-z_][A-Za-z_0-9:.>-]*(<[a-z ]+>)?\(.*\);$/ &&
      code !~ /^ *(return|if|for|while|switch)[ (]/ && is_balanced(code)) {
    match(code, /[^ ]/)
    add("call removed", substr($0, 1, RSTART - 1) ";")
  }
}

function negate_condition(    start) {
  if (code ~ /if \([^;]*\) \{$/ && is_balanced(code)) {
    match(code, /if \(/)
    start = RSTART + 4
    add("condition negated",
      substr($0, 1, start - 1) "!(" substr($0, start, length(code) - start - 2) ")) {")
  }
}

FNR == 1 {
  before = ""
  in_directive = 0
}

{
  if (/^ *#/ || in_directive) {
    in_directive = /\\$/
    next
  }
  code = masked($0)
  sub(/ +$/, "", code)
  if (code !~ /static_assert|^ *template|^using |^namespace|\[\[gnu::format/) {
    swap("comparison", " == ", " != ")
    swap("comparison", " != ", " == ")
    swap("comparison", " < ", " <= ")
    swap("comparison", " > ", " >= ")
    swap("comparison", " <= ", " < ")
    swap("comparison", " >= ", " > ")
    swap("comparison", " < ", " >= ")
    swap("comparison", " > ", " <= ")
    swap("arithmetic", " [+] ", " - ")
    swap("arithmetic", " - ", " + ")
    swap("logic", " && ", " || ")
    swap("logic", " [|][|] ", " && ")
    swap_words("truth", "true", "false")
    swap_words("truth", "false", "true")
    swap_words("jump", "break", "continue")
    swap_words("jump", "continue", "break")
    change_constants()
    change_status()
    remove_call()
    negate_condition()
  }
  if (code != "") {
    before = code
  }
}
