# SPDX-License-Identifier: Apache-2.0
# usage: awk -v persistent=FOLDER -v scratch=FOLDER -f trace.awk TRACE
# Adds up the strace output of a whole process tree (-f -y) and prints lines "NAME VALUE". A step is
# the part of a run between two marks of the client; a step STEP.… counts as STEP.
#
#   STEP.read.PLACE, STEP.write.PLACE   bytes through read, write and similar calls
#   STEP.files.PLACE                    files opened for creating or truncating
#   STEP.folders.PLACE                  folders created
#   STEP.removed.PLACE                  files and folders removed
#   STEP.programs                       programs started
#   STEP.syncs                          calls that wait for the medium
#   STEP.calls, STEP.call.NAME          system calls

function place(path) {
  if (index(path, persistent "/") == 1) return "persistent"
  if (index(path, scratch "/") == 1) return "scratch"
  if (path ~ /^(socket|TCP|UDP|UNIX)/) return "network"
  if (path ~ /^pipe:/) return "pipes"
  return "other"
}

function add(name, value) { sum[phase "." name] += value }

# The path behind the n-th descriptor of a call.
function descriptor(text, n) {
  while (n-- > 1) {
    sub(/[0-9]<[^>]*>/, "", text)
  }
  return match(text, /[0-9]<[^>]*>/) ? substr(text, RSTART + 2, RLENGTH - 3) : ""
}

# The path argument; a relative path is below the folder that the call names.
function path_argument(text,   quoted, folder) {
  if (!match(text, /"[^"]*"/)) return ""
  quoted = substr(text, RSTART + 1, RLENGTH - 2)
  if (quoted ~ /^\//) return quoted
  folder = match(text, /<[^>]*>/) ? substr(text, RSTART + 1, RLENGTH - 2) : ""
  return folder "/" quoted
}

function count(name, text, result,   path) {
  add("calls", 1)
  add("call." name, 1)
  if (result < 0) return
  if (name ~ /^(read|readv|pread64|preadv|recvfrom|recvmsg|recv)$/) {
    add("read." place(descriptor(text, 1)), result)
  } else if (name ~ /^(write|writev|pwrite64|pwritev|sendto|sendmsg|send)$/) {
    add("write." place(descriptor(text, 1)), result)
  } else if (name == "copy_file_range" || name == "splice") {
    add("read." place(descriptor(text, 1)), result)
    add("write." place(descriptor(text, 2)), result)
  } else if (name == "sendfile") {
    add("write." place(descriptor(text, 1)), result)
    add("read." place(descriptor(text, 2)), result)
  } else if (name == "creat" || (name ~ /^open/ && text ~ /O_CREAT|O_TRUNC/)) {
    path = text
    sub(/.* = [0-9]+</, "", path)
    sub(/>$/, "", path)
    add("files." place(path), 1)
  } else if (name ~ /^mkdir/) {
    add("folders." place(path_argument(text)), 1)
  } else if (name ~ /^(unlink|unlinkat|rmdir)$/) {
    add("removed." place(path_argument(text)), 1)
  } else if (name == "execve") {
    add("programs", 1)
  } else if (name ~ /^(fsync|fdatasync|sync|syncfs)$/) {
    add("syncs", 1)
  }
}

{
  process = $1
  sub(/^[0-9]+ +/, "")
}
/^(access|faccessat).*"\/footprint\/end\// { phase = ""; next }
/^(access|faccessat).*"\/footprint\/begin\// {
  phase = $0
  sub(/.*\/footprint\/begin\//, "", phase)
  sub(/[."].*/, "", phase)
  next
}
phase == "" { next }
/ <unfinished \.\.\.>$/ {
  sub(/ <unfinished \.\.\.>$/, "")
  begun[process] = $0
  next
}
/^<\.\.\. [a-z0-9_]+ resumed>/ {
  sub(/^<\.\.\. [a-z0-9_]+ resumed>/, "")
  $0 = begun[process] $0
  delete begun[process]
}
/^[a-z0-9_]+\(.* = / {
  name = $0
  sub(/\(.*/, "", name)
  result = $0
  sub(/.*\) += /, "", result)
  count(name, $0, result + 0)
}
END {
  for (name in sum) printf "%s %d\n", name, sum[name]
}
