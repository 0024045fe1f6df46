# SPDX-License-Identifier: Apache-2.0
# usage: awk -f tables.awk VALUES DOCUMENT
# Prints the document. Writes each table between "<!-- measured: NAME -->" and "<!-- end -->" again
# from the values, which are lines "NAME VALUE", and keeps everything else unchanged.

function refuse(what) {
  printf "tables.awk: %s\n", what >"/dev/stderr"
  failed = 1
  exit 1
}

function value(name) {
  if (!(name in measured)) refuse("no measured value " name)
  return measured[name]
}

# Groups digits by three, separated by commas.
function grouped(number,   text) {
  text = sprintf("%d", number)
  while (match(text, /^-?[0-9]+[0-9][0-9][0-9](,|$)/)) {
    sub(/[0-9][0-9][0-9](,|$)/, ",&", text)
  }
  return text
}

function head(titles,   n, i, title, rule) {
  n = split(titles, title, "|")
  rule = "|---|"
  for (i = 2; i <= n; ++i) rule = rule "---:|"
  printf "| "
  for (i = 1; i <= n; ++i) printf "%s |%s", title[i], (i < n ? " " : "\n")
  print rule
}

# Prints a row for each line "LABEL|PATTERN". Each word gives a column: it replaces the `@` of the
# pattern. If the words are numbers of files, a last column has the growth per additional file.
function rows(lines, words,   n, i, line, part, columns, word, c) {
  n = split(lines, line, "\n")
  columns = split(words, word, " ")
  for (i = 1; i <= n; ++i) {
    split(line[i], part, "|")
    printf "| %s |", part[1]
    for (c = 1; c <= columns; ++c) {
      printf " %s |", grouped(value(word_in(part[2], word[c])))
    }
    if (columns == 3 && word[3] == "10000") {
      printf " %s |", growth(value(word_in(part[2], 10000)) - value(word_in(part[2], 1000)))
    }
    printf "\n"
  }
}

# Growth per file over the 9,000 files between the two sizes. A growth smaller than a record does not
# depend on the files.
function growth(of_all,   of_one) {
  of_one = of_all * unit / 9000
  return of_one < 64 ? "none" : grouped(of_one)
}

function word_in(pattern, word) {
  sub(/@/, word, pattern)
  return pattern
}

function library() {
  head("what|bytes")
  rows("text: code, constants and link tables|library.text\n" \
    "data|library.data\n" \
    "bss|library.bss\n" \
    "stripped file|library.file", "-")
}

function records() {
  head("what|bytes")
  rows("`zot_ctx`, the handle|sizeof.zot_ctx\n" \
    "`zot_parm`, one per handle|sizeof.zot_parm\n" \
    "heap in use after creation|heap.init.held.bytes\n" \
    "`zot_k`, one per configuration in memory|sizeof.zot_k\n" \
    "`zot_gpb`, one per file in each list|sizeof.zot_gpb\n" \
    "`zot_ret_data`, one per returned entry|sizeof.zot_ret_data\n" \
    "`remote_file_name`, one per file while the archive is fetched|" \
    "sizeof.remote_file_name", "-")
}

function heap() {
  head("when|100 files|1,000 files|10,000 files|per additional file")
  rows("peak of the first get|heap.@.first.get.peak.bytes\n" \
    "peak of the first commit|heap.@.first.commit.peak.bytes\n" \
    "in use after the first commit|heap.@.first.commit.held.bytes\n" \
    "in use between polls|heap.@.poll.held.bytes\n" \
    "peak of the update get|heap.@.update.get.peak.bytes\n" \
    "peak of the update commit|heap.@.update.commit.peak.bytes\n" \
    "in use between polls after the update|heap.@.repoll.held.bytes", "100 1000 10000")
}

function owners() {
  head("owner|peak of the first get|in use between polls|peak of the update get")
  rows("file contents|heap.1000.@.contents\n" \
    "names in the archive request|heap.1000.@.names\n" \
    "JSON: parsed K, request|heap.1000.@.json\n" \
    "`zot_gpb` records|heap.1000.@.records\n" \
    "returned entries|heap.1000.@.entries\n" \
    "paths, stream buffers|heap.1000.@.texts\n" \
    "libcurl, libcrypto and their libraries|heap.1000.@.transfer\n" \
    "handle, text of each K, other|heap.1000.@.other\n" \
    "total|heap.1000.@.bytes\n" \
    "number of blocks|heap.1000.@.blocks", "first.get.peak poll.held update.get.peak")
}

