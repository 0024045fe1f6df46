# SPDX-License-Identifier: Apache-2.0
# shellcheck shell=bash disable=SC2034,SC2154
# Tests the delivery of a publication: nginx serves it, and an upload to an object store.

readonly delivery_build=build/delivery

# The object store is a package of the npm registry. Its versions and digests are those of the lock file.
delivery_make_store() {
  local -r lock=tests/delivery/package-lock.json stamp=$delivery_build/installed
  command -v npm >/dev/null &&
    node -e 'process.exit(parseInt(process.versions.node, 10) >= 20 ? 0 : 1)' ||
    fail "the object store needs npm and Node.js 20 or later; Debian 12 has an older one"
  ! cmp -s "$lock" "$stamp" || return 0
  say "delivery: an object store"
  mkdir -p "$delivery_build"
  cp tests/delivery/package.json "$lock" "$delivery_build"
  npm ci --prefix "$delivery_build" --ignore-scripts --no-audit --no-fund --loglevel=error ||
    fail "npm cannot install the object store"
  cp "$lock" "$stamp"
}

# delivery_run SCRIPT ARGUMENT...: runs the script and prints its checks.
delivery_run() {
  timeout --kill-after=10 300 "tests/delivery/$1.sh" build/release/tools/zotconf "${@:2}" |
    tee "$delivery_build/$1.log"
}

delivery() {
  setup
  need curl jq nginx-light nodejs openssl rclone
  delivery_make_store
  say "delivery: build"
  configure release
  build_quietly release zotconf_cli
  say "delivery: nginx"
  delivery_run server examples/nginx.conf
  say "delivery: nginx with ready-made files"
  delivery_run ready_made
  say "delivery: an object store, and rclone"
  delivery_run store examples/upload.sh "$delivery_build/node_modules"
  say "tests: delivery: $(cat "$delivery_build"/{server,ready_made,store}.log | grep -c '^ok: ') cases"
}
