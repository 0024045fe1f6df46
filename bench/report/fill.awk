# SPDX-License-Identifier: Apache-2.0
# usage: awk -v tables=FOLDER -v names="NAME..." -f fill.awk DOCUMENT
# Prints the document. Replaces the text between "<!-- measured: NAME -->" and "<!-- end -->" with
# FOLDER/NAME.md for each NAME, and keeps everything else unchanged. The document has all the names.

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
  if (lines == 0) refuse(path " is missing or empty")
}

BEGIN {
  count = split(names, name)
  for (i = 1; i <= count; ++i) wanted[name[i]] = 1
}
/^<!-- measured: .* -->$/ && $3 in wanted {
  if (inside) refuse("line " FNR ": a table inside a table")
  print
  print ""
  print_file(tables "/" $3 ".md")
  print ""
  inside = 1
  delete wanted[$3]
  next
}
/^<!-- end -->$/ { inside = 0 }
!inside { print }
END {
  if (!failed && inside) refuse("a table has no end marker")
  for (missing in wanted) {
    if (!failed) refuse("the document has no table " missing)
  }
}
