"""A desktop, ruvoview on it, and a browser that shows its page."""

import base64
import contextlib
import functools
import http.server
import io
import os
import shutil
import socket
import sys
import tempfile
import threading
import time

sys.dont_write_bytecode = True
import program
from PIL import Image
from program import ROOT, difference, screen_picture
from selenium import webdriver
from selenium.webdriver.chrome.options import Options
from selenium.webdriver.chrome.service import Service

import desktop

# What the page sends is kept for those who want to see it.
RECORD = """
window.sent = [];
window.drawn = [];  // when, and the server's clock
const clocks = new Map();
window.WebSocket = class extends WebSocket {
  constructor(...options) {
    super(...options);
    window.socket = this;
    this.addEventListener("message", ({data}) => {
      if (typeof data === "string") return;
      const view = new DataView(data);
      clocks.set(view.getUint32(4, true), view.getUint32(8, true));
    });
  }

  send(data) {
    const message = JSON.parse(data);
    window.sent.push(message);
    if (message.t === "drawn") window.drawn.push([performance.now(), clocks.get(message.frame)]);
    super.send(data);
  }
};
"""

CANVAS = "return document.getElementById('desktop').toDataURL()"


def until(condition, what, seconds=60):
    return desktop.Desktop.until(condition, what, seconds)


class Browser:
    """A chromium with a profile of its own; each page is a tab."""

    def __init__(self, display=None):
        self.profile = tempfile.mkdtemp(prefix="view-browser.")
        options = Options()
        options.binary_location = shutil.which("chromium")
        for argument in ("--no-first-run", "--disable-gpu", "--disable-background-networking",
                         "--window-size=1300,900", "--user-data-dir=" + self.profile,
                         "--disable-renderer-backgrounding",
                         "--disable-background-timer-throttling",
                         "--disable-backgrounding-occluded-windows"):
            options.add_argument(argument)
        if not display:
            options.add_argument("--headless=new")
        if os.geteuid() == 0:
            options.add_argument("--no-sandbox")
        options.set_capability("goog:loggingPrefs", {"browser": "ALL"})
        environment = {**os.environ, "HOME": self.profile}
        if display:
            environment["DISPLAY"] = display
        self.driver = webdriver.Chrome(
            service=Service(shutil.which("chromedriver"), env=environment), options=options)
        self.driver.set_script_timeout(30)

    def close(self):
        with contextlib.suppress(Exception):
            self.driver.quit()
        shutil.rmtree(self.profile, ignore_errors=True)


class Page:
    """A tab of the browser."""

    def __init__(self, browser, address):
        self.driver = browser.driver
        self.driver.switch_to.new_window("tab")
        self.handle = self.driver.current_window_handle
        self.cdp("Page.addScriptToEvaluateOnNewDocument", source=RECORD)
        self.open(address)

    def open(self, address):
        self.show()
        # As if its window were the one that is used.
        self.cdp("Emulation.setFocusEmulationEnabled", enabled=True)
        self.driver.get(address)

    def show(self):
        self.driver.switch_to.window(self.handle)
        return self

    def close(self):
        self.show()
        self.driver.close()
        self.driver.switch_to.window(self.driver.window_handles[0])

    def cdp(self, command, **arguments):
        return self.driver.execute_cdp_cmd(command, arguments)

    def run(self, script, *arguments):
        return self.driver.execute_script(script, *arguments)

    def status(self):
        return self.run("return document.getElementById('status').textContent")

    def state(self):
        return self.run("return document.body.dataset.state")

    def wait_for_state(self, state, seconds=60):
        until(lambda: self.state() == state, "the page to be " + state, seconds)
        return self

    def wait_for_picture(self):
        self.wait_for_state("live")
        until(lambda: any(one["t"] == "drawn" for one in self.sent()), "the first picture")
        return self

    def sent(self, *kinds):
        sent = self.run("return window.sent || []")
        return [one for one in sent if not kinds or one["t"] in kinds]

    def forget_sent(self):
        self.run("window.sent = []")

    def keys_sent(self):
        """The keys as text: +symbol and -symbol in their order, characters as such."""
        return " ".join(("+" if one["down"] else "-") + name_of(one["sym"])
                        for one in self.sent("key"))

    def size(self):
        return self.run("const {width, height} = document.getElementById('desktop');"
                        "return [width, height]")

    def mouse(self, kind, x, y, **arguments):
        """Where the desktop has x, y."""
        left, top, scale = self.run(
            "const canvas = document.getElementById('desktop');"
            "const {left, top, width} = canvas.getBoundingClientRect();"
            "return [left, top, width / canvas.width]")
        self.cdp("Input.dispatchMouseEvent", type=kind, x=left + (x + 0.5) * scale,
                 y=top + (y + 0.5) * scale, **arguments)

    def click(self, x, y, button="left"):
        for kind in ("mouseMoved", "mousePressed", "mouseReleased"):
            self.mouse(kind, x, y, button="none" if kind == "mouseMoved" else button,
                       clickCount=0 if kind == "mouseMoved" else 1)

    def focus(self):
        self.run("document.getElementById('keys').focus()")

    def key(self, key, code, text=None, modifiers=0, kinds=("keyDown", "keyUp")):
        """A key as the keyboard's driver tells it to the browser."""
        for kind in kinds:
            self.cdp("Input.dispatchKeyEvent",
                     type=kind if text or kind == "keyUp" else "rawKeyDown",
                     key=key, code=code, modifiers=modifiers,
                     windowsVirtualKeyCode=ord(key.upper()) if key.isascii() and key[1:] == "" else 0,
                     **({"text": text} if text and kind == "keyDown" else {}))

    def type(self, text):
        for character in text:
            if character == "\n":
                self.key("Enter", "Enter", "\r")
            else:
                self.key(character, "", character)

    def events(self, *events):
        """Events as a browser on another system sends them: (type, properties)."""
        self.run("""
            const field = document.getElementById("keys");
            for (const [type, options] of arguments[0]) {
              const kind = type.startsWith("key") ? KeyboardEvent :
                type.startsWith("composition") ? CompositionEvent : InputEvent;
              const event = new kind(type, {bubbles: true, cancelable: true, ...options});
              if (options.field !== undefined) field.value = options.field;
              field.dispatchEvent(event);
            }""", events)


