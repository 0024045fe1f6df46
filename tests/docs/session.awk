# SPDX-License-Identifier: Apache-2.0
# Turns the command lines of a document into a script. A command with the comment "# exit status N" has
# to end with N, every other one with 0. When a line starts a service in the background, the script
# waits until it answers.

{ command = command == "" ? $0 : command "\n" $0 }
/\\$/ { next }
{
  status = 0
  text = command
  if (match(text, /[ \t]*# exit status [0-9]+$/)) {
    status = substr(text, RSTART, RLENGTH)
    sub(/.* /, "", status)
    text = substr(text, 1, RSTART - 1)
  }
  if (status != 0) {
    print "status=0"
    print "{ " text "\n} || status=$?"
    print "expect_status " status " \"$status\" " FNR
  } else {
    print text
  }
  if (text ~ /zotconf[ \t]+serve[^#]*&[ \t]*$/) {
    print "wait_for_service"
  }
  command = ""
}
