#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""usage: fleet_page_test.py ZOTCONF SAMPLE PICTURES

Opens the page of `zotconf fleet --html` in a real browser, from a server of static files: a rollout
with elements in every state, and hostile texts in the reports."""

import functools
import hashlib
import http.server
import json
import pathlib
import shutil
import subprocess
import sys
import tempfile
import threading

from browser import Browser, BrowserFailure
from checks import CONTRAST, check, counts, fits
from service import path_of, publish

CONFIG_ID = "3f2504e0-4f89-41d3-9a0c-0305e82c3301"
TEXT = "document.body.innerText"
HOSTILE = "<img src=x onerror=\"document.title='run'\">" + "x" * 200


class Folder(http.server.SimpleHTTPRequestHandler):
    def log_message(self, *_):
        pass


def report(digest, number):
    """One of five states."""
    members = [{"in_force": {"digest": digest}},
               {"in_force": {"digest": digest}},
               {"refused": {"digest": digest, "reason": "apply: exit status 1"}},
               {"problem": {"text": HOSTILE}},
               {}]
    return json.dumps({"format": 1, **members[number % 5]})


def make_fleet(program, sample, work):
    (work / "reports/AP").mkdir(parents=True)
    for number in range(12):
        index = f"00112233{number:04X}"
        publish(program, sample, work / "publication", "AP", index, "--config-id", CONFIG_ID)
        k = work / "publication" / path_of("AP", index)[1:]
        digest = hashlib.sha256(k.read_bytes()).hexdigest()
        if number < 10:
            (work / f"reports/AP/{index}.json").write_text(report(digest, number))
    (work / "reports/AP/unknown.json").write_text("{}")


def write_page(program, work):
    done = subprocess.run(
        [program, "fleet", str(work / "publication"), str(work / "reports"), "--max-refused", "5%",
         "--html", str(work / "publication/fleet.html")], stdout=subprocess.DEVNULL, check=False)
    check("too many have refused", done.returncode == 9, done.returncode)


def see(browser, port, pictures):
    browser.call("Page.navigate", url=f"http://127.0.0.1:{port}/fleet.html")
    check("the page shows the publication",
          browser.wait_until(f"document.title === 'refused by too many - zotconf fleet' && "
                             f"{TEXT}.includes('{CONFIG_ID}')"), browser.evaluate(TEXT))
    text = browser.evaluate(TEXT)
    for part in ("in force 4 (33.3%)", "refused 2 (16.6%)", "failing 2 (16.6%)",
                 "waiting 2 (16.6%)", "silent 2 (16.6%)", "2 of 12 elements refused it",
                 "AP unknown: has a report but no K"):
        check(f"the page says: {part}", part in text, text)
    check("each state has its part of the bar", browser.evaluate(
        "[...document.querySelectorAll('svg.bar rect')].map(part => part.getAttribute('class'))"
        ".join(' ')") == "in_force refused failing waiting silent")
    check("the parts have colours of their own", browser.evaluate(
        "new Set([...document.querySelectorAll('svg.bar rect')]"
        ".map(part => getComputedStyle(part).fill)).size") == 5)
    check("no text of a report becomes a part of the page",
          browser.evaluate("document.querySelector('img') === null"))
    for name in fits(browser, "fleet"):
        for scheme in ("light", "dark"):
            browser.colours(scheme)
            faint = browser.evaluate(CONTRAST)
            check(f"every text stands out in {scheme} colours on a {name}", faint == [], faint)
            if name in ("phone", "desktop"):
                browser.picture(pictures / f"fleet-{name}-{scheme}.png")
    check("the console has no error and no refusal", browser.problems == [], browser.problems)


def main(program, sample, pictures):
    pictures.mkdir(parents=True, exist_ok=True)
    with tempfile.TemporaryDirectory(ignore_cleanup_errors=True) as name:
        work = pathlib.Path(name)
        make_fleet(program, sample, work)
        write_page(program, work)
        handler = functools.partial(Folder, directory=str(work / "publication"))
        server = http.server.ThreadingHTTPServer(("127.0.0.1", 0), handler)
        server.daemon_threads = True
        threading.Thread(target=server.serve_forever, daemon=True).start()
        browser = Browser(shutil.which("chromium"), work / "profile")
        try:
            see(browser, server.server_address[1], pictures)
        except BrowserFailure as failure:
            check("the browser works", False, failure)
        finally:
            browser.close()
            server.shutdown()
            server.server_close()
    print(f"{counts['passed']} passed, {counts['failed']} failed")
    return 1 if counts["failed"] else 0


if __name__ == "__main__":
    if len(sys.argv) != 4:
        sys.exit(__doc__)
    sys.exit(main(sys.argv[1], pathlib.Path(sys.argv[2]), pathlib.Path(sys.argv[3])))
