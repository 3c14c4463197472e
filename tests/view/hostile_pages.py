#!/usr/bin/python3
"""ruvoview against those who do not keep to its protocol, and its command line.

Status 0 when all is right, 77 when python3-aiohttp, python3-pil or Xvfb is not there.
"""

import asyncio
import contextlib
import ctypes
import io
import os
import pathlib
import random
import shutil
import stat
import struct
import subprocess
import sys
import tempfile
import time
import unittest

sys.dont_write_bytecode = True
try:
    import aiohttp
    from PIL import Image
except ImportError:
    aiohttp = None
if not aiohttp or not shutil.which("Xvfb"):
    print("!!! SKIPPED: ruvoview's wire, because python3-aiohttp, python3-pil or xvfb is not installed !!!",
          file=sys.stderr)
    sys.exit(77)

import program  # noqa: E402
from program import (  # noqa: E402
    AGENT, WAIT, Client, View, difference, frame_of, ruvo, says, screen_picture, until)

NEW = ("--new", "320x240")
BLINK = "while :; do for c in red blue; do xsetroot -solid $c; sleep 0.02; done; done"


async def closed_with(socket):
    async with asyncio.timeout(WAIT):
        async for _ in socket:
            pass
    return socket.close_code


class Case(unittest.IsolatedAsyncioTestCase):
    async def asyncSetUp(self):
        asyncio.get_running_loop().set_debug(False)  # it is slow

    async def enter(self, view):
        """One who is let in."""
        client = await self.enterAsyncContext(Client(view))
        await client.enter()
        return client


