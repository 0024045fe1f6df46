# SPDX-License-Identifier: Apache-2.0
# usage: awk -f align.awk
# Prints a document for a terminal: aligns the columns of its tables.

# The number of characters of a UTF-8 text; awk may count bytes.
function width(text) {
  gsub(/[\200-\277]/, "", text)
  return length(text)
}

function padded(text, wide, to_right,   blanks) {
  blanks = sprintf("%" (wide - width(text) + 1) "s", "")
  blanks = substr(blanks, 2)
  return to_right ? blanks text : text blanks
}

function print_table(   i, c, out) {
  for (i = 1; i <= rows; ++i) {
    if (i == 2) continue
    out = ""
    for (c = 1; c <= columns; ++c) {
      out = out padded(cell[i, c], widest[c], right[c]) (c < columns ? "  " : "")
    }
    sub(/ +$/, "", out)
    print out
  }
  rows = 0
  split("", widest)
}

/^\|/ {
  gsub(/<br>/, " ")
  gsub(/\*\*|`/, "")
  columns = split($0, part, "|") - 2
  ++rows
  for (c = 1; c <= columns; ++c) {
    text = part[c + 1]
    gsub(/^ +| +$/, "", text)
    if (rows == 2) {
      right[c] = text ~ /:$/
      continue
    }
    cell[rows, c] = text
    if (width(text) > widest[c]) widest[c] = width(text)
  }
  next
}
rows { print_table() }
{ print }
END { if (rows) print_table() }
