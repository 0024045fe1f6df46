# SPDX-License-Identifier: Apache-2.0
# Reads "CALL|PARAMETERS" and writes, for each call, the function that the linker puts in its place
# with --wrap. It hands the call on and notes what came back.

BEGIN {
  FS = "|"
  print "#include \"tests/promises/witness.hpp\"\n#include \"zot_conf.h\"\n"
}

{
  size = split($2, parameter, ",")
  names = ""
  for (i = 1; i <= size; ++i) {
    match(parameter[i], /[a-z_0-9]+ *$/)
    names = names (i > 1 ? ", " : "") substr(parameter[i], RSTART, RLENGTH)
  }
  printf "extern \"C\" int __real_%s(%s);\n", $1, $2
  printf "extern \"C\" int __wrap_%s(%s) {\n", $1, $2
  printf "  return zot::test::witnessed(\"%s\", [&] { return __real_%s(%s); });\n}\n\n", $1, $1, names
}
