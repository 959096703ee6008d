"""A headless Chromium with one page in it, driven by the DevTools protocol."""
import base64
import json
import pathlib
import shutil
import subprocess
import tempfile
import time

import websocket


class Browser:
    """Its page. Whatever the page asks for, complains of and throws is kept."""

    def __init__(self, program):
        self.folder = tempfile.mkdtemp(prefix="fusion-browser-")
        # The sandbox needs rights that containers lack; the page is our own.
        self.process = subprocess.Popen(
            [program, "--headless=new", "--no-sandbox", "--disable-gpu", "--disable-dev-shm-usage", "--hide-scrollbars",
             "--no-first-run", "--disable-background-networking", "--disable-component-update", "--force-color-profile=srgb",
             "--remote-debugging-port=0", f"--user-data-dir={self.folder}", "about:blank"],
            stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        self.requests, self.complaints = [], []
        self.number = 0
        try:
            port, path = self.wait_for_port()
            browser = websocket.create_connection(f"ws://127.0.0.1:{port}{path}", suppress_origin=True, timeout=60)
            browser.send(json.dumps({"id": 1, "method": "Target.getTargets"}))
            targets = self.answer(browser, 1)["targetInfos"]
            target = next(t["targetId"] for t in targets if t["type"] == "page")
            browser.close()
            self.socket = websocket.create_connection(f"ws://127.0.0.1:{port}/devtools/page/{target}",
                                                      suppress_origin=True, timeout=60)
            for domain in ("Page", "Runtime", "Network", "Log"):
                self.call(domain + ".enable")
        except BaseException:
            self.close()
            raise

    def wait_for_port(self):
        file = pathlib.Path(self.folder, "DevToolsActivePort")
        for _ in range(300):
            lines = file.read_text().split() if file.exists() else []
            if len(lines) == 2:
                return lines
            if self.process.poll() is not None:
                raise RuntimeError(f"Chromium ended with status {self.process.returncode}")
            time.sleep(0.1)
        raise RuntimeError("Chromium does not answer")

    @staticmethod
    def answer(socket, number):
        while True:
            message = json.loads(socket.recv())
            if message.get("id") == number:
                return message["result"]

    def take(self, message):
        name, facts = message.get("method"), message.get("params", {})
        if name == "Network.requestWillBeSent":
            self.requests.append(facts["request"]["url"])
        elif name == "Runtime.exceptionThrown":
            self.complaints.append(json.dumps(facts["exceptionDetails"]))
        elif name == "Runtime.consoleAPICalled" and facts["type"] in ("error", "warning", "assert"):
            self.complaints.append(json.dumps(facts["args"]))
        elif name == "Log.entryAdded" and facts["entry"]["level"] in ("error", "warning"):
            self.complaints.append(facts["entry"]["text"])

    def call(self, method, **facts):
        self.number += 1
        self.socket.send(json.dumps({"id": self.number, "method": method, "params": facts}))
        while True:
            message = json.loads(self.socket.recv())
            if message.get("id") != self.number:
                self.take(message)
                continue
            if "error" in message:
                raise RuntimeError(f"{method}: {message['error']}")
            return message["result"]

    def open(self, url):
        self.call("Page.navigate", url=url)
        while self.ask("document.readyState") != "complete" or self.ask("location.protocol") != "file:":
            time.sleep(0.05)

    def ask(self, expression):
        result = self.call("Runtime.evaluate", expression=expression, returnByValue=True, awaitPromise=True)
        if "exceptionDetails" in result:
            raise RuntimeError(f"{expression}: {result['exceptionDetails']}")
        return result["result"].get("value")

    def key(self, key, modifiers=0):
        text = {"text": key} if len(key) == 1 else {}
        self.call("Input.dispatchKeyEvent", type="keyDown", key=key, modifiers=modifiers, **text)
        self.call("Input.dispatchKeyEvent", type="keyUp", key=key, modifiers=modifiers)

    def mouse(self, kind, x, y, **more):
        self.call("Input.dispatchMouseEvent", type=kind, x=x, y=y, **more)

    def drag(self, x, y, to_x, to_y):
        self.mouse("mousePressed", x, y, button="left", clickCount=1)
        self.mouse("mouseMoved", (x + to_x) / 2, (y + to_y) / 2, button="left", buttons=1)
        self.mouse("mouseMoved", to_x, to_y, button="left", buttons=1)
        self.mouse("mouseReleased", to_x, to_y, button="left")

    def touch(self, kind, points):
        self.call("Input.dispatchTouchEvent", type=kind,
                  touchPoints=[{"x": x, "y": y, "id": i} for i, (x, y) in enumerate(points)])

    def resize(self, width, height, mobile=False):
        self.call("Emulation.setDeviceMetricsOverride", width=width, height=height, deviceScaleFactor=1, mobile=mobile)

    def picture(self, clip=None, whole=False):
        """PNG bytes of what is seen, of a rectangle of it, or of the whole page."""
        more = {"clip": dict(zip(("x", "y", "width", "height"), clip), scale=1)} if clip else {}
        return base64.b64decode(self.call("Page.captureScreenshot", captureBeyondViewport=whole or bool(clip), **more)["data"])

    def close(self):
        self.process.terminate()
        try:
            self.process.wait(20)
        except subprocess.TimeoutExpired:
            self.process.kill()
            self.process.wait()
        shutil.rmtree(self.folder, ignore_errors=True)
