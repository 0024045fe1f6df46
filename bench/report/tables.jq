# SPDX-License-Identifier: Apache-2.0
# usage: jq -r -L FOLDER --arg name TABLE -f tables.jq SUMMARY
include "figures";
include "aims";
include "contenders";
include "pieces";
include "phases";
include "takeaway";

if $name == "machine" then machine
elif $name == "takeaway" then takeaway
elif $name == "aims" then aims
elif $name == "first" then compared("first"; cases_with_peers)
elif $name == "poll" then compared("poll"; cases_with_peers)
elif $name == "update" then compared("update"; cases_with_peers)
elif $name == "restart" then compared("restart"; cases_with_peers)
elif $name == "disk" then compared_on_disk
elif $name == "polls" then polls
elif $name == "growth" then growth
elif $name == "pieces" then pieces
elif $name == "bytes" then bytes
elif $name == "calls" then calls
elif $name == "phases-first" then phases("first")
elif $name == "phases-update" then phases("update")
else error("there is no table \($name)")
end
