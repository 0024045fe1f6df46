#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""usage: relay_page_test.py ZOTCONF SAMPLE PICTURES

Opens the status page of a real relay in a real browser: with a publication in service, and after its
server was lost. The page has no script, so the browser is the only one that loads it again."""

import functools
import http.server
import json
import os
import pathlib
import shutil
import subprocess
import sys
import tempfile
import threading

from browser import Browser, BrowserFailure
from checks import CONTRAST, check, counts, fits
from service import publish

INDEX = "001122334455"
CONFIG_ID = "3f2504e0-4f89-41d3-9a0c-0305e82c3301"
TEXT = "document.body.innerText"


class Folder(http.server.SimpleHTTPRequestHandler):
    def log_message(self, *_):
        pass


class Upstream:
    """A server of static files."""

    def __init__(self, folder):
        handler = functools.partial(Folder, directory=str(folder))
        self._server = http.server.ThreadingHTTPServer(("127.0.0.1", 0), handler)
        self._server.daemon_threads = True
        self.port = self._server.server_address[1]
        threading.Thread(target=self._server.serve_forever, daemon=True).start()

    def stop(self):
        self._server.shutdown()
        self._server.server_close()


class Relay:
    def __init__(self, program, upstream, store):
        user = ["--user", "nobody"] if os.geteuid() == 0 else []
        self._process = subprocess.Popen(
            [program, "relay", "--json", "--upstream", f"http://127.0.0.1:{upstream.port}", "--index",
             INDEX, "--store", str(store), "--unsigned", "--every", "1s", "--port", "0", *user],
            stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, text=True)
        self.port = json.loads(self._process.stdout.readline())["listening"]["port"]

    def wait_for(self, event):
        for line in self._process.stdout:
            if json.loads(line)["event"] == event:
                return

    def stop(self):
        self._process.terminate()
        self._process.communicate(timeout=60)
        return self._process.returncode


def see_looks(browser, pictures, what):
    seen = set()
    for name in fits(browser, what):
        for scheme in ("light", "dark"):
            browser.colours(scheme)
            seen.add(browser.evaluate("getComputedStyle(document.body).backgroundColor"))
            faint = browser.evaluate(CONTRAST)
            check(f"{what}: every text stands out in {scheme} colours on a {name}", faint == [], faint)
            if name in ("phone", "desktop"):
                browser.picture(pictures / f"{what}-{name}-{scheme}.png")
    check(f"{what}: the page has light and dark colours", len(seen) == 2, seen)


def see_service(browser, pictures):
    check("the relay shows what is in service",
          browser.wait_until(f"document.title === 'in service - zotconf relay' && "
                             f"{TEXT}.includes('{CONFIG_ID}')"), browser.evaluate(TEXT))
    check("and no problem", browser.evaluate("document.querySelector('.note') === null"))
    see_looks(browser, pictures, "relay")


def see_problem(browser, pictures):
    browser.evaluate("window.is_old = true")
    check("the page loads itself again, with the problem and what to do",
          browser.wait_until("window.is_old === undefined && document.title === "
                             "'in service, with a problem - zotconf relay' && "
                             "document.querySelector('.note')?.innerText.includes('cannot connect') && "
                             "document.querySelector('.note').innerText.includes('--upstream')"),
          browser.evaluate(TEXT))
    check("the problem is above the facts", browser.evaluate(
        "document.querySelector('.note').getBoundingClientRect().bottom <= "
        "document.querySelector('dl').getBoundingClientRect().top"))
    check("the facts of what is in service stay", browser.evaluate(f"{TEXT}.includes('{CONFIG_ID}')"))
    see_looks(browser, pictures, "relay-problem")


def see(browser, relay, upstream, pictures):
    relay.wait_for("updated")
    browser.call("Page.navigate", url=f"http://127.0.0.1:{relay.port}/")
    see_service(browser, pictures)
    upstream.stop()
    relay.wait_for("failing")
    see_problem(browser, pictures)
    check("the console has no error and no refusal", browser.problems == [], browser.problems)


def main(program, sample, pictures):
    pictures.mkdir(parents=True, exist_ok=True)
    with tempfile.TemporaryDirectory(ignore_cleanup_errors=True) as name:
        work = pathlib.Path(name)
        work.chmod(0o755)
        publish(program, sample, work / "publication", "AP", INDEX, "--config-id", CONFIG_ID)
        upstream = Upstream(work / "publication")
        relay = Relay(program, upstream, work / "store")
        try:
            browser = Browser(shutil.which("chromium"), work / "profile")
            try:
                see(browser, relay, upstream, pictures)
            except BrowserFailure as failure:
                check("the browser works", False, failure)
            finally:
                browser.close()
        finally:
            check("the relay ends when asked", relay.stop() == 0)
    print(f"{counts['passed']} passed, {counts['failed']} failed")
    return 1 if counts["failed"] else 0


if __name__ == "__main__":
    if len(sys.argv) != 4:
        sys.exit(__doc__)
    sys.exit(main(sys.argv[1], pathlib.Path(sys.argv[2]), pathlib.Path(sys.argv[3])))