class Wire(Case):
    @classmethod
    def setUpClass(cls):
        cls.view = cls.enterClassContext(View(*NEW))

    async def test_who_is_let_in(self):
        evil = {"Origin": "http://evil.example"}
        client = await self.enterAsyncContext(Client(self.view))
        for status, token, headers in ((403, "wrong", {}), (413, "x" * 1000, {}), (403, None, evil),
                                       (403, None, {**evil, "Host": "evil.example"})):
            self.assertEqual((await client.enter(token, **headers)).status, status)
        with self.assertRaisesRegex(aiohttp.WSServerHandshakeError, "^403"):
            await client.desktop()
        answer = await client.enter()
        self.assertEqual(answer.status, 204)
        self.assertRegex(answer.headers["Set-Cookie"], "HttpOnly.*SameSite=Strict")
        with self.assertRaisesRegex(aiohttp.WSServerHandshakeError, "^403"):
            await client.desktop(**evil)
        async with client.http.get(client.origin + "/") as page:
            self.assertIn("default-src 'none'", page.headers["Content-Security-Policy"])
            self.assertNotIn(self.view.token, await page.text())
        hello, state, *_ = await until(await client.desktop(), frame_of)
        self.assertEqual((hello["t"], hello["viewOnly"], state["t"]), ("hello", False, "state"))

    async def test_bad_messages_end_their_own_page_only(self):
        deep = '{"t":' + "[" * 100000 + "]" * 100000 + "}"
        malformed = ("{", "[]", '"drawn"', "null", '{"t":1}', '{"t":"nothing"}',
                     '{"t":"key","sym":65}', '{"t":"key","sym":-1,"down":true}',
                     '{"t":"key","sym":1e300,"down":true}',
                     '{"t":"key","sym":18446744073709551615,"down":true}',
                     '{"t":"pointer","x":1,"y":"2","buttons":0}',
                     '{"t":"pointer","x":99999999999,"y":2,"buttons":0}', '{"t":"drawn","frame":-5}',
                     '{"t":"clipboard"}', '{"t":"resize","width":0,"height":10}',
                     '{"t":"resize","width":100000,"height":10}', '{"t":"monitors","selected":"1"}',
                     '{"t":"monitors","selected":[{}]}', deep)
        client = await self.enter(self.view)
        good = await client.desktop()
        told = await until(good, frame_of)
        await good.send_json({"t": "drawn", "frame": frame_of(told[-1])})
        # Of one who is still writing, the connection's end can overtake the code.
        for message, *codes in (*((each, 4400) for each in malformed), (b"\1\2\3", 1003),
                                ("x" * (2 << 20), 1009, 1006, None)):
            lines = len(self.view.log())
            socket = await client.desktop()
            with contextlib.suppress(OSError):
                await (socket.send_bytes if isinstance(message, bytes) else socket.send_str)(message)
            self.assertIn(await closed_with(socket), codes, message[:80])
            while len(self.view.log()) == lines:
                await asyncio.sleep(0.01)
            self.assertEqual(len(self.view.log()), lines + 1, message[:80])
        # Too much at a time.
        socket = await client.desktop()
        closed = asyncio.create_task(closed_with(socket))
        while not closed.done():
            with contextlib.suppress(OSError):
                await socket.send_json({"t": "ping", "n": 1, "text": "x" * 900000})
            await asyncio.sleep(0)
        self.assertEqual(closed.result(), 1008)
        # What is out of the picture, or early, is no fault.
        await good.send_str('{"t":"pointer","x":-5,"y":100000,"buttons":0}')
        await good.send_str('{"t":"drawn","frame":77777}')
        await good.send_str('{"t":"ping","n":9}')
        await until(good, says(t="pong", n=9))

    async def test_a_page_far_away_gets_frames_while_others_are_under_way(self):
        client = await self.enter(self.enterContext(View(*NEW, "--", "sh", "-c", BLINK)))
        socket = await client.desktop()
        overtaking = []  # for each frame, whether another was not drawn yet
        undrawn = set()

        async def draw(frame):
            await asyncio.sleep(0.3)
            undrawn.remove(asyncio.current_task())
            await socket.send_json({"t": "drawn", "frame": frame})

        while len(overtaking) < 20:
            told = await until(socket, frame_of)
            overtaking.append(bool(undrawn))
            undrawn.add(asyncio.create_task(draw(frame_of(told[-1]))))
        await asyncio.wait(undrawn)
        self.assertGreater(sum(overtaking), 10, overtaking)

    async def test_sizes_that_are_offered(self):
        socket = await (await self.enter(self.view)).desktop()

        async def offered(condition):
            is_so = lambda told: says(t="modes")(told) and condition(told["modes"])  # noqa: E731
            return (await until(socket, is_so))[-1]["modes"]

        sizes = await offered(lambda sizes: [3840, 2160] in sizes)
        self.assertIn([320, 240], sizes)
        # The X server has no room for it.
        await socket.send_json({"t": "resize", "width": 3840, "height": 2160})
        self.assertIn([1280, 720], await offered(lambda sizes: [3840, 2160] not in sizes))
        # Others have nothing to learn from what one page dreams of.
        for width in range(4001, 4004):
            await socket.send_json({"t": "resize", "width": width, "height": 4000})
            self.assertFalse(any(map(says(t="modes"), await until(socket, says(t="refused")))))

    async def test_how_changes_are_found(self):
        """One agent says too early that capture is broken, and takes it back; one polls."""
        folder = self.enterContext(tempfile.TemporaryDirectory())
        hasty = pathlib.Path(folder, "agent")
        hasty.write_text("#!/bin/bash\n"
                         "[[ $2 = -* ]] || printf '\\200\\017\\015captureBroken\\001' >&$2\n"
                         f"exec {AGENT} \"$@\"\n")
        hasty.chmod(0o755)
        for agent, value, state, mode, last in ((hasty, 0, "capture-broken", "polling", "damage"),
                                                (AGENT, 1, "live", "polling", "polling")):
            with View(*NEW, "--param", f"CaptureMethod={value}", "--", "sh", "-c", BLINK,
                      agent=agent) as view:
                socket = await (await self.enter(view)).desktop()
                told = []

                async def draw(condition):
                    while True:
                        told.extend(await until(socket, lambda one: frame_of(one) or condition(one)))
                        if condition(told[-1]):
                            return
                        await socket.send_json({"t": "drawn", "frame": frame_of(told[-1])})

                await draw(says(t="state", state=state))
                await draw(says(t="stats", mode=mode))
                # The agent's first lines, for a page that came later.
                await socket.send_json({"t": "logLevel", "level": 30})
                await draw(says(t="log", text=f"Using {last}" + " extension" * (last == "damage")))
                await draw(says(t="state", state="live") if agent != AGENT else bool)
                await draw(says(t="stats", mode=last))


class Picture:
    """The canvas of a page, drawn as the protocol says."""

    def __init__(self):
        self.image = None
        self.encodings = set()

    def draw(self, data):
        at = 16
        for _ in range(int.from_bytes(data[2:4], "little")):
            x, y, width, height, encoding, length = struct.unpack_from("<HHHHBxxxI", data, at)
            piece = data[at + 16:at + 16 + length]
            at += 16 + length
            self.encodings.add(encoding)
            if encoding == 0:
                part = Image.new("RGB", (width, height), (piece[2], piece[1], piece[0]))
            elif encoding == 1:
                x2, y2 = struct.unpack("<HH", piece)
                part = self.image.crop((x2, y2, x2 + width, y2 + height))
            elif encoding == 4:
                part = Image.frombytes("RGBA", (width, height), piece)
            else:
                part = Image.open(io.BytesIO(piece))
            assert part.size == (width, height)
            self.image.paste(part.convert("RGB"), (x, y))
        assert at == len(data)


