#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# usage: check_manual.sh ZOTCONF MANUAL_FOLDER
# Checks that every command has a manual page without formatting errors that describes each of its
# options, and that the shell completes commands, options and values.
set -euo pipefail

zotconf=$1 manual=$2
failed=0

complain() {
  echo "check_manual: $*" >&2
  failed=1
}

commands=$("$zotconf" --help | sed -n '/^Subcommands:/,$s/^  \([a-z]\{1,\}\) .*/\1/p')
[[ -n $commands ]] || complain "no command is listed"

for page in zotconf $(printf 'zotconf-%s\n' $commands); do
  mandoc -T lint -W warning "$manual/$page.1" >&2 || complain "$page.1 is not clean"
done
for command in $commands; do
  text=$(mandoc -T ascii "$manual/zotconf-$command.1" | sed 's/.\x08//g')
  for option in $("$zotconf" "$command" --help | grep -o '^  [-a-zA-Z,]*--[a-z-]*' |
    grep -o -e '--[a-z-]*'); do
    [[ $text == *"$option"* ]] || complain "zotconf-$command.1 does not tell $option"
  done
done

# Prints the completions of the last of some words.
offered() {
  bash -c '
    source "$1"
    shift
    COMP_WORDS=("$@")
    COMP_CWORD=$(($# - 1))
    COMPREPLY=()
    _zotconf
    printf "%s\n" "${COMPREPLY[@]}"' bash "$manual/zotconf.bash" "$@"
}

expect() {
  local want=$1
  shift
  local got
  got=$(offered "$@")
  [[ $got == "$want" ]] || complain "'$*' is completed with '$got' instead of '$want'"
}

expect publish zotconf pub
expect help zotconf hel
expect cycle zotconf help cyc
expect --cluster zotconf publish --clu
expect --max-removed zotconf publish --max
expect --grace zotconf prune --gr
expect 24h zotconf prune --grace 2
expect --polls zotconf probe --pol
expect DP zotconf cycle --subsys D
expect WlanGroup zotconf cycle --categories WlanG
expect refused zotconf show ref
expect ZOT_ERR_TIMEOUT zotconf explain ZOT_ERR_T
folder=$(mktemp -d)
mkdir "$folder/only"
expect "$folder/only" zotconf serve "$folder/o"
expect "$folder/only" zotconf serve --pid-file "$folder/o"
expect --background zotconf serve --ba
expect "$folder/only" zotconf prune "$folder/o"
expect "$folder/only" zotconf selftest --dir "$folder/o"
rm -r "$folder"
exit "$failed"
