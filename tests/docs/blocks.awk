# SPDX-License-Identifier: Apache-2.0
# Extracts the fenced blocks of a document, one file each: out/NUMBER.KIND. For each it prints a line
# "NUMBER KIND LINE NAME REASON". NAME comes from the text after the block ("Save it as `NAME`"), REASON
# from the comment above its fence that says why it is not run; "-" where there is none.
# In a manual page the examples are its displays; a comment above gives the kind.

function begin(kind, why) {
  flush()
  ++number
  block_kind = kind == "" ? "none" : kind
  block_line = FNR
  block_why = why == "" ? "-" : why
  block_name = "-"
  path = out "/" number "." block_kind
  printf "" >path
  inside = 1
}

function end() {
  inside = 0
  pending = 1
  close(path)
}

function flush() {
  if (pending) {
    print number, block_kind, block_line, block_name, block_why
  }
  pending = 0
}

FNR == 1 { is_manual = FILENAME ~ /\.[1-9]$/ }

is_manual && /^\.(EX|Bd -literal)/ { begin(kind_of_example, ""); next }
is_manual && inside && /^\.(EE|Ed)/ { end(); next }
is_manual && /^\.\\" (c|sh)$/ { kind_of_example = $2; next }
is_manual && inside {
  sub(/^\\&/, "")
  gsub(/\\-/, "-")
  gsub(/\\\(aq/, "'")
  gsub(/\\\(dq/, "\"")
  gsub(/\\\(ti/, "~")
  gsub(/\\\(ha/, "^")
  gsub(/\\e/, "\\")
}

!is_manual && !inside && /^ *```/ {
  kind = $0
  sub(/^ *```/, "", kind)
  indent = match($0, /`/) - 1
  begin(kind, why)
  why = ""
  next
}
!is_manual && inside && /^ *```$/ { end(); next }

inside { print substr($0, indent + 1) >path; next }

{
  why = ""
  if (match($0, /^ *<!-- not run: .* -->$/)) {
    why = $0
    sub(/^ *<!-- not run: /, "", why)
    sub(/ -->$/, "", why)
  }
  if (pending && block_name == "-" && match($0, /Save it as `[^`]+`/)) {
    block_name = substr($0, RSTART + 12, RLENGTH - 13)
  }
}

END {
  if (inside) {
    print FILENAME ":" block_line ": the block has no end" >"/dev/stderr"
    exit 1
  }
  flush()
}
