# SPDX-License-Identifier: Apache-2.0
# Reads the header with the statuses, the table and then the sources, and prints the lines of the table
# whose test names the status neither by its name nor by its negative number. A test with a parameter may
# have it among its parameters, in the same file.

FILENAME ~ /\.h$/ {
  if (match($0, /^  X\(ZOT_[A-Z_]+, -[0-9]+,/)) {
    split(substr($0, 5, RLENGTH - 5), field, /, /)
    name_of[field[2]] = field[1]
  }
  next
}

FILENAME !~ /\.cpp$/ {
  name = $3
  sub(/^[^.]*\//, "", name)  # the name of the instance
  sub(/\/[^.]*$/, "", name)  # the parameter
  wanted[$0] = name
  parametrised[$0] = name != $3
  next
}

FNR == 1 { test = "" }
/^TEST(_F|_P)?\(/ {
  test = $0
  while (test !~ /\)/ && (getline more) > 0) {
    test = test more
  }
  gsub(/^TEST(_F|_P)?\( *|\).*/, "", test)
  sub(/, */, ".", test)
  file_of[test] = FILENAME
}
{
  rest = $0
  while (match(rest, /ZOT_[A-Z_]+|-[0-9]+/)) {
    status = substr(rest, RSTART, RLENGTH)
    status = status in name_of ? name_of[status] : status
    in_file[FILENAME, status] = 1
    if (test != "") {
      in_test[test, status] = 1
    }
    rest = substr(rest, RSTART + RLENGTH)
  }
}
/^}/ { test = "" }

END {
  for (line in wanted) {
    split(line, field, " ")
    name = wanted[line]
    if (!((name, field[2]) in in_test) &&
        !(parametrised[line] && (file_of[name], field[2]) in in_file)) {
      print line
    }
  }
}
