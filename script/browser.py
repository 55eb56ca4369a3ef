"""Chromium without a window, led through the pipe of its debugging protocol: for tests and pictures of pages."""
import base64
import contextlib
import json
import os
import select
import shutil
import signal
import tempfile
import time

PATIENCE = 60  # seconds: a machine may be slow, and busy with other things
# Names lead nowhere: what a page would load from elsewhere fails at once, and is seen. Root has no sandbox of its own.
OPTIONS = ("--headless=new", "--no-sandbox", "--remote-debugging-pipe", "--disable-gpu", "--disable-dev-shm-usage",
           "--disable-background-networking", "--disable-component-update", "--disable-extensions", "--no-first-run",
           "--mute-audio", "--hide-scrollbars", "--host-resolver-rules=MAP * ~NOTFOUND, EXCLUDE 127.0.0.1")


def program():
    """Its path, None where there is none."""
    return shutil.which("chromium")


class Gone(Exception):
    """The browser ended, or does not answer."""


class Browser:
    """Commands and their results, and what the browser tells in between, in one thread."""

    def __init__(self):
        self.folder = tempfile.mkdtemp()
        theirs, self.to = os.pipe()
        self.fro, also_theirs = os.pipe()
        log = (os.POSIX_SPAWN_OPEN, 2, f"{self.folder}/log", os.O_CREAT | os.O_WRONLY, 0o600)
        self.pid = os.posix_spawn(program(), ["chromium", *OPTIONS, f"--user-data-dir={self.folder}/profile", "about:blank"],
                                  {**os.environ, "HOME": self.folder}, setsid=True,
                                  file_actions=[log, *self._as(theirs, 3), *self._as(also_theirs, 4)])
        os.close(theirs)
        os.close(also_theirs)
        self.rest, self.last, self.results, self.pages = b"", 0, {}, {}

    @staticmethod
    def _as(end, number):
        return [(os.POSIX_SPAWN_DUP2, end, number)]

    def close(self):
        with contextlib.suppress(ProcessLookupError):
            os.killpg(self.pid, signal.SIGKILL)
        os.waitpid(self.pid, 0)
        os.close(self.to)
        os.close(self.fro)
        shutil.rmtree(self.folder, ignore_errors=True)

    def log(self):
        with open(f"{self.folder}/log", errors="replace") as file:
            return file.read()[-2000:]

    def call(self, method, page="", **parameters):
        """What the browser answers to a command; RuntimeError when it refuses."""
        self.last += 1
        number = self.last
        message = {"id": number, "method": method, "params": parameters, **({"sessionId": page} if page else {})}
        try:
            self._write(json.dumps(message).encode() + b"\0")
        except BrokenPipeError as error:
            raise Gone(self.log()) from error
        self.wait_for(method, lambda: number in self.results)
        answer = self.results.pop(number)
        if "error" in answer:
            raise RuntimeError(f"{method}: {answer['error']['message']}")
        return answer["result"]

    def _write(self, data):
        while data:
            data = data[os.write(self.to, data):]

    def wait_for(self, what, condition):
        """Listens until the condition holds."""
        end = time.monotonic() + PATIENCE
        while not condition():
            if time.monotonic() > end:
                raise Gone(f"{what}: not within {PATIENCE} s\n{self.log()}")
            self._listen(0.05)

    def _listen(self, seconds):
        if not select.select([self.fro], [], [], seconds)[0]:
            return
        data = os.read(self.fro, 1 << 20)
        if not data:
            raise Gone(self.log())
        *messages, self.rest = (self.rest + data).split(b"\0")
        for message in map(json.loads, messages):
            if "id" in message:
                self.results[message["id"]] = message
            elif page := self.pages.get(message.get("sessionId")):
                page.told(message["method"], message["params"])

    def page(self):
        target = self.call("Target.createTarget", url="about:blank")["targetId"]
        page = Page(self, self.call("Target.attachToTarget", targetId=target, flatten=True)["sessionId"])
        self.pages[page.name] = page
        for domain in ("Page", "Runtime", "Network", "Log"):
            page.call(f"{domain}.enable")
        return page


class Page:
    """One page; what went wrong in it and what it asked for is collected until somebody takes it."""

    def __init__(self, browser, name):
        self.browser, self.name = browser, name
        self.loads, self.faults, self.asked, self.answers = 0, [], {}, []

    def call(self, method, **parameters):
        return self.browser.call(method, self.name, **parameters)

    def told(self, event, said):
        if event == "Page.loadEventFired":
            self.loads += 1
        elif event == "Runtime.exceptionThrown":
            self.faults.append(str(said["exceptionDetails"]))
        elif event == "Runtime.consoleAPICalled" and said["type"] in ("error", "warning", "assert"):
            self.faults.append(str(said["args"]))
        elif event == "Log.entryAdded" and said["entry"]["level"] in ("error", "warning"):  # broken rules of the page, too
            self.faults.append(f"{said['entry']['text']} {said['entry'].get('url', '')}")
        elif event == "Page.javascriptDialogOpening":
            self.faults.append(f"a dialog: {said['message']}")
        elif event == "Network.requestWillBeSent":
            self.asked[said["requestId"]] = said["request"]["url"]
        elif event == "Network.responseReceived":
            self.answers.append(said["response"])

    def go(self, address):
        """Shows an address, whole."""
        self.after_load(lambda: self.call("Page.navigate", url=address))

    def after_load(self, action):
        before = self.loads
        action()
        self.browser.wait_for("a page", lambda: self.loads > before)

    def size(self, width, height, scale=1):
        self.call("Emulation.setDeviceMetricsOverride", width=width, height=height, deviceScaleFactor=scale,
                  mobile=width < 600)

    def scheme(self, name):
        """dark or light"""
        self.call("Emulation.setEmulatedMedia", features=[{"name": "prefers-color-scheme", "value": name}])

    def run(self, script):
        """The value of an expression, of a promise what it comes to."""
        done = self.call("Runtime.evaluate", expression=script, awaitPromise=True, returnByValue=True)
        if "exceptionDetails" in done:
            raise RuntimeError(f"{script[:200]}: {done['exceptionDetails']}")
        return done["result"].get("value")

    def until(self, script):
        self.browser.wait_for(script, lambda: self.run(script))

    def press(self, key, text=""):
        number = {"Tab": 9, "Enter": 13}.get(key, 0)  # what the browser itself does something for
        for kind in ("keyDown", "keyUp"):
            self.call("Input.dispatchKeyEvent", type=kind, key=key, code=key, windowsVirtualKeyCode=number,
                      **({"text": text} if kind == "keyDown" else {}))

    def type(self, text):
        for letter in text:
            self.press(letter, letter)

    def click(self, selector):
        """Where a person would: at the middle of what is seen of it."""
        x, y = self.run(f"(box => [box.x + box.width / 2, box.y + box.height / 2])((e => (e.scrollIntoView("
                        f"{{block: 'center'}}), e.getBoundingClientRect()))(document.querySelector({json.dumps(selector)})))")
        for kind in ("mousePressed", "mouseReleased"):
            self.call("Input.dispatchMouseEvent", type=kind, x=x, y=y, button="left", clickCount=1)

    def picture(self, path, **options):
        data = self.call("Page.captureScreenshot", **{"format": "png", **options})["data"]
        with open(path, "wb") as file:
            file.write(base64.b64decode(data))
