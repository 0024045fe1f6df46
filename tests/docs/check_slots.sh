#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# usage: check_slots.sh ZOTCONF SLOTS
# Checks what docs/architecture.md says about the four slots: which slots share a record after each
# operation, what the marked list contains, and where its files are.
set -euo pipefail

zotconf=$1 slots=$2
work=$(mktemp -d)
service=

clean_up() {
  if [[ -n $service ]]; then
    kill "$service" 2>/dev/null || true
    wait "$service" 2>/dev/null || true
  fi
  rm -rf "$work"
}
trap clean_up EXIT

# Each configuration has a file that is the same in all, one that differs, and one that only it has.
mkdir "$work/bin"
cat >"$work/bin/publish" <<PUBLISH
#!/usr/bin/env bash
set -euo pipefail
rm -rf "$work/source"
mkdir -p "$work/source/Ap" "$work/source/Vlan"
echo same >"$work/source/Ap/same"
echo "\$1" >"$work/source/Vlan/other"
echo "\$1" >"$work/source/Vlan/only-\$1"
"$zotconf" publish "$work/source" --out "$work/pub" --index 001122334455 --cluster one \\
  --config-id 00000000-0000-0000-0000-00000000000\$1 >/dev/null
PUBLISH
chmod +x "$work/bin/publish"
export PATH=$work/bin:$PATH
unset ZOT_DEV_PATH

publish a
: >"$work/serve.log"
"$zotconf" serve "$work/pub" --port 0 >"$work/serve.log" 2>&1 &
service=$!
port=
for ((tries = 0; tries < 300; ++tries)); do
  port=$(sed -n 's/^listening on 127\.0\.0\.1:\([0-9]*\)$/\1/p' "$work/serve.log")
  [[ -z $port ]] || break
  sleep 0.1
done
[[ -n $port ]] || { cat "$work/serve.log" >&2; exit 1; }
export ZOT_REMOTE_PORT=$port ZOT_PREFIX_CONF_ROOT=$work/element ZOT_PREFIX_TMP_ROOT=$work/element

expect() {
  diff -u --label documented --label found - "$work/found"
}

"$slots" get commit >/dev/null

# The lines of the table; the slots are current, last, temporary and corrupted.
"$slots" "publish b" get commit get get "publish c" get roll-back get >"$work/found"
expect <<'TABLE'
get 0: a1/list1 - b3/list3 - | added 1 modified 1 deleted 1 unchanged 1, scratch
commit 0: b1/list1 a2/list2 b1/list1 - | added 1 modified 1 deleted 1 unchanged 1, scratch
get 0: b1/list1 b2/list1 b2/list1 - | added 0 modified 0 deleted 0 unchanged 3, scratch
get 0: b1/list1 b2/list1 b3/list1 - | added 0 modified 0 deleted 0 unchanged 3, scratch
get 0: b1/list1 b2/list1 c3/list3 - | added 1 modified 1 deleted 1 unchanged 1, scratch
roll-back 0: b1/list1 -/list1 c3/list3 c4 | added 0 modified 0 deleted 0 unchanged 3, cache
get -13: b1/list1 -/list1 c3/list3 c4 | added 0 modified 0 deleted 0 unchanged 3, cache
TABLE

# A rollback without a last K also renews the marks.
rm "$work/element/writable/zot/knowledge"/corrupted.*
"$slots" get roll-back get >"$work/found"
expect <<'TABLE'
get 0: b1/list1 - c3/list3 - | added 1 modified 1 deleted 1 unchanged 1, scratch
roll-back 0: b1/list1 - c3/list3 c4 | added 0 modified 0 deleted 0 unchanged 3, cache
get -13: b1/list1 - c3/list3 c4 | added 0 modified 0 deleted 0 unchanged 3, cache
TABLE
