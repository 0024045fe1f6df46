#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""usage: status_page_test.py ZOTCONF SAMPLE PICTURES

Shows the status page of a real service in a real browser, and tests what a reader sees there."""

import http.client
import json
import os
import pathlib
import shutil
import subprocess
import sys
import tempfile

from browser import Browser, BrowserFailure

INDEX = "001122334455"
OTHER_INDEX = "AABBCCDDEEFF"
DAMAGED_INDEX = "CP-0000000000001"
HOSTILE = '/<img/src="x"onerror="window.hit=1">'
K_PATH = f"/file/knowledge/AP/{INDEX}/latest/{INDEX}.k"

counts = {"passed": 0, "failed": 0}


def check(name, holds, detail=""):
    counts["passed" if holds else "failed"] += 1
    print(f"{'ok  ' if holds else 'FAIL'}  {name}" + ("" if holds else f": {detail}"), flush=True)


class Service:
    def __init__(self, program, folder, port=0):
        self._process = subprocess.Popen(
            [program, "serve", "--json", str(folder), "--port", str(port)],
            stdout=subprocess.PIPE, text=True)
        line = self._process.stdout.readline()
        self.port = json.loads(line)["listening"]["port"]

    def ask(self, method, path, body=None):
        connection = http.client.HTTPConnection("127.0.0.1", self.port, timeout=60)
        connection.request(method, path, body)
        answer = connection.getresponse()
        answer.read()
        connection.close()
        return answer.status

    def stop(self):
        if self._process.poll() is None:
            self._process.terminate()
        self._process.stdout.close()
        return self._process.wait(60)


def publish(program, source, folder, subsys, index, *more):
    subprocess.run([program, "publish", source, "--out", folder, "--subsys", subsys, "--index",
                    index, "--cluster", "7d0b6a52-41c5-4b0e-9d7e-2f6f0c1a8e11", *more],
                   check=True, stdout=subprocess.DEVNULL)


def arrange(program, sample, work):
    source, folder = work / "source", work / "publication"
    shutil.copytree(sample, source)
    publish(program, source, folder, "AP", INDEX, "--firmware", "7.1.0", "--config-id",
            "3f2504e0-4f89-41d3-9a0c-0305e82c3301")
    publish(program, source, folder, "DP", OTHER_INDEX)
    publish(program, source, folder, "CP", DAMAGED_INDEX)
    damaged = folder / "file/knowledge/CP" / DAMAGED_INDEX / "latest" / f"{DAMAGED_INDEX}.k"
    damaged.write_text(damaged.read_text().replace("Wlan", "Vlan"))
    return source, folder


def entries_by_category(source):
    return {folder.name: len(list(folder.iterdir())) for folder in source.iterdir()}


def card(index):
    return (f"[...document.querySelectorAll('article')]"
            f".find(card => card.querySelector('h3').textContent.endsWith('{index}'))")


def shown_categories(browser, index):
    rows = browser.evaluate(
        f"[...{card(index)}.querySelectorAll('.categories tbody tr')]"
        ".map(row => [...row.cells].map(cell => cell.innerText))")
    return {row[0].strip(): int(row[1]) for row in rows}


def request_shown(path, *words):
    tests = " && ".join(f"row.textContent.includes({json.dumps(str(word))})" for word in words)
    return (f"[...document.querySelectorAll('#requests tr')].some(row => "
            f"row.querySelector('.path').textContent === {json.dumps(path)} && {tests})")


ANSWERS = "document.getElementById('state')?.textContent === 'The service answers.'"
FAILS = "document.getElementById('state')?.textContent.includes('does not answer')"


def see_publications(browser, source):
    check("the page has a title", browser.evaluate("document.title") == "zotconf service")
    check("a publication is shown by its sub-system and index",
          browser.evaluate(f"{card(INDEX)}.querySelector('h3').textContent") == f"AP {INDEX}")
    text = browser.evaluate(f"{card(INDEX)}.innerText")
    for fact in ("3f2504e0-4f89-41d3-9a0c-0305e82c3301", "7d0b6a52-41c5-4b0e-9d7e-2f6f0c1a8e11",
                 "7.1.0", "good", "KiB"):
        check(f"a publication is shown with its \"{fact}\"", fact in text, text)
    wanted, seen = entries_by_category(source), shown_categories(browser, INDEX)
    check("entries are counted by category", seen == wanted, f"{seen} instead of {wanted}")
    damaged = browser.evaluate(f"{card(DAMAGED_INDEX)}.innerText")
    check("a damaged publication is marked, with the reason",
          "damaged" in damaged and "checksum" in damaged.lower(), damaged)
    check("the others are not marked",
          browser.evaluate("document.querySelectorAll('.card.damaged').length") == 1)


def see_requests(browser, service):
    check("a request is shown with status and result",
          browser.evaluate(request_shown(K_PATH, "200", "sent K", "127.0.0.1", "ms")))
    check("a refused request is shown with the reason",
          browser.evaluate(request_shown("/tgz", "404", "no such file: /config/Wlan/none/1")))
    check("a hostile path is shown as it is", browser.evaluate(request_shown(HOSTILE, "404")))
    check("a hostile path adds no element and runs nothing",
          browser.evaluate("document.images.length === 0 && window.hit === undefined"))
    browser.evaluate("window.still_here = true")
    service.ask("GET", "/asked/later")
    check("a later request appears", browser.wait_until(request_shown("/asked/later", "404")))
    check("without loading the page again", browser.evaluate("window.still_here === true"))


def see_a_new_publication(browser, program, source, folder):
    browser.evaluate(f"{card(OTHER_INDEX)}.querySelector('details').open = false")
    (source / "Wlan" / "added").write_text("ssid=added\n")
    publish(program, source, folder, "DP", OTHER_INDEX)
    wlans = entries_by_category(source)["Wlan"]
    rows = f"[...{card(OTHER_INDEX)}.querySelectorAll('.categories tbody tr')]"
    check("a new publication appears with its entries", browser.wait_until(
        f"{rows}.some(row => row.cells[0].textContent === 'Wlan' && "
        f"row.cells[1].textContent === '{wlans}')"))
    check("what the reader closed stays closed",
          not browser.evaluate(f"{card(OTHER_INDEX)}.querySelector('details').open"))


OVERHANG = """(() => {
  const width = document.documentElement.clientWidth;
  return [...document.body.querySelectorAll('*')]
    .filter(node => !node.closest('thead, caption') && node.getBoundingClientRect().right > width + 0.5)
    .map(node => `${node.tagName}.${node.className}`).slice(0, 5);
})()"""


def see_sizes(browser, pictures):
    browser.evaluate(f"{card(INDEX)}.querySelector('details').open = true")
    for name, width, height, phone in (("small-phone", 320, 640, True), ("phone", 360, 740, True),
                                       ("tablet", 800, 1100, True),
                                       ("desktop", 1280, 800, False)):
        browser.size(width, height, phone)
        fits = browser.evaluate(
            "document.documentElement.scrollWidth <= document.documentElement.clientWidth "
            f"&& window.innerWidth === {width}")
        check(f"nothing is wider than a window of {width} pixels", fits,
              browser.evaluate("[document.documentElement.scrollWidth, window.innerWidth]"))
        overhang = browser.evaluate(OVERHANG)
        check(f"nothing is cut off at {width} pixels", overhang == [], overhang)
        for scheme in ("light", "dark"):
            browser.colours(scheme)
            browser.picture(pictures / f"{name}-{scheme}.png")


def see_colours(browser):
    seen = set()
    for scheme in ("light", "dark"):
        browser.colours(scheme)
        seen.add(browser.evaluate("getComputedStyle(document.body).backgroundColor"))
    check("the page has light and dark colours", len(seen) == 2, seen)
    browser.colours("light")


def see_structure(browser):
    browser.size(360, 740, True)
    roles = [node["role"]["value"]
             for node in browser.call("Accessibility.getFullAXTree")["nodes"] if "role" in node]
    check("the requests stay a table with titled columns for a screen reader on a phone",
          roles.count("columnheader") >= 8 and roles.count("table") >= 1, sorted(set(roles)))
    check("a change of state is announced", browser.evaluate(
        "document.getElementById('state').getAttribute('aria-live') === 'polite'"))
    check("every title of a table says what it stands for",
          browser.evaluate("[...document.querySelectorAll('th')].every(cell => cell.scope)"))


def see_failure(browser, program, folder, service, pictures):
    check("the service ends when asked", service.stop() == 0)
    check("a service that does not answer is told", browser.wait_until(FAILS))
    check("the last data stays in sight",
          browser.evaluate(request_shown(K_PATH, "200")) and
          browser.evaluate(f"{card(INDEX)} !== undefined"))
    browser.picture(pictures / "phone-no-answer.png")
    browser.size(1280, 800, False)
    browser.picture(pictures / "desktop-no-answer.png")
    again = Service(program, folder, service.port)
    try:
        check("a service that is back is told", browser.wait_until(ANSWERS))
        check("with what it knows now", browser.wait_until(
            "document.querySelectorAll('#requests tr').length === 0 && "
            "!document.getElementById('no-requests').hidden"))
        browser.picture(pictures / "desktop-no-requests.png")
        see_policy(browser)
    finally:
        again.stop()


def see_policy(browser):
    browser.evaluate("""(() => {
      const script = document.createElement('script');
      script.textContent = 'window.hit = 1';
      document.body.append(script);
    })()""")
    check("no other script runs", browser.evaluate("window.hit === undefined"))
    check("no other host is asked", browser.evaluate(
        "fetch('http://127.0.0.2:9/').then(() => false, () => true)"))
    refused = [text for text in browser.problems if "Content Security Policy" in text]
    check("the browser tells that the policy refused both", len(refused) >= 2, browser.problems)


def see(browser, program, source, folder, service, pictures):
    browser.size(1280, 800, False)
    browser.call("Page.navigate", url=f"http://127.0.0.1:{service.port}/")
    check("the page shows that the service answers", browser.wait_until(ANSWERS))
    see_publications(browser, source)
    see_requests(browser, service)
    see_a_new_publication(browser, program, source, folder)
    see_sizes(browser, pictures)
    see_colours(browser)
    see_structure(browser)
    check("the console tells of no error and no refusal", browser.problems == [], browser.problems)
    see_failure(browser, program, folder, service, pictures)


def main(program, sample, pictures):
    pictures.mkdir(parents=True, exist_ok=True)
    with tempfile.TemporaryDirectory(ignore_cleanup_errors=True) as name:
        work = pathlib.Path(name)
        source, folder = arrange(program, sample, work)
        service = Service(program, folder)
        try:
            element = work / "element"
            element.mkdir()
            subprocess.run([program, "cycle", "--index", INDEX, "--commit"], check=True,
                           stdout=subprocess.DEVNULL,
                           env={**os.environ, "ZOT_PREFIX_CONF_ROOT": str(element),
                                "ZOT_PREFIX_TMP_ROOT": str(element),
                                "ZOT_REMOTE_PORT": str(service.port)})
            service.ask("POST", "/tgz", json.dumps({"files": ["/config/Wlan/none/1"]}))
            service.ask("GET", HOSTILE)
            browser = Browser(shutil.which("chromium"), work / "profile")
            try:
                see(browser, program, source, folder, service, pictures)
            except BrowserFailure as failure:
                check("the browser works", False, failure)
            finally:
                browser.close()
        finally:
            service.stop()
    print(f"{counts['passed']} passed, {counts['failed']} failed")
    return 1 if counts["failed"] else 0


if __name__ == "__main__":
    if len(sys.argv) != 4:
        sys.exit(__doc__)
    sys.exit(main(sys.argv[1], pathlib.Path(sys.argv[2]), pathlib.Path(sys.argv[3])))
