# SPDX-License-Identifier: Apache-2.0
# usage: awk -f compare.awk LIMITS VALUES
# Prints "NAME MEASURED LIMIT ok|OVER" for each value. Fails when a value is over its limit or has no
# limit, or when a limit has no measured value. A limit whose name ends in `*` applies to all names
# that begin like that and have no limit of their own.

function limit_of(name,   prefix, best) {
  if (name in limit) {
    used[name] = 1
    return limit[name]
  }
  best = ""
  for (prefix in wide) {
    if (index(name, prefix) == 1 && length(prefix) > length(best)) best = prefix
  }
  return best != "" ? wide[best] : ""
}

function complain(what) {
  printf "%s\n", what
  failed = 1
}

/^ *(#|$)/ { next }
NR == FNR && $1 ~ /\*$/ { wide[substr($1, 1, length($1) - 1)] = $2; next }
NR == FNR { limit[$1] = $2; next }
{
  allowed = limit_of($1)
  if (allowed == "") {
    complain(sprintf("%-42s %12d %12s no limit", $1, $2, "-"))
  } else if ($2 > allowed + 0) {
    complain(sprintf("%-42s %12d %12d OVER", $1, $2, allowed))
  } else {
    printf "%-42s %12d %12d ok\n", $1, $2, allowed
  }
  ++values
}
END {
  for (name in limit) {
    if (!(name in used)) complain(sprintf("%-42s %12s %12d not measured", name, "-", limit[name]))
  }
  if (values == 0) complain("nothing was measured")
  exit failed
}
