# SPDX-License-Identifier: Apache-2.0
"""A headless Chromium, controlled over a pair of pipes: no package and no port is needed."""

import base64
import fcntl
import json
import os
import select
import signal
import subprocess
import time

PATIENCE = 60  # seconds, enough for a loaded machine; a wait ends as soon as its condition holds


class BrowserFailure(Exception):
    pass


class Browser:
    def __init__(self, program, profile):
        command_read, self._commands = os.pipe()
        self._answers, answer_write = os.pipe()
        theirs = [fcntl.fcntl(fd, fcntl.F_DUPFD, 10) for fd in (command_read, answer_write)]
        os.close(command_read)
        os.close(answer_write)

        def hand_over():
            os.dup2(theirs[0], 3)
            os.dup2(theirs[1], 4)

        self._process = subprocess.Popen(
            [program, "--headless=new", "--no-sandbox", "--disable-gpu", "--no-first-run",
             "--disable-dev-shm-usage", "--disable-background-networking", "--disable-extensions",
             "--hide-scrollbars", f"--user-data-dir={profile}", "--remote-debugging-pipe",
             "about:blank"],
            stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL,
            preexec_fn=hand_over, pass_fds=(3, 4), start_new_session=True)
        for fd in theirs:
            os.close(fd)
        self._buffer = b""
        self._number = 0
        self._session = None
        self.problems = []  # errors and refusals on the browser's console
        self._open_page()

    def close(self):
        try:
            self.call("Browser.close", of_page=False)
            self._process.wait(10)
        except (BrowserFailure, OSError, subprocess.TimeoutExpired):
            pass
        finally:
            try:
                os.killpg(self._process.pid, signal.SIGKILL)
            except ProcessLookupError:
                pass
            self._process.wait()

    def call(self, method, of_page=True, **params):
        self._number += 1
        number = self._number
        message = {"id": number, "method": method, "params": params}
        if of_page:
            message["sessionId"] = self._session
        os.write(self._commands, json.dumps(message).encode() + b"\0")
        deadline = time.monotonic() + PATIENCE
        while True:
            answer = self._next(deadline)
            if answer.get("id") != number:
                self._take_event(answer)
            elif "error" in answer:
                raise BrowserFailure(f"{method}: {answer['error']['message']}")
            else:
                return answer["result"]

    def evaluate(self, expression):
        answer = self.call("Runtime.evaluate", expression=expression, returnByValue=True,
                           awaitPromise=True)
        if "exceptionDetails" in answer:
            raise BrowserFailure(f"{expression}: {answer['exceptionDetails']}")
        return answer["result"].get("value")

    def wait_until(self, expression):
        """Returns True as soon as the expression is true, False after a timeout."""
        deadline = time.monotonic() + PATIENCE
        while time.monotonic() < deadline:
            if self.evaluate(expression):
                return True
            time.sleep(0.05)
        return False

    def size(self, width, height, phone):
        self.call("Emulation.setDeviceMetricsOverride", width=width, height=height,
                  deviceScaleFactor=2 if phone else 1, mobile=phone)

    def colours(self, scheme):
        self.call("Emulation.setEmulatedMedia",
                  features=[{"name": "prefers-color-scheme", "value": scheme}])

    def picture(self, path, of_window=False):
        """Takes a picture of the whole page, or of the visible part."""
        metrics = self.call("Page.getLayoutMetrics")
        size = metrics["cssContentSize"]
        if of_window:
            size = {"width": size["width"], "height": metrics["cssLayoutViewport"]["clientHeight"]}
        answer = self.call("Page.captureScreenshot", captureBeyondViewport=True,
                           clip={"x": 0, "y": 0, "width": size["width"], "height": size["height"],
                                 "scale": 1})
        with open(path, "wb") as file:
            file.write(base64.b64decode(answer["data"]))

    def _open_page(self):
        target = self.call("Target.createTarget", of_page=False, url="about:blank")["targetId"]
        self._session = self.call("Target.attachToTarget", of_page=False, targetId=target,
                                  flatten=True)["sessionId"]
        for domain in ("Page", "Runtime", "Log", "Accessibility"):
            self.call(f"{domain}.enable")

    def _next(self, deadline):
        while b"\0" not in self._buffer:
            ready, _, _ = select.select([self._answers], [], [], max(0, deadline - time.monotonic()))
            data = os.read(self._answers, 1 << 20) if ready else b""
            if not data:
                raise BrowserFailure("the browser does not respond")
            self._buffer += data
        message, self._buffer = self._buffer.split(b"\0", 1)
        return json.loads(message)

    def _take_event(self, event):
        params = event.get("params", {})
        if event.get("method") == "Runtime.exceptionThrown":
            self.problems.append(params["exceptionDetails"].get("text", "exception"))
        elif event.get("method") == "Runtime.consoleAPICalled":
            self.problems.append(f"console.{params['type']}")
        elif event.get("method") == "Log.entryAdded":
            self.problems.append(params["entry"]["text"])