function stack() {
  head("call|bytes")
  rows("creation|stack.init\n" \
    "get with a new configuration|stack.first.get\n" \
    "commit|stack.first.commit\n" \
    "first poll after a commit|stack.settle\n" \
    "poll|stack.poll", "-")
}

function memory() {
  unit = 1024
  head("peak in KiB|100 files|1,000 files|10,000 files|per additional file, bytes")
  rows("before the handle is created|memory.@.start.rss_kib\n" \
    "first get|memory.@.first.get.rss_kib\n" \
    "first commit|memory.@.first.commit.rss_kib\n" \
    "poll|memory.@.poll.rss_kib\n" \
    "update get|memory.@.update.get.rss_kib\n" \
    "update commit|memory.@.update.commit.rss_kib\n" \
    "`tar` with its decompressor|memory.@.tar.rss_kib\n" \
    "`cp -r`|memory.@.cp.rss_kib\n" \
    "`rm -rf`|memory.@.rm.rss_kib", "100 1000 10000")
  unit = 1
}

function transfers() {
  head("what|first, 100 files|first, 1,000|first, 10,000|update, 1,000|poll, 1,000")
  rows("bytes received|@.read.network\n" \
    "bytes sent|@.write.network\n" \
    "bytes written to the persistent cache|@.write.persistent\n" \
    "bytes read from the persistent cache|@.read.persistent\n" \
    "bytes written to the scratch directory|@.write.scratch\n" \
    "bytes read from the scratch directory|@.read.scratch\n" \
    "bytes through pipes, from `gzip` to `tar`|@.write.pipes\n" \
    "files written in the persistent cache|@.files.persistent\n" \
    "folders created in the persistent cache|@.folders.persistent\n" \
    "files and folders removed from the persistent cache|@.removed.persistent\n" \
    "files written in the scratch directory|@.files.scratch\n" \
    "folders created in the scratch directory|@.folders.scratch\n" \
    "files and folders removed from the scratch directory|@.removed.scratch\n" \
    "programs started|@.programs\n" \
    "calls that wait for the medium (sync)|@.syncs",
    "first.100 first.1000 first.10000 update.1000 poll.1000")
}

# The system calls on one architecture, the most frequent first.
function calls_of(machine,   name, prefix, list, n, i, j, swap, count) {
  prefix = "poll." machine ".call."
  n = 0
  for (name in measured) {
    if (index(name, prefix) == 1) list[++n] = name
  }
  for (i = 2; i <= n; ++i) {
    for (j = i; j > 1 && comes_before(list[j], list[j - 1]); --j) {
      swap = list[j]
      list[j] = list[j - 1]
      list[j - 1] = swap
    }
  }
  for (i = 1; i <= n; ++i) {
    printf "%s`%s` %d", (i > 1 ? ", " : ""), substr(list[i], length(prefix) + 1), measured[list[i]]
  }
}

function comes_before(a, b) {
  return measured[a] != measured[b] ? measured[a] > measured[b] : a < b
}

function calls() {
  print "| architecture | calls | by name |\n|---|---:|---|"
  printf "| 32-bit ARM | %d | ", value("poll.arm.calls")
  calls_of("arm")
  printf " |\n| x86-64 | %d | ", value("poll.host.calls")
  calls_of("host")
  printf " |\n"
}

function table(name) {
  if (name == "library") library()
  else if (name == "records") records()
  else if (name == "heap") heap()
  else if (name == "owners") owners()
  else if (name == "stack") stack()
  else if (name == "memory") memory()
  else if (name == "transfers") transfers()
  else if (name == "calls") calls()
  else refuse("there is no table " name)
}

BEGIN { unit = 1 }
NR == FNR { measured[$1] = $2; next }
/^<!-- measured: .* -->$/ {
  print
  name = $0
  sub(/^<!-- measured: /, "", name)
  sub(/ -->$/, "", name)
  print ""
  table(name)
  printed[name] = 1
  print ""
  inside = 1
  next
}
/^<!-- end -->$/ { inside = 0 }
!inside { print }
END {
  if (!failed && inside) refuse("a table has no end marker")
  n = split("library records heap owners stack memory transfers calls", tables, " ")
  for (i = 1; i <= n && !failed; ++i) {
    if (!(tables[i] in printed)) refuse("the document has no table " tables[i])
  }
}