class Pixels(Case):
    # Text that scrolls, a picture that moves, then rest.
    SCRIPT = """
        for i in $(seq 40); do seq -f "line %g of a text that scrolls" $((i * 7)) $((i * 7 + 3)); sleep 0.02; done
        for i in $(seq 6); do
          xsetroot -bitmap /usr/include/X11/bitmaps/woman -fg \\#$i$i$i$i$i$i; sleep 0.03
        done
        seq -f "and line %g" 3000; touch $0; sleep 1000"""

    async def test_after_rest_each_page_shows_scrolled_text_exactly(self):
        def scroll(display):
            mark = os.path.join(self.enterContext(tempfile.TemporaryDirectory()), "done")
            xterm = subprocess.Popen(["xterm", "-display", display, "-geometry", "90x40+40+20", "-e",
                                      "sh", "-c", self.SCRIPT, mark])
            self.addCleanup(xterm.wait)
            self.addCleanup(xterm.terminate)
            while not os.path.exists(mark):
                time.sleep(0.01)

        fast = await self.assert_exact(scroll)
        self.assertIn(1, fast.encodings, "scrolled text should come as copies")

    async def test_after_rest_each_page_shows_a_mosaic_exactly(self):
        fast = await self.assert_exact(self.draw_mosaic)
        self.assertIn(2, fast.encodings, "a film should come lossy")

    @staticmethod
    def draw_mosaic(name):
        """Small and large areas beside each other that change at once, over what moves and what rests."""
        xlib = ctypes.CDLL("libX11.so.6")
        xlib.XOpenDisplay.restype = xlib.XDefaultRootWindow.restype = xlib.XCreateGC.restype = ctypes.c_void_p
        display = ctypes.c_void_p(xlib.XOpenDisplay(name.encode()))
        root = ctypes.c_ulong(xlib.XDefaultRootWindow(display))
        context = ctypes.c_void_p(xlib.XCreateGC(display, root, 0, None))
        chance = random.Random(1)

        def fill(x, y, width, height, colour=None):
            colour = chance.randrange(1 << 24) if colour is None else colour
            xlib.XSetForeground(display, context, ctypes.c_ulong(colour))
            xlib.XFillRectangle(display, root, context, x, y, width, height)

        def film(left, top, right, bottom):
            for x in range(left, right, 4):
                for y in range(top, bottom, 4):
                    fill(x, y, 4, 4)

        def show(seconds=0.04):
            xlib.XFlush(display)
            time.sleep(seconds)

        film(300, 20, 700, 340)
        show(0.5)
        for step in range(40):
            # Two in one cell; in one row of tiles two of a colour, of which one is lower.
            x, y = 32 * chance.randrange(3, 17), 20 + 7 * step
            fill(x + 2, y, 3, 3)
            fill(x + 15, y, 3, 3)
            x, y = 32 * chance.randrange(3, 8), 32 + 16 * (step % 16)
            fill(2 * x, y + 5, 32, 3, 0xffffff)
            fill(2 * x + 32, y, 32, 16, 0xffffff)
            show()
            # A small part of what is shown lossy beside it.
            x, y = 45 + 7 * step, 400 + step
            for _ in range(3):
                film(x, y, x + 100, y + 48)
                show()
            fill(x + 6, y + 9, 3, 3)
            show(chance.choice([0.04, 0.34]))
        xlib.XCloseDisplay(display)

    async def assert_exact(self, draw):
        """Shows what is drawn to two pages, and returns the picture of the faster one."""
        display = self.enterContext(ruvo.xvfb("800x600x24"))
        view = self.enterContext(View("--display", display))
        client = await self.enter(view)
        # What is drawn while the agent starts is another matter.
        first = await client.desktop()
        await first.send_json({"t": "logLevel", "level": 30})
        await until(first, says(t="log", text="Using damage extension"))
        await first.close()
        drawn = asyncio.create_task(asyncio.to_thread(draw, display))

        async def watch(seconds):
            socket = await client.desktop()
            picture = Picture()
            while True:
                told = asyncio.create_task(until(socket, lambda one: True))
                # Rest: nothing came for a while after the last drawing.
                while not (await asyncio.wait([told], timeout=1.5))[0]:
                    if drawn.done():
                        told.cancel()
                        return picture
                told = told.result()[0]
                if says(t="size")(told):
                    picture.image = Image.new("RGB", (told["width"], told["height"]))
                elif isinstance(told, bytes):
                    picture.draw(told)
                if frame := frame_of(told):
                    await asyncio.sleep(seconds)
                    await socket.send_json({"t": "drawn", "frame": frame})

        pages = await asyncio.wait_for(asyncio.gather(watch(0), watch(0.15)), WAIT)
        await drawn
        for page in pages:
            self.assertIsNone(difference(page.image, screen_picture(display)), page.encodings)
        return pages[0]


