# SPDX-License-Identifier: Apache-2.0
# usage: awk -v tables=FOLDER -f fill.awk DOCUMENT
# Prints the document with what stands between "<!-- measured: NAME -->" and "<!-- end -->" replaced
# by FOLDER/NAME.md. What else stands in the document is left alone.

function refuse(what) {
  printf "fill.awk: %s\n", what >"/dev/stderr"
  failed = 1
  exit 1
}

function print_file(path,   line, lines) {
  while ((getline line < path) > 0) {
    print line
    ++lines
  }
  close(path)
  if (lines == 0) refuse("nothing is in " path)
}

/^<!-- measured: .* -->$/ {
  if (inside) refuse("line " FNR ": a table in a table")
  print
  print ""
  print_file(tables "/" $3 ".md")
  print ""
  inside = 1
  ++filled
  next
}
/^<!-- end -->$/ { inside = 0 }
!inside { print }
END {
  if (!failed && inside) refuse("a table has no end")
  if (!failed && !filled) refuse("the document has no table")
}
