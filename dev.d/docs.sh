# SPDX-License-Identifier: Apache-2.0
# shellcheck shell=bash disable=SC2034,SC2154
# Builds the interface pages and the diagrams, and checks the manual pages and the links.

docs_interface() {
  say "docs: pages of the interface"
  local version
  version=$(sed -n 's/^project(zotconf VERSION \([0-9.]*\).*/\1/p' CMakeLists.txt)
  mkdir -p build/docs
  ZOTCONF_VERSION=$version doxygen docs/Doxyfile
}

# Renders each fenced block of the kind `dot` as DOCUMENT-NUMBER.svg.
docs_diagrams() {
  say "docs: diagrams"
  local source
  rm -rf build/docs/diagrams
  mkdir -p build/docs/diagrams
  awk '
    FNR == 1 {
      name = FILENAME
      sub(/.*\//, "", name)
      sub(/\.md$/, "", name)
      number = 0
    }
    /^```$/ { path = "" }
    path != "" { print >path }
    /^```dot$/ { path = "build/docs/diagrams/" name "-" ++number ".dot" }' docs/*.md
  for source in build/docs/diagrams/*.dot; do
    dot -Tsvg "$source" -o "${source%.dot}.svg"
  done
}

docs_manual() {
  say "docs: manual pages"
  mandoc -T lint -W warning docs/man/*.[1-9]
}

docs_links() {
  say "docs: links"
  local documents
  mapfile -t documents < <(find . docs docs/release examples -maxdepth 1 -name '*.md' | sort)
  tests/docs/check_links.sh "${documents[@]}"
}

docs() {
  need doxygen graphviz mandoc
  docs_interface
  docs_diagrams
  docs_manual
  docs_links
  say "docs: build/docs/api/index.html"
}
