# SPDX-License-Identifier: Apache-2.0
"""Common code of the page tests: counts, and expressions that find what the page shows."""

import json

counts = {"passed": 0, "failed": 0}


def check(name, holds, detail=""):
    counts["passed" if holds else "failed"] += 1
    print(f"{'ok  ' if holds else 'FAIL'}  {name}" + ("" if holds else f": {detail}"), flush=True)


ANSWERS = "document.getElementById('state')?.textContent === 'The service responds.'"
FAILS = "document.getElementById('state')?.textContent.includes('does not respond')"
ROWS = "[...document.querySelectorAll('#elements-table > tbody')]"
NAMES = f"{ROWS}.map(row => row.querySelector('.name').textContent)"
SUMMARY = "document.getElementById('summary').textContent"

OVERHANG = """(() => {
  const width = document.documentElement.clientWidth;
  return [...document.body.querySelectorAll('*')]
    .filter(node => !node.closest('thead, caption') && node.getBoundingClientRect().right > width + 0.5)
    .map(node => `${node.tagName}.${node.className}`).slice(0, 5);
})()"""

CONTRAST = """(() => {
  const parts = text => text.match(/[\\d.]+/g).map(Number);
  const light = text => parts(text).slice(0, 3).map(part => part / 255)
    .map(part => part <= 0.03928 ? part / 12.92 : ((part + 0.055) / 1.055) ** 2.4)
    .reduce((sum, part, at) => sum + part * [0.2126, 0.7152, 0.0722][at], 0);
  const back = node => {
    for (; node; node = node.parentElement) {
      const colour = getComputedStyle(node).backgroundColor;
      if (parts(colour)[3] !== 0) return colour;
    }
  };
  return [...document.querySelectorAll('main *, header *')]
    .filter(node => node.checkVisibility() && [...node.childNodes].some(child => child.nodeType === 3 && child.data.trim()))
    .filter(node => !node.disabled)
    .map(node => {
      const [one, other] = [light(getComputedStyle(node).color), light(back(node))];
      return [`${node.tagName}.${node.className}`, (Math.max(one, other) + 0.05) / (Math.min(one, other) + 0.05)];
    }).filter(([, ratio]) => ratio < 4.5);
})()"""

SIZES = (("small-phone", 320, 640, True), ("phone", 360, 740, True), ("tablet", 800, 1100, True),
         ("desktop", 1280, 800, False))


def row(index):
    return f"{ROWS}.find(row => row.querySelector('.name').textContent === '{index}')"


def text_of(browser, index):
    return browser.evaluate(f"{row(index)}?.innerText ?? ''")


def click(browser, selector):
    browser.evaluate(f"document.querySelector({json.dumps(selector)}).click()")


def enter(browser, selector, value, event="input"):
    browser.evaluate(f"(node => {{ node.value = {json.dumps(value)}; "
                     f"node.dispatchEvent(new Event('{event}', {{bubbles: true}})); }})"
                     f"(document.querySelector({json.dumps(selector)}))")


def press(browser, key, code=None):
    """Sends a key like the keyboard."""
    text = {"Enter": "\r", "Space": " "}.get(key, "")
    value = " " if key == "Space" else key
    for kind in ("keyDown", "keyUp"):
        browser.call("Input.dispatchKeyEvent", type=kind, key=value, code=code or key,
                     windowsVirtualKeyCode={"Tab": 9, "Enter": 13, "Space": 32}.get(key, 0),
                     **({"text": text} if text and kind == "keyDown" else {}))


def fits(browser, what):
    """Checks that nothing is wider than the window, at each size."""
    for name, width, height, phone in SIZES:
        browser.size(width, height, phone)
        holds = browser.evaluate(
            "document.documentElement.scrollWidth <= document.documentElement.clientWidth "
            f"&& window.innerWidth === {width}")
        check(f"{what}: nothing is wider than a window of {width} pixels", holds,
              browser.evaluate("[document.documentElement.scrollWidth, window.innerWidth]"))
        overhang = browser.evaluate(OVERHANG)
        check(f"{what}: nothing is cut off at {width} pixels", overhang == [], overhang)
        yield name
