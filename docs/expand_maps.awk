# SPDX-License-Identifier: Apache-2.0
# Writes each table of constants out where an enumeration is made of it, in one line, so that every
# other line keeps its number. What only the compiler needs becomes an empty line.

match($0, /^#define ZOT_[A-Z]+_MAP/) {
  table = substr($0, 9, RLENGTH - 8)
}

# X(NAME, NUMBER, "text") or X(NAME, NUMBER, NULL), one or several to a line
/^ +X\([A-Z0-9_]+, / {
  line = $0
  while (match(line, /X\([A-Z0-9_]+, [^,]*, ("[^"]*"|NULL)\)/)) {
    row = substr(line, RSTART + 2, RLENGTH - 3)
    line = substr(line, RSTART + RLENGTH)
    name = row
    sub(/,.*/, "", name)
    value = row
    sub(/^[^,]*, /, "", value)
    text = value
    sub(/,.*/, "", value)
    sub(/^[^,]*, /, "", text)
    text = text ~ /^"/ ? substr(text, 2, length(text) - 2) : "has no text of its own"
    rows[table] = rows[table] "@" name " = " value ", /**< " text " */ "
  }
}

/^#define ZOT_[A-Z]+_ENUM\(/ {
  prefix = ""
  if (match($0, /[A-Z_]+##/)) {
    prefix = substr($0, RSTART, RLENGTH - 2)
  }
  print ""
  next
}

/^ +ZOT_[A-Z]+_MAP\(ZOT_[A-Z]+_ENUM\)$/ {
  table = $1
  sub(/\(.*/, "", table)
  expanded = rows[table]
  gsub(/@/, prefix, expanded)
  print expanded
  next
}

/^#(define|undef) ZOT_[A-Z_]+_ASSERT_/ || /^#undef ZOT_[A-Z]+_ENUM/ || /^ZOT_STATIC_ASSERT_\(/ {
  print ""
  next
}

{ print }
