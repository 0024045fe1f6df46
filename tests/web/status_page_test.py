#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""usage: status_page_test.py ZOTCONF SAMPLE PICTURES

Opens the status page of a real service in a real browser and tests what it shows."""

import json
import pathlib
import re
import shutil
import sys
import tempfile

from browser import Browser, BrowserFailure
from checks import ANSWERS, CONTRAST, FAILS, NAMES, ROWS, check, click, counts, enter, fits, press, row, text_of
from many_elements import see_many_elements
from service import CLUSTER, Service, fetch, path_of, publish

INDEX = "001122334455"
OTHER_INDEX = "AABBCCDDEEFF"
DAMAGED_INDEX = "CP-0000000000001"
MISSING_INDEX = "5566778899AA"
UNKNOWN_INDEX = "FFFFFFFFFFFF"
CONFIG_ID = "3f2504e0-4f89-41d3-9a0c-0305e82c3301"
HOSTILE = '/<img/src="x"onerror="window.hit=1">'
K_PATH = path_of("AP", INDEX)
TIME = r"\d{4}-\d\d-\d\d \d\d:\d\d:\d\d UTC"


def arrange(program, sample, work):
    source, lacking, folder = work / "source", work / "lacking", work / "publication"
    shutil.copytree(sample, source)
    publish(program, source, folder, "AP", INDEX, "--firmware", "7.1.0", "--config-id", CONFIG_ID)
    publish(program, source, folder, "DP", OTHER_INDEX)
    publish(program, source, folder, "CP", DAMAGED_INDEX)
    damaged = folder / path_of("CP", DAMAGED_INDEX)[1:]
    damaged.write_text(damaged.read_text().replace("Wlan", "Vlan"))
    (lacking / "Wlan").mkdir(parents=True)
    (lacking / "Wlan/lost").write_text("ssid=lost\n")
    publish(program, lacking, folder, "AP", MISSING_INDEX)
    (folder / "config/Wlan/lost/1").unlink()
    return source, lacking, folder


def entries_by_category(source):
    return {folder.name: len(list(folder.iterdir())) for folder in source.iterdir()}


def request_shown(path, *words):
    tests = " && ".join(f"row.textContent.includes({json.dumps(str(word))})" for word in words)
    return (f"[...document.querySelectorAll('#request-rows tr')].some(row => "
            f"row.querySelector('.path').textContent === {json.dumps(path)} && {tests})")


def turn_to(browser, view):
    click(browser, f"#{view}-link")
    browser.wait_until(f"!document.getElementById('{view}').hidden")


def see_problems(browser):
    check("problems come first", browser.evaluate(NAMES)[:3] ==
          [MISSING_INDEX, UNKNOWN_INDEX, DAMAGED_INDEX], browser.evaluate(NAMES))
    for index, words in ((DAMAGED_INDEX, ("checksum mismatch", "ZOT_ERR_CORRUPTED (-8)")),
                         (MISSING_INDEX, ("config/Wlan/lost/1 is missing", "(-6)")),
                         (UNKNOWN_INDEX, ("Nothing is published", "ZOT_ERR_NOT_FOUND"))):
        text = text_of(browser, index)
        for word in (*words, "zotconf publish SRC --out", index, "problem"):
            check(f"the problem of {index} is shown with \"{word}\"", word in text, text)
    check("the title counts the problems",
          browser.evaluate("document.title") == "3 problems - zotconf service")
    click(browser, "[data-state=problem]")
    check("only the problems are shown", browser.wait_until(f"{ROWS}.length === 3"))
    click(browser, "[data-state=good]")
    check("only the others are shown", browser.wait_until(f"{ROWS}.length === 2"))
    click(browser, "[data-state=all]")
    check("all are shown again", browser.wait_until(f"{ROWS}.length === 5"))


def see_configuration(browser):
    text = text_of(browser, INDEX)
    for fact in (f"AP {INDEX}", CONFIG_ID, "7.1.0", "good", "KiB", "entries"):
        check(f"an element is shown with its \"{fact}\"", fact in text, text)
    check("a time is shown with its zone", re.search(f"written {TIME}", text), text)


def see_fetches(browser, program, source, folder):
    text = text_of(browser, INDEX)
    check("an element that fetched what is published is up to date", "up to date" in text, text)
    check("its last fetch is shown with time and client",
          re.search(f"K {TIME}\\s+from 127.0.0.1", text), text)
    check("an element that asked for the checksum alone is shown so",
          "asked, fetched no K" in text_of(browser, OTHER_INDEX))
    check("an element that never asked is shown so", "never asked" in text_of(browser, DAMAGED_INDEX))
    publish(program, source, folder, "AP", INDEX, "--firmware", "7.2.0")
    check("an element that lacks the new publication is shown so",
          browser.wait_until(f"{row(INDEX)}?.innerText.includes('has an older one')"))
    enter(browser, "#fetch", "older", "change")
    check("elements are found by their last fetch",
          browser.wait_until(f"{NAMES}.join() === '{INDEX}'"))
    enter(browser, "#fetch", "all", "change")
    browser.wait_until(f"{ROWS}.length === 5")


def see_details(browser, source):
    check("details are closed at first",
          browser.evaluate("document.querySelectorAll('.more').length") == 0)
    browser.evaluate(f"{row(INDEX)}.querySelector('button').focus()")
    press(browser, "Enter")
    check("details open by a key",
          browser.wait_until(f"{row(INDEX)}.querySelector('.categories') !== null"))
    rows = browser.evaluate(f"[...{row(INDEX)}.querySelectorAll('.categories tbody tr')]"
                            ".map(row => [...row.cells].map(cell => cell.innerText))")
    wanted, seen = entries_by_category(source), {cells[0].strip(): int(cells[1]) for cells in rows}
    check("entries are counted by category", seen == wanted, f"{seen} instead of {wanted}")
    text = text_of(browser, INDEX)
    for fact in (CLUSTER, CONFIG_ID, "Files checked", "Fetched checksum"):
        check(f"details show \"{fact}\"", fact in text, text)
    browser.evaluate(f"{row(MISSING_INDEX)}.querySelector('button').click()")
    check("details list the files that are missing", browser.wait_until(
        f"{row(MISSING_INDEX)}.querySelector('.faults')?.textContent.includes('lost/1 is missing')"))


def see_news(browser, program, source, lacking, folder):
    (source / "Wlan" / "added").write_text("ssid=added\n")
    publish(program, source, folder, "AP", INDEX, "--firmware", "7.3.0")
    wlans = entries_by_category(source)["Wlan"]
    cells = f"[...{row(INDEX)}.querySelectorAll('.categories tbody tr')]"
    check("details that are open follow a new publication", browser.wait_until(
        f"{row(INDEX)}.innerText.includes('7.3.0') && {cells}.some(row => "
        f"row.cells[0].textContent === 'Wlan' && row.cells[1].textContent === '{wlans}')"))
    check("the focus stays where it was",
          browser.evaluate(f"document.activeElement.closest('tbody') === {row(INDEX)}"))
    publish(program, lacking, folder, "AP", MISSING_INDEX)
    check("a problem goes when its advice is followed", browser.wait_until(
        f"{row(MISSING_INDEX)}?.innerText.includes('good')"))
    (folder / "config/Wlan/lost/1").unlink()
    publish(program, lacking, folder, "AP", MISSING_INDEX, "--dry-run")
    k = folder / path_of("AP", MISSING_INDEX)[1:]
    k.touch()
    check("and comes back with its cause", browser.wait_until(
        f"{row(MISSING_INDEX)}?.innerText.includes('is missing')"))


def see_requests(browser, service):
    turn_to(browser, "requests")
    check("a request is shown with status and result", browser.wait_until(
        request_shown(K_PATH, "200", "sent K", "127.0.0.1", "ms", "UTC")))
    check("a refused request is shown with the reason",
          browser.evaluate(request_shown("/tgz", "404", "no such file: /config/Wlan/none/1")))
    check("a hostile path is shown as it is", browser.evaluate(request_shown(HOSTILE, "404")))
    check("a hostile path adds no element and runs nothing",
          browser.evaluate("document.images.length === 0 && window.hit === undefined"))
    browser.evaluate("window.still_here = true")
    service.ask("GET", "/asked/later")
    check("a later request appears", browser.wait_until(request_shown("/asked/later", "404")))
    check("without loading the page again", browser.evaluate("window.still_here === true"))
    check("the elements are out of sight", browser.evaluate("document.getElementById('elements').hidden"))


def see_keyboard(browser):
    """Tab reaches every control, in the order of the page."""
    browser.evaluate("document.activeElement.blur(); getSelection().removeAllRanges(); "
                     "document.getElementById('elements-link').focus()")
    reached = []
    for _ in range(8):
        press(browser, "Tab")
        reached.append(browser.evaluate(
            "document.activeElement.id || document.activeElement.dataset.state || "
            "document.activeElement.getAttribute('aria-label')"))
    wanted = ["requests-link", "filter", "all", "problem", "good", "fetch"]
    check("the keyboard reaches every control", reached[:6] == wanted, reached)
    check("and the elements after them", str(reached[6]).startswith("Details of"), reached)


def see_address(browser):
    enter(browser, "#filter", OTHER_INDEX.lower())
    browser.wait_until(f"{NAMES}.join() === '{OTHER_INDEX}'")
    browser.call("Page.reload")
    check("a page that is loaded again shows the same", browser.wait_until(
        f"document.getElementById('filter')?.value === '{OTHER_INDEX.lower()}' && "
        f"{NAMES}.join() === '{OTHER_INDEX}'"))
    browser.evaluate("history.replaceState(null, '', '/?size=9999')")
    browser.call("Page.reload")
    check("the error of a rejected query is shown", browser.wait_until(
        "document.getElementById('refusal')?.textContent.includes('size has to be a number')"))
    browser.problems.clear()  # The browser logs the 400 itself.
    browser.evaluate("history.replaceState(null, '', '/')")
    browser.call("Page.reload")
    browser.wait_until(f"{ROWS}.length === 5")


def see_structure(browser):
    for width in (360, 1280):
        browser.size(width, 740, width == 360)
        nodes = browser.call("Accessibility.getFullAXTree")["nodes"]
        roles = [node["role"]["value"] for node in nodes if "role" in node]
        check(f"the elements are a table with titled columns for a screen reader at {width} pixels",
              roles.count("columnheader") >= 6 and roles.count("rowheader") >= 5 and "table" in roles,
              sorted(set(roles)))
        named = [node for node in nodes if node.get("role", {}).get("value") in
                 ("button", "searchbox", "combobox", "spinbutton", "link")]
        nameless = [node["role"]["value"] for node in named if not node.get("name", {}).get("value")]
        check(f"every control has a name at {width} pixels", named and nameless == [], nameless)
    check("a change of state is announced",
          browser.evaluate("document.getElementById('state').getAttribute('role') === 'status'"))
    check("every table header has a scope",
          browser.evaluate("[...document.querySelectorAll('th')].every(cell => cell.scope)"))


def see_colours(browser):
    seen = set()
    for scheme in ("light", "dark"):
        browser.colours(scheme)
        seen.add(browser.evaluate("getComputedStyle(document.body).backgroundColor"))
        faint = browser.evaluate(CONTRAST)
        check(f"every text stands out in {scheme} colours", faint == [], faint)
    check("the page has light and dark colours", len(seen) == 2, seen)
    browser.colours("light")


def take_pictures(browser, pictures, view):
    browser.evaluate("scrollTo(0, 0)")
    for name in fits(browser, view):
        if name not in ("phone", "desktop"):
            continue
        for scheme in ("light", "dark"):
            browser.colours(scheme)
            browser.picture(pictures / f"{view}-{name}-{scheme}.png")
    browser.colours("light")


def see_failure(browser, program, folder, service, pictures):
    check("the service ends when asked", service.stop() == 0)
    check("a service that does not respond is reported", browser.wait_until(FAILS))
    check("the last data stays in sight", browser.evaluate(f"{row(INDEX)} !== undefined"))
    browser.size(360, 740, True)
    browser.picture(pictures / "no-answer-phone.png", of_window=True)
    browser.size(1280, 800, False)
    browser.picture(pictures / "no-answer-desktop.png", of_window=True)
    again = Service(program, folder, service.port)
    try:
        check("a service that is back is reported", browser.wait_until(ANSWERS))
        turn_to(browser, "requests")
        check("with its current data", browser.wait_until(
            "document.querySelectorAll('#request-rows tr').length === 0 && "
            "!document.getElementById('no-requests').hidden"))
        browser.picture(pictures / "no-requests-desktop.png")
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
    check("no request goes to another host", browser.evaluate(
        "fetch('http://127.0.0.2:9/').then(() => false, () => true)"))
    refused = [text for text in browser.problems if "Content Security Policy" in text]
    check("the browser reports that the policy blocked both", len(refused) >= 2, browser.problems)


def see(browser, program, places, service, pictures):
    source, lacking, folder = places
    browser.size(1280, 800, False)
    browser.call("Page.navigate", url=f"http://127.0.0.1:{service.port}/")
    check("the page shows that the service responds", browser.wait_until(ANSWERS))
    browser.wait_until(f"{ROWS}.length === 5")
    see_problems(browser)
    see_configuration(browser)
    see_keyboard(browser)
    see_fetches(browser, program, source, folder)
    see_details(browser, source)
    see_news(browser, program, source, lacking, folder)
    see_colours(browser)
    take_pictures(browser, pictures, "elements")
    see_structure(browser)
    see_requests(browser, service)
    see_colours(browser)
    take_pictures(browser, pictures, "requests")
    turn_to(browser, "elements")
    check("the console has no error and no refusal", browser.problems == [], browser.problems)
    see_address(browser)
    see_failure(browser, program, folder, service, pictures)


def ask_as_elements(program, service, work):
    fetch(program, service.port, work, INDEX)
    service.ask("GET", path_of("DP", OTHER_INDEX, "checksum"))
    service.ask("GET", path_of("AP", UNKNOWN_INDEX, "checksum"))
    service.ask("POST", "/tgz", json.dumps({"files": ["/config/Wlan/none/1"]}))
    service.ask("GET", HOSTILE)


def main(program, sample, pictures):
    pictures.mkdir(parents=True, exist_ok=True)
    with tempfile.TemporaryDirectory(ignore_cleanup_errors=True) as name:
        work = pathlib.Path(name)
        places = arrange(program, sample, work)
        service = Service(program, places[-1])
        try:
            ask_as_elements(program, service, work)
            browser = Browser(shutil.which("chromium"), work / "profile")
            try:
                see_many_elements(browser, program, pictures)
                see(browser, program, places, service, pictures)
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