def name_of(symbol):
    names = {0xffe1: "Shift", 0xffe2: "ShiftRight", 0xffe3: "Control", 0xffe4: "ControlRight",
             0xffe9: "Alt", 0xffea: "AltRight", 0xffeb: "Super", 0xfe03: "AltGr", 0xff0d: "Return",
             0xff09: "Tab", 0xff08: "BackSpace", 0xff1b: "Escape", 0xffff: "Delete", 0xff51: "Left",
             0x20: "space"}
    if symbol in names:
        return names[symbol]
    return chr(symbol & 0xffffff) if symbol < 0x100 or symbol >= 0x1000000 else hex(symbol)


def picture(canvas):
    """What a canvas says it shows."""
    return Image.open(io.BytesIO(base64.b64decode(canvas.partition(",")[2]))).convert("RGB")


def wait_for_same_picture(page, screen):
    """Until the page shows what the X server does."""
    wrong = []

    def are_same():
        with contextlib.suppress(OSError):  # of a screen that changes its size meanwhile
            wrong[:] = [difference(picture(page.run(CANVAS)), screen_picture(screen.display))]
        return wrong == [None]

    try:
        until(are_same, "equal pictures")
    except TimeoutError:
        raise AssertionError(f"the page shows another picture: {wrong}") from None


@contextlib.contextmanager
def slow_line(port, rate):
    """The address of a line to a port of this machine that takes RATE bytes a second from there."""
    listener = socket.create_server(("127.0.0.1", 0))
    ends = []

    def pump(source, target, pause):
        with contextlib.suppress(OSError):
            while data := source.recv(16384):
                time.sleep(len(data) * pause)
                target.sendall(data)
        for end in (source, target):
            with contextlib.suppress(OSError):
                end.shutdown(socket.SHUT_RDWR)

    def accept():
        with contextlib.suppress(OSError):
            while True:
                near = listener.accept()[0]
                far = socket.create_connection(("127.0.0.1", port))
                far.setsockopt(socket.SOL_SOCKET, socket.SO_RCVBUF, 65536)
                ends.extend((near, far))
                threading.Thread(target=pump, args=(near, far, 0), daemon=True).start()
                threading.Thread(target=pump, args=(far, near, 1 / rate), daemon=True).start()

    threading.Thread(target=accept, daemon=True).start()
    try:
        yield "http://127.0.0.1:%d" % listener.getsockname()[1]
    finally:
        listener.close()
        for end in ends:
            end.close()


@contextlib.contextmanager
def web_server(directory):
    """The address of pages of somebody else on this machine."""
    class Handler(http.server.SimpleHTTPRequestHandler):
        def log_message(self, *_):
            pass

    handler = functools.partial(Handler, directory=directory)
    with http.server.ThreadingHTTPServer(("127.0.0.1", 0), handler) as server:
        threading.Thread(target=server.serve_forever).start()
        try:
            yield f"http://127.0.0.1:{server.server_port}/"
        finally:
            server.shutdown()


class Setting:
    """All of it together."""

    browser = None

    def __init__(self, *options, server=None):
        """SERVER: what kind of X server, if not the usual one."""
        self.stack = contextlib.ExitStack()
        try:
            self.start(options, server)
        except BaseException:
            self.close()
            raise

    def start(self, options, server):
        self.directory = self.stack.enter_context(
            tempfile.TemporaryDirectory(prefix="view.", ignore_cleanup_errors=True))
        self.log = self.stack.enter_context(
            open(os.path.join(self.directory, "log"), "wb", buffering=0))
        xserver = desktop.ruvo.XServer(**server) if server else None
        self.screen = desktop.Desktop(self.directory, self.log, xserver)
        self.stack.callback(self.screen.close)
        self.serve(*options)
        if not Setting.browser:
            Setting.browser = Browser()

    def serve(self, *options, **arguments):
        self.view = self.stack.enter_context(
            program.View("--display", self.screen.display, *options, **arguments))

    def page(self, address=None):
        page = Page(Setting.browser, address or self.view.address)
        self.stack.callback(page.close)
        return page

    def restart_display(self, between):
        """Kills the X server and, after between(), starts another in its place."""
        number = self.screen.display[1:]
        self.screen.xserver.process.kill()
        self.screen.xserver.process.wait()
        between()
        for path in (f"/tmp/.X{number}-lock", f"/tmp/.X11-unix/X{number}"):
            with contextlib.suppress(FileNotFoundError):
                os.unlink(path)
        self.screen.programs.start(
            ["Xvfb", self.screen.display, "-screen", "0", "1024x700x24", "-noreset",
             "-nolisten", "tcp"])

    def close(self):
        self.stack.close()


# An X server with a number that nobody takes while it is dead: the free ones are low.
lasting_server = {"number": 5000 + os.getpid() % 20000, "screen": "1280x800x24"}
# One with two monitors.
dummy_server = {"dummy": True, "outputs": (("1024x768", "0 0"), ("800x600", "1024 0"))}
