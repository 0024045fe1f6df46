# SPDX-License-Identifier: Apache-2.0
# Prints "CALL STATUS" for each status that the comment of a call names after @return. "as CALL()"
# there, and @copydoc, stand for the statuses of the other call.
#
# Variables: form=pairs (default); form=calls prints "CALL|PARAMETERS" for each of these calls.

function end_of_comment(text) {
  promise = ""
  if (match(text, /@copydoc [a-z_0-9]+\(\)/)) {
    promise = "copy " substr(text, RSTART + 9, RLENGTH - 9)
  } else if (match(text, /@return /)) {
    promise = substr(text, RSTART + 8)
    sub(/@(param|copydoc|return).*/, "", promise)
  }
}

function end_of_declaration(text,    name) {
  gsub(/ __attribute__.*|;.*/, "", text)
  if (promise != "" && match(text, /^int [a-z_0-9]+\(/)) {
    name = substr(text, 5, RLENGTH - 5)
    calls[++count] = name
    promises[name] = promise
    parameters[name] = substr(text, RLENGTH + 1)
    sub(/\)$/, "", parameters[name])
  }
  promise = ""
}

# The statuses that a promise names, each between blanks.
function statuses_of(name, depth,    text, found, other) {
  if (match(promises[name], /^copy /)) {
    other = substr(promises[name], 6, length(promises[name]) - 7)
    return other in promises ? statuses_of(other, depth + 1) : " "
  }
  if (!(name in promises) || depth > 8) {
    printf "no statuses are known of %s()\n", name >"/dev/stderr"
    failed = 1
    return " "
  }
  text = promises[name]
  found = " "
  while (match(text, /#ZOT_[A-Z_]+|as _*[a-z][a-z_0-9]+\(\)/)) {
    other = substr(text, RSTART, RLENGTH)
    text = substr(text, RSTART + RLENGTH)
    if (other ~ /^#/) {
      found = found substr(other, 2) " "
    } else {
      found = found statuses_of(substr(other, 4, length(other) - 5), depth + 1)
    }
  }
  return found
}

function print_pairs(name,    list, size, i, seen) {
  size = split(statuses_of(name, 0), list, " ")
  for (i = 1; i <= size; ++i) {
    if (list[i] in is_status && !seen[list[i]]++) {
      print name, list[i]
    }
  }
}

/^  X\(ZOT_(OK|NO_UPDATE|ERR_[A-Z_]+), -?[0-9]+/ {
  status = $1
  gsub(/^X\(|,$/, "", status)
  is_status[status] = 1
}

/^ *\/\*\*/ { comment = ""; in_comment = 1 }
in_comment {
  line = $0
  gsub(/^ *(\/\*\*|\*\/|\*)|\*\/ *$/, "", line)
  comment = comment " " line
  if (/\*\/ *$/) {
    gsub(/ +/, " ", comment)
    end_of_comment(comment)
    in_comment = 0
    declaration = ""
  }
  next
}
/^(#|typedef|}|  )/ && declaration == "" { next }
/^[a-z_]/ || declaration != "" {
  declaration = declaration (declaration == "" ? "" : " ") $0
  if (/;/) {
    gsub(/ +/, " ", declaration)
    end_of_declaration(declaration)
    declaration = ""
  }
}

END {
  for (i = 1; i <= count; ++i) {
    if (statuses_of(calls[i], 0) !~ /ZOT_/) {
      continue
    }
    if (form == "calls") {
      print calls[i] "|" parameters[calls[i]]
    } else {
      print_pairs(calls[i])
    }
  }
  exit failed
}
