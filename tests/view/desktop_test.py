"""What is on the desktop is on the page, and what is done on the page is done there."""

import os
import re
import statistics
import struct
import time
import unittest

import stage
from PIL import Image
from stage import until

TEXT = "Grüße, 5 € an łódź, Жук & λ {x}[~@|\\]"

# An endless picture that fills any line.
FILM = r"""
import random, sys, time
while True:
    rows = "\n".join("".join("\33[48;5;%dm%c" % (random.randrange(256), random.randrange(33, 126))
                             for _ in range(150)) for _ in range(40))
    sys.stdout.write("\33[H" + rows)
    sys.stdout.flush()
    time.sleep(0.03)
"""


def picture(width, height):
    """A file for xwud, of shades and noise."""
    size = (256, 256)
    colours = [Image.linear_gradient("L"), Image.radial_gradient("L"), Image.effect_noise(size, 64),
               Image.new("L", size)]
    header = struct.pack(">25I", 101, 7, 2, 24, width, height, 0, 0, 32, 0, 32, 32, 4 * width, 4,
                         0xff0000, 0xff00, 0xff, 8, 256, 0, width, height, 0, 0, 0)
    return header + b"\0" + Image.merge("RGBX", colours).resize((width, height)).tobytes()


class Desktop(unittest.TestCase):
    def setUp(self):
        self.setting = stage.Setting()
        self.addCleanup(self.setting.close)
        self.screen = self.setting.screen

    def xterm(self, *command):
        """A terminal, the only window, that runs a command and has the focus."""
        before = self.screen.active_window()
        self.screen.programs.start(
            ["xterm", "-u8", "-fa", "DejaVu Sans Mono", "-fs", "10", "-e", *command])
        until(lambda: self.screen.active_window() not in ("", before), "the terminal")

    def start_reader(self):
        """A terminal, and what gives the line that was typed there."""
        path = os.path.join(self.setting.directory, "typed")
        self.xterm("sh", "-c", f'read -r line; echo "$line" > {path}.new; mv {path}.new {path}; sleep 1000')

        def typed():
            if os.path.exists(path):
                with open(path) as file:
                    return file.read()
            return None

        return typed

    def play_film(self):
        path = os.path.join(self.setting.directory, "film.py")
        with open(path, "w") as file:
            file.write(FILM)
        self.xterm("python3", path)

    def stop_film(self):
        self.screen.programs.stop(self.screen.programs.running[-1])

    def start_witness(self, *kinds):
        """A window; what the pointer did there (kind, x, y, state, button), and the buttons alone."""
        path = os.path.join(self.setting.directory, "events")
        with open(path, "wb") as file:
            self.screen.programs.start(
                ["xev", *(word for kind in kinds for word in ("-event", kind))], stdout=file)
        until(self.screen.active_window, "the window")

        def seen():
            with open(path) as file:
                return re.findall(r"(ButtonPress|ButtonRelease|MotionNotify)[^\n]*\n"
                                  r"[^\n]*root:\((\d+),(\d+)\),\n"
                                  r"\s+state (\w+),(?: button (\d+))?", file.read())

        return seen, lambda: " ".join(kind[6] + button for kind, *_, button in seen() if button)

    def assert_same_picture(self, page):
        stage.wait_for_same_picture(page, self.screen)

    def test_picture_at_rest_is_exact(self):
        page = self.setting.page().wait_for_picture()
        self.assert_same_picture(page)
        path = os.path.join(self.setting.directory, "picture.xwd")
        with open(path, "wb") as file:
            file.write(picture(900, 600))
        self.screen.programs.start(["xwud", "-in", path])
        until(self.screen.active_window, "the picture's window")
        self.assert_same_picture(page)
        # Much that moves and scrolls, and then rests.
        self.xterm("sh", "-c", "seq 1 3000; for i in 1 2 3 4 5; do seq 1 40; sleep 0.05; done; "
                   f"touch {self.setting.directory}/done; sleep 1000")
        until(lambda: os.path.exists(self.setting.directory + "/done"), "the terminal's text")
        self.assert_same_picture(page)

    def test_typing(self):
        typed = self.start_reader()
        page = self.setting.page().wait_for_picture()
        page.click(400, 300)
        page.type(TEXT + "\n")
        self.assertEqual(until(typed, "the text"), TEXT + "\n")
        self.assertEqual(self.screen.pressed_keys(), [])
        # A key that is held when the page goes is held by nobody.
        page.key("a", "KeyA", "a", kinds=["keyDown"])
        until(self.screen.pressed_keys, "the key that is held")
        page.open("about:blank")
        until(lambda: not self.screen.pressed_keys(), "the key to be released")

    def test_clipboard(self):
        page = self.setting.page().wait_for_picture()
        page.cdp("Browser.grantPermissions",
                 permissions=["clipboardReadWrite", "clipboardSanitizedWrite"])
        page.focus()
        self.screen.own("clipboard", TEXT)
        read = "return navigator.clipboard.readText()"
        until(lambda: page.run(read) == TEXT, "the desktop's text in the browser")
        page.run("return navigator.clipboard.writeText(arguments[0])", "Größe\n" * 1000)
        page.cdp("Input.dispatchKeyEvent", type="keyDown", key="v", code="KeyV", modifiers=2,
                 windowsVirtualKeyCode=86, commands=["paste"])
        until(lambda: self.screen.selection("clipboard") == "Größe\n" * 1000,
              "the browser's text on the desktop")
        kinds = [one["t"] for one in page.sent("clipboard", "key") if one.get("sym") != 0xffe3]
        self.assertEqual(kinds[:2], ["clipboard", "key"], "the text before the key that pastes it")

    def test_pointer_and_wheel(self):
        seen, buttons = self.start_witness("button", "mouse")
        page = self.setting.page().wait_for_picture()
        page.click(300, 200)
        page.click(300, 200, "right")
        page.click(300, 200, "middle")
        clicks = "P1 R1 P3 R3 P2 R2"
        until(lambda: buttons() == clicks, "the clicks")
        self.assertEqual(seen()[-1][1:3], ("300", "200"), "a click is where it was made")
        for x, y in ((0, 120), (0, -120), (120, 0), (-120, 0)):
            page.mouse("mouseWheel", 300, 200, deltaX=x, deltaY=y)
        turns = "P5 R5 P4 R4 P7 R7 P6 R6"
        until(lambda: buttons() == f"{clicks} {turns}", "the wheel")
        page.mouse("mousePressed", 100, 100, button="left", clickCount=1)
        for x in range(100, 700, 50):
            page.mouse("mouseMoved", x, 150, button="left", buttons=1)
        page.mouse("mouseReleased", 700, 150, button="left", clickCount=1)
        until(lambda: buttons() == f"{clicks} {turns} P1 R1", "the end of dragging")
        dragged = [one for one in seen() if one[0] == "MotionNotify" and int(one[3], 16) & 0x100]
        self.assertGreater(len(dragged), 2)
        self.assertEqual(seen()[-1][1:3], ("700", "150"))

    def test_touch(self):
        buttons = self.start_witness("button")[1]
        page = self.setting.page().wait_for_picture()
        page.cdp("Emulation.setTouchEmulationEnabled", enabled=True, maxTouchPoints=2)
        # On a crowded machine half a second can pass between two of these events.
        page.run("const {setTimeout} = window;"
                 "window.setTimeout = (f, ms) => setTimeout(f, ms === 500 ? 4000 : ms)")

        def touch(kind, *points):
            page.cdp("Input.dispatchTouchEvent", type=kind,
                     touchPoints=[{"x": x, "y": y, "id": i} for i, (x, y) in enumerate(points)])

        touch("touchStart", (400, 300))
        touch("touchEnd")
        until(lambda: buttons() == "P1 R1", "a tap")
        touch("touchStart", (400, 300))
        until(lambda: buttons() == "P1 R1 P3", "a long press")
        touch("touchEnd")
        until(lambda: buttons() == "P1 R1 P3 R3", "its end")
        touch("touchStart", (400, 400))
        touch("touchMove", (400, 450))
        touch("touchMove", (400, 500))
        touch("touchEnd")
        until(lambda: buttons() == "P1 R1 P3 R3 P1 R1", "dragging")
        touch("touchStart", (400, 400))
        touch("touchStart", (400, 400), (500, 400))
        for y in range(400, 500, 10):
            touch("touchMove", (400, y), (500, y))
        touch("touchEnd")
        until(lambda: buttons().startswith("P1 R1 P3 R3 P1 R1 P4 R4 P4 R4"), "two that scroll")
        page.forget_sent()
        width = "return document.getElementById('desktop').clientWidth"
        before = page.run(width)
        touch("touchStart", (400, 400))
        touch("touchStart", (400, 400), (500, 400))
        for x in range(0, 100, 10):
            touch("touchMove", (400 - x, 400), (500 + x, 400))
        touch("touchEnd")
        self.assertGreater(page.run(width), 1.5 * before)
        self.assertEqual([one for one in page.sent("pointer") if one["buttons"]], [])

    def test_as_large_as_the_window(self):
        page = self.setting.page().wait_for_picture()
        page.run("document.getElementById('follow').click()")
        for width, height in ((1000, 700), (820, 600), (1100, 640)):
            page.cdp("Emulation.setDeviceMetricsOverride", width=width, height=height,
                     deviceScaleFactor=1, mobile=False)
            size = ("const {offsetWidth, offsetHeight} = document.getElementById(arguments[0]);"
                    "return [offsetWidth, offsetHeight]")
            until(lambda: page.run("return [innerWidth, innerHeight]") == [width, height], "the window")
            wanted = page.run(size, "stage")
            until(lambda: page.size() == wanted, f"{wanted}")
            self.assert_same_picture(page)
            self.assertEqual(page.run(size, "desktop"), wanted)
        page.run("const menu = document.getElementById('size'); menu.value = '1024 × 768';"
                 "menu.dispatchEvent(new Event('change'))")
        until(lambda: page.size() == [1024, 768], "the size of the menu")
        self.assertFalse(page.run("return document.getElementById('follow').checked"))

    def test_pages_that_follow_their_windows_come_to_rest(self):
        size = "const {offsetWidth, offsetHeight} = document.getElementById('stage');" \
            "return [offsetWidth, offsetHeight]"

        def follow(page, width, height):
            page.cdp("Emulation.setDeviceMetricsOverride", width=width, height=height,
                     deviceScaleFactor=1, mobile=False)
            page.run("const box = document.getElementById('follow'); box.checked || box.click()")
            until(lambda: page.size() == page.run(size), "the window's size")

        def asked(page):
            """Sizes, in time for many."""
            page.show()
            time.sleep(1)
            return [(one["width"], one["height"]) for one in page.sent("resize")]

        first, second = (self.setting.page().wait_for_picture() for _ in range(2))
        follow(first.show(), 1000, 700)
        follow(second.show(), 820, 600)
        for page in (first, second):
            page.show().forget_sent()
        self.assertEqual(asked(first) + asked(second), [])
        # More than the X server has.
        second.cdp("Emulation.setDeviceMetricsOverride", width=1400, height=900, deviceScaleFactor=1,
                   mobile=False)
        until(lambda: not second.run("return document.getElementById('toast').hidden"), "the refusal")
        self.assertEqual(asked(second), [tuple(second.run(size))])

    def test_a_page_that_stalls_and_one_that_does_not(self):
        stalled = self.setting.page().wait_for_picture()
        stalled.run("""
            const {send} = WebSocket.prototype;
            window.held = [];
            WebSocket.prototype.send = function(data) {
              if (JSON.parse(data).t === "drawn") held.push([this, data]);
              else send.call(this, data);
            };
            window.go = () => {
              WebSocket.prototype.send = send;
              for (const [socket, data] of held) send.call(socket, data);
            };""")
        page = self.setting.page().wait_for_picture()
        self.play_film()
        drawn = len(page.sent("drawn"))
        until(lambda: len(page.sent("drawn")) > drawn + 10, "updates for the page that draws")
        memory = memory_of(self.setting.view.process.pid)
        drawn = len(page.sent("drawn"))
        until(lambda: len(page.sent("drawn")) > drawn + 30, "more of them", 90)
        self.assertLess(memory_of(self.setting.view.process.pid), memory + 8000, "KB")
        self.assertIn(stalled.show().run("return held.length"), range(1, 20))
        self.stop_film()
        self.assert_same_picture(page.show())
        stalled.show().run("go()")
        self.assert_same_picture(stalled)

    def test_a_full_line_gives_fewer_updates_and_none_that_are_old(self):
        view = self.setting.view
        with stage.slow_line(view.port, 1 << 20) as line:
            page = self.setting.page(view.address.replace(view.origin, line)).wait_for_picture()
            self.play_film()
            until(lambda: page.run("return drawn.length") > 25, "updates")
            drawn = page.run("return drawn")
            self.stop_film()
            self.assert_same_picture(page)
        delay = min(when - clock for when, clock in drawn)
        ages = [when - clock - delay for when, clock in drawn[-15:]]
        between = [after[0] - before[0] for before, after in zip(drawn[-15:], drawn[-14:])]
        self.assertLess(statistics.median(ages), 2.5 * statistics.median(between) + 200, "ms")

    def test_typing_on_a_real_keyboard(self):
        """The whole way: another screen with a keyboard, the browser there, the terminal here."""
        typed = self.start_reader()
        with open(os.path.join(self.setting.directory, "keyboard.log"), "wb") as log:
            keyboard = stage.desktop.Desktop(os.path.join(self.setting.directory), log)
            self.addCleanup(keyboard.close)
            browser = stage.Browser(keyboard.display)
            self.addCleanup(browser.close)
            page = stage.Page(browser, self.setting.view.address)
            page.wait_for_picture()
            keyboard.layout("de")
            keyboard.run("xdotool", "mousemove", "600", "500", "click", "1")
            until(lambda: page.run("return document.activeElement.id === 'keys'"), "the focus")
            # Keycodes: ü, y on the key of z, AltGr with e and q, ´ and e, ^ and o, ^ and x, Shift
            # with ` and a, Multi_key with o and e.
            keyboard.run("xdotool", *"key 34 key 29 keydown 108 key 26 key 24 keyup 108 key 21 key 26 "
                         "key 49 key 32 key 49 key 53 keydown 50 key 21 keyup 50 key 38 key 135 "
                         "key 32 key 26 key 36".split())
            self.assertEqual(until(typed, "the text"), "üz€@éô^xàœ\n")
            self.assertEqual(self.screen.pressed_keys(), [])


class ViewOnly(unittest.TestCase):
    def test_nothing_is_passed_on(self):
        setting = stage.Setting("--view-only")
        self.addCleanup(setting.close)
        page = setting.page().wait_for_picture()
        self.assertIn("view only", page.status())
        page.click(300, 200)
        page.type("a")
        self.assertEqual(page.sent("key", "pointer"), [])
        self.assertFalse(page.run("return document.querySelector('#keys-button').checkVisibility()"))


class Monitors(unittest.TestCase):
    def test_choice(self):
        setting = stage.Setting(server=stage.dummy_server)
        self.addCleanup(setting.close)
        page = setting.page().wait_for_picture()

        def choose(number):
            page.run("document.querySelectorAll('#monitors input')[arguments[0]].click()", number)

        count = "return document.querySelectorAll('#monitors input').length"
        until(lambda: page.run(count) == 2, "two monitors")
        self.assertEqual(page.size(), [1824, 768])
        choose(0)
        until(lambda: page.size() == [800, 600], "the second monitor alone")
        choose(0)
        until(lambda: page.size() == [1824, 768], "both")


def memory_of(pid):
    with open(f"/proc/{pid}/status") as file:
        return int(re.search(r"VmRSS:\s+(\d+)", file.read())[1])
