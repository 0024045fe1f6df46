# SPDX-License-Identifier: Apache-2.0
# shellcheck shell=bash disable=SC2034,SC2154
# Tests the status page of the service in a browser.

test_web() {
  setup
  need chromium fonts-dejavu-core python3
  build release
  say "tests: the status page in Chromium, screenshots in build/web"
  # Kills a test that hangs, together with its service and its browser.
  PYTHONDONTWRITEBYTECODE=1 timeout --kill-after=10 600 \
    python3 tests/web/status_page_test.py build/release/tools/zotconf examples/sample build/web
}
