# SPDX-License-Identifier: Apache-2.0
# shellcheck shell=bash disable=SC2034,SC2154
# Tests the pages of the service, of the relay and of a fleet in a browser.

test_web() {
  setup
  need chromium fonts-dejavu-core python3
  build release
  say "tests: the pages in Chromium, screenshots in build/web"
  local test
  for test in status_page_test relay_page_test fleet_page_test; do
    # Kills a test that hangs, together with its service and its browser.
    PYTHONDONTWRITEBYTECODE=1 timeout --kill-after=10 600 \
      python3 "tests/web/$test.py" build/release/tools/zotconf examples/sample build/web
  done
}
