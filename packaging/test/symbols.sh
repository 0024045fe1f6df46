#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# usage: symbols.sh PACKAGE
# Checks that the library in the package exports exactly the symbols that its symbols file lists.
set -euo pipefail

package=$1
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

name=$(dpkg-deb --field "$package" Package)
dpkg-deb --raw-extract "$package" "$work/tree"
mkdir "$work/debian"
printf 'Source: zotconf\n\nPackage: %s\nArchitecture: any\n' "$name" >"$work/debian/control"
cp "$work/tree/DEBIAN/symbols" "$work/told"
version=$(dpkg-deb --field "$package" Version)

cd "$work"
if ! dpkg-gensymbols -c4 "-p$name" "-v${version%-*}" -Ptree -Itold -Osymbols >changes 2>&1; then
  cat changes >&2
  echo "packaging/$name.symbols and the library differ as shown" >&2
  exit 1
fi
grep -c '^ ' symbols