class Program(unittest.TestCase):
    def test_what_is_refused(self):
        for arguments in (["--listen", "0.0.0.0:0"], ["--listen", "[::]:0"], ["--listen", "127.0.0.1"],
                          ["--listen", "127.0.0.1:70000"], ["--listen", "127.0.0.1:-1"],
                          ["--new", "0x5"], ["--new", "10x10x10"], ["--cert", "x"],
                          ["--param", "Nothing=1"], ["--param", "Gamma"], ["--", "true"]):
            with self.subTest(arguments):
                extra = [] if arguments[0] in ("--new", "--") else NEW
                done = subprocess.run([program.VIEW, *extra, "--agent", AGENT, *arguments],
                                      capture_output=True, timeout=WAIT)
                self.assertEqual((done.returncode, done.stdout), (2, b""))
                self.assertNotEqual(done.stderr, b"")

    def test_a_socket_of_its_own_and_a_token_that_stays(self):
        folder = self.enterContext(tempfile.TemporaryDirectory())
        path, token = folder + "/view.sock", folder + "/token"

        def start():
            view = self.enterContext(View(*NEW, "--token-file", token, listen="unix:" + path,
                                          XDG_RUNTIME_DIR=folder))
            self.assertEqual(stat.S_IMODE(os.stat(path).st_mode), 0o660)
            self.assertEqual(stat.S_IMODE(os.stat(token).st_mode), 0o600)
            return view

        async def enter(view):
            async with Client(view, "http://desktop.example", aiohttp.UnixConnector(path)) as client:
                return (await client.enter()).status

        first = start()
        first.kill()  # leaves its socket behind
        view = start()
        self.assertEqual(view.token, first.token)
        self.assertEqual(asyncio.run(enter(view)), 204)
        self.assertEqual(view.close(), (0, b""))
        self.assertFalse(os.path.exists(path))

    def test_tls(self):
        folder = self.enterContext(tempfile.TemporaryDirectory())
        certificate, key = folder + "/cert.pem", folder + "/key.pem"
        subprocess.run(["openssl", "req", "-x509", "-newkey", "rsa:2048", "-nodes", "-days", "2",
                        "-subj", "/CN=localhost", "-out", certificate, "-keyout", key],
                       check=True, capture_output=True)
        view = self.enterContext(View(*NEW, "--cert", certificate, "--key", key, listen="0.0.0.0:0"))

        async def run():
            async with Client(view, f"https://localhost:{view.port}",
                              aiohttp.TCPConnector(ssl=False)) as client:
                self.assertIn("Secure", (await client.enter()).headers["Set-Cookie"])
                # Its cookie is for encrypted lines only, and the jar keeps to that.
                await until(await client.desktop(), frame_of)

        asyncio.run(run())
        self.assertEqual(view.close(), (0, b""))

    def test_the_session_and_all_else_end_with_it(self):
        folder = pathlib.Path(self.enterContext(tempfile.TemporaryDirectory()))
        view = self.enterContext(View(
            *NEW, "--", "sh", "-c", f"cd {folder}; echo $$ $XAUTHORITY > new; mv new mark; sleep 1000 & wait"))
        limit = time.monotonic() + WAIT
        while not (folder / "mark").exists():
            self.assertLess(time.monotonic(), limit)
            time.sleep(0.02)
        session, authority = (folder / "mark").read_text().split()
        children = view.children()
        self.assertLessEqual({"Xvfb", "sh", "ruvoagent"}, set(children))
        self.assertEqual(view.close(), (0, b""))
        for process in [int(session), *children.values()]:
            self.assertRaises(ProcessLookupError, os.kill, process, 0)
        self.assertFalse(os.path.exists(os.path.dirname(authority)))


if __name__ == "__main__":
    unittest.main()
