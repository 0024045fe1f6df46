# SPDX-License-Identifier: Apache-2.0
# shellcheck shell=bash disable=SC2034,SC2154
# The contenders. Three functions for each one:
#   first_NAME    fetches the first state into $element
#   command_NAME  sets `command` to what updates $element to the second state
#   expect_NAME   checks that $element has the second state, byte by byte

readonly contenders=(relay archive ostree delta casync rsync)
readonly element=$work/element previous=$work/previous
readonly tls=(--cacert "$work/servers.crt" --cert "$work/element.crt" --key "$work/element.key")

# The relay: K, its signature, and the files that changed.
command_relay() {
  command=("$zotconf" relay --upstream "$secure_url" --index "$index" --store "$element" --once
    --keyring "$work/signers.crt" --ca "$work/servers.crt" --cert "$work/element.crt"
    --key "$work/element.key" --user nobody)
}

first_relay() {
  command_relay
  expect 0 on_client "${command[@]}"
}

expect_relay() {
  local suffix
  for suffix in k checksum signature; do
    cmp "$element/current/$suffix" "$publication/$latest.${suffix/signature/k.p7s}" || return 1
  done
  (cd "$element/objects" && sha256sum --check --quiet --strict) < <(
    jq -r '.gpbs[].checksum | . + "  " + .[:2] + "/" + .[2:]' "$publication/$latest.k")
}

# The archive of everything.
first_archive() {
  mkdir "$element"
}

command_archive() {
  command=(bash -c 'set -o pipefail; curl -fsS --http2 "${@:2}" | tar -xz -C "$1"' archive "$element"
    "${tls[@]}" "$archive_url/config.tar.gz")
}

expect_archive() {
  diff -r "$element" "$tree"
}

# ostree keeps the files as objects, as the relay does, so nothing is checked out.
first_from() {
  expect 0 ostree --repo="$element" init --mode=bare-user-only
  expect 0 ostree --repo="$element" remote add --no-gpg-verify server "$plain_url/${1##*/}"
  expect 0 on_client ostree --repo="$element" pull server config
}

command_ostree() {
  command=(ostree --repo="$element" pull server config)
}

expect_ostree() {
  expect 0 ostree --repo="$element" checkout --user-mode --union server:config "$element/tree"
  diff -r "$element/tree" "$tree"
}

first_ostree() {
  first_from "$repository"
}

# ostree with a static delta, which the server made for this pair of states.
first_delta() {
  first_from "$repository"
  expect 0 ostree --repo="$element" config set 'remote "server".url' "$plain_url/${delta_repository##*/}"
}

command_delta() {
  command_ostree
}

expect_delta() {
  expect_ostree
}

# casync, with the previous state as seed.
first_casync() {
  mkdir "$element"
  cp -a "$tree" "$element/old"
}

command_casync() {
  command=(casync extract --without=privileged --store="$plain_url/default.castr"
    --seed="$element/old" "$plain_url/config.caidx" "$element/new")
}

expect_casync() {
  diff -r "$element/new" "$tree"
}

# rsync compares sizes and times, with its own daemon, without TLS.
command_rsync() {
  command=(rsync -a --delete --sockopts=TCP_NODELAY "rsync://$server_address/tree/" "$element/")
}

first_rsync() {
  command_rsync
  expect 0 on_client "${command[@]}"
}

expect_rsync() {
  diff -r "$element" "$tree"
}
