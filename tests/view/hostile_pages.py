#!/usr/bin/python3
"""ruvoview against those who do not keep to its protocol, and its command line.

Status 0 when all is right, 77 when python3-aiohttp, python3-pil or Xvfb is not there.
"""

import asyncio
import contextlib
import io
import json
import os
import pathlib
import shutil
import signal
import stat
import struct
import subprocess
import sys
import tempfile
import unittest

try:
    import aiohttp
    from PIL import Image, ImageChops
except ImportError:
    aiohttp = None

ROOT = pathlib.Path(__file__).resolve().parent.parent.parent
VIEW = os.environ.get("RUVOVIEW", str(ROOT / "build/release/ruvoview"))
AGENT = os.environ.get("RUVOAGENT", str(ROOT / "build/release/ruvoagent"))
WAIT = 60


class View:
    """A running ruvoview with a display of its own."""

    def __init__(self, *options, arguments=("--new", "320x240"), **popen):
        self.errors = tempfile.TemporaryFile()
        self.process = subprocess.Popen([VIEW, *arguments, "--agent", AGENT, *options],
                                        stdout=subprocess.PIPE, stderr=self.errors, **popen)
        self.address = self.process.stdout.readline().decode().strip()
        if "#" not in self.address:
            self.end()
            raise RuntimeError(f"ruvoview does not start: {self.address!r}")
        self.base, self.token = self.address.split("#")

    def log(self):
        self.errors.seek(0)
        return self.errors.read().decode()

    def end(self):
        self.process.terminate()
        rest = self.process.stdout.read()
        self.process.stdout.close()
        return self.process.wait(WAIT), rest

    def __enter__(self):
        return self

    def __exit__(self, *_):
        if self.process.poll() is None:
            self.end()
        self.errors.close()


class Client:
    """A browser that may do anything."""

    def __init__(self, view, base=None, connector=None):
        self.base = base or view.base.rstrip("/")
        self.http = aiohttp.ClientSession(cookie_jar=aiohttp.CookieJar(unsafe=True),
                                          connector=connector,
                                          timeout=aiohttp.ClientTimeout(WAIT))

    async def __aenter__(self):
        return self

    async def __aexit__(self, *_):
        await self.http.close()

    async def enter(self, token, **headers):
        headers = {"Origin": self.base, **headers}
        async with self.http.post(self.base + "/session", data=token, headers=headers) as answer:
            return answer

    async def desktop(self, **headers):
        return await self.http.ws_connect(self.base + "/desktop", protocols=["ruvo-view-1"],
                                          headers={"Origin": self.base, **headers}, max_msg_size=0)


async def first_frame(socket):
    """Reads until a whole frame is there; the messages before it, and the frame's number."""
    told = []
    while True:
        message = await socket.receive(WAIT)
        if message.type == aiohttp.WSMsgType.TEXT:
            told.append(json.loads(message.data))
        elif message.type == aiohttp.WSMsgType.BINARY:
            if message.data[1] & 1:
                return told, struct.unpack_from("<I", message.data, 4)[0]
        else:
            raise AssertionError(f"closed with {socket.close_code}")


async def answered(socket, number):
    """Reads until the answer to a ping."""
    while True:
        message = await socket.receive(WAIT)
        if message.type == aiohttp.WSMsgType.TEXT:
            if json.loads(message.data) == {"t": "pong", "n": number}:
                return
        elif message.type != aiohttp.WSMsgType.BINARY:
            raise AssertionError(f"closed with {socket.close_code}")


async def closed_with(socket):
    while (await socket.receive(WAIT)).type not in (aiohttp.WSMsgType.CLOSE,
                                                    aiohttp.WSMsgType.CLOSED,
                                                    aiohttp.WSMsgType.CLOSING,
                                                    aiohttp.WSMsgType.ERROR):
        pass
    return socket.close_code


class Wire(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.view = View()

    @classmethod
    def tearDownClass(cls):
        cls.view.end()

    def test_who_is_let_in(self):
        async def run():
            async with Client(self.view) as client:
                self.assertEqual((await client.enter("wrong")).status, 403)
                self.assertEqual((await client.enter("x" * 1000)).status, 413)
                self.assertEqual((await client.enter(self.view.token, Origin="http://evil.example")).status, 403)
                rebound = {"Origin": "http://evil.example", "Host": "evil.example"}
                self.assertEqual((await client.enter(self.view.token, **rebound)).status, 403)
                with self.assertRaises(aiohttp.WSServerHandshakeError) as refused:
                    await client.desktop()
                self.assertEqual(refused.exception.status, 403)
                answer = await client.enter(self.view.token)
                self.assertEqual(answer.status, 204)
                cookie = answer.headers["Set-Cookie"]
                self.assertIn("HttpOnly", cookie)
                self.assertIn("SameSite=Strict", cookie)
                with self.assertRaises(aiohttp.WSServerHandshakeError) as refused:
                    await client.desktop(Origin="http://evil.example")
                self.assertEqual(refused.exception.status, 403)
                async with client.http.get(client.base + "/") as page:
                    self.assertIn("default-src 'none'", page.headers["Content-Security-Policy"])
                    self.assertNotIn(self.view.token, await page.text())
                socket = await client.desktop()
                told, _ = await first_frame(socket)
                self.assertEqual(told[0]["t"], "hello")
                self.assertEqual(told[1]["t"], "state")
                self.assertFalse(told[0]["viewOnly"])
        asyncio.run(run())

    def test_bad_messages_end_their_own_page_only(self):
        deep = '{"t":' + "[" * 100000 + "]" * 100000 + "}"
        bad = [("{", 4400), ("[]", 4400), ('"drawn"', 4400), ("null", 4400), ('{"t":1}', 4400),
               ('{"t":"nothing"}', 4400), ('{"t":"key","sym":65}', 4400),
               ('{"t":"key","sym":-1,"down":true}', 4400),
               ('{"t":"key","sym":1e300,"down":true}', 4400),
               ('{"t":"key","sym":18446744073709551615,"down":true}', 4400),
               ('{"t":"pointer","x":1,"y":"2","buttons":0}', 4400),
               ('{"t":"pointer","x":99999999999,"y":2,"buttons":0}', 4400),
               ('{"t":"drawn","frame":-5}', 4400), ('{"t":"clipboard"}', 4400),
               ('{"t":"resize","width":0,"height":10}', 4400),
               ('{"t":"resize","width":100000,"height":10}', 4400),
               ('{"t":"monitors","selected":"1"}', 4400), ('{"t":"monitors","selected":[{}]}', 4400),
               (deep, 4400), (b"\1\2\3", 1003), ("x" * (2 << 20), 1009)]

        async def run():
            async with Client(self.view) as client:
                await client.enter(self.view.token)
                good = await client.desktop()
                _, number = await first_frame(good)
                await good.send_json({"t": "drawn", "frame": number})
                for message, code in bad:
                    lines = len(self.view.log().splitlines())
                    socket = await client.desktop()
                    if isinstance(message, bytes):
                        await socket.send_bytes(message)
                    else:
                        with contextlib.suppress(OSError):
                            await socket.send_str(message)
                    # Of one who is still writing, the connection's end can overtake the code.
                    codes = (code, 1006, None) if code == 1009 else (code,)
                    self.assertIn(await closed_with(socket), codes, message[:80])
                    while len(self.view.log().splitlines()) == lines:
                        await asyncio.sleep(0.01)
                    self.assertEqual(len(self.view.log().splitlines()), lines + 1, message[:80])
                # Too much at a time.
                socket = await client.desktop()
                with contextlib.suppress(OSError):  # it may be closed before all is sent
                    for _ in range(6000):
                        await socket.send_str('{"t":"pointer","x":1,"y":1,"buttons":0}')
                self.assertEqual(await closed_with(socket), 1008)
                # What is out of the picture, or early, is no fault.
                await good.send_str('{"t":"pointer","x":-5,"y":100000,"buttons":0}')
                await good.send_str('{"t":"drawn","frame":77777}')
                await good.send_str('{"t":"ping","n":9}')
                await answered(good, 9)
        asyncio.run(run())

    def test_a_page_far_away_gets_frames_while_others_are_under_way(self):
        blink = "while :; do for c in red blue; do xsetroot -solid $c; sleep 0.02; done; done"
        overtaking = []  # for each frame, whether another was not drawn yet

        async def run(view):
            async with Client(view) as client:
                await client.enter(view.token)
                socket = await client.desktop()
                undrawn = set()

                async def draw(frame):
                    await asyncio.sleep(0.3)
                    undrawn.remove(asyncio.current_task())
                    await socket.send_json({"t": "drawn", "frame": frame})

                while len(overtaking) < 20:
                    _, frame = await first_frame(socket)
                    overtaking.append(bool(undrawn))
                    undrawn.add(asyncio.create_task(draw(frame)))
                await asyncio.wait(undrawn)

        with View("--", "sh", "-c", blink) as view:
            asyncio.run(asyncio.wait_for(run(view), WAIT))
        self.assertGreater(sum(overtaking), 10, overtaking)

    def test_sizes_that_are_offered(self):
        async def until(socket, condition):
            while True:
                message = await socket.receive(WAIT)
                self.assertIn(message.type, (aiohttp.WSMsgType.TEXT, aiohttp.WSMsgType.BINARY))
                told = json.loads(message.data) if message.type == aiohttp.WSMsgType.TEXT else {}
                if told.get("t") == "modes" and condition(told["current"], told["modes"]):
                    return told["modes"]

        async def run():
            async with Client(self.view) as client:
                await client.enter(self.view.token)
                socket = await client.desktop()
                sizes = await until(socket, lambda current, _: current == [320, 240])
                for size in ([320, 240], [1280, 720], [3840, 2160]):
                    self.assertIn(size, sizes)
                # The X server has no room for it.
                await socket.send_json({"t": "resize", "width": 3840, "height": 2160})
                sizes = await until(socket, lambda _, offered: [3840, 2160] not in offered)
                self.assertIn([1280, 720], sizes)
                # Others have nothing to learn from what one page dreams of.
                for width in range(4001, 4004):
                    await socket.send_json({"t": "resize", "width": width, "height": 4000})
                told = []
                while told.count("refused") < 3:
                    message = await socket.receive(WAIT)
                    self.assertIn(message.type, (aiohttp.WSMsgType.TEXT, aiohttp.WSMsgType.BINARY))
                    if message.type == aiohttp.WSMsgType.TEXT:
                        told.append(json.loads(message.data)["t"])
                self.assertNotIn("modes", told)
        asyncio.run(asyncio.wait_for(run(), WAIT))


class Picture:
    """The canvas of a page, drawn as the protocol says."""

    def __init__(self):
        self.image = None
        self.encodings = set()

    def text(self, told):
        if told["t"] == "size":
            self.image = Image.new("RGB", (told["width"], told["height"]))

    def draw(self, data):
        count, frame = struct.unpack_from("<HI", data, 2)
        at = 16
        for _ in range(count):
            x, y, width, height, encoding, length = struct.unpack_from("<HHHHBxxxI", data, at)
            piece = data[at + 16:at + 16 + length]
            at += 16 + length
            self.encodings.add(encoding)
            box = (x, y, x + width, y + height)
            if encoding == 0:
                self.image.paste((piece[2], piece[1], piece[0]), box)
            elif encoding == 1:
                from_x, from_y = struct.unpack("<HH", piece)
                self.image.paste(self.image.crop((from_x, from_y, from_x + width, from_y + height)),
                                 box)
            elif encoding == 4:
                self.image.paste(Image.frombytes("RGBA", (width, height), piece).convert("RGB"), box)
            else:
                part = Image.open(io.BytesIO(piece))
                assert part.size == (width, height)
                self.image.paste(part.convert("RGB"), box)
        assert at == len(data)
        return frame if data[1] & 1 else None


class Pixels(unittest.TestCase):
    # Text that scrolls, a picture that moves, then rest.
    SCRIPT = """
        for i in $(seq 40); do seq -f "line %%g of a text that scrolls" $((i * 7)) $((i * 7 + 3)); sleep 0.02; done
        for i in $(seq 6); do
          xsetroot -bitmap /usr/include/X11/bitmaps/woman -fg \\#$i$i$i$i$i$i; sleep 0.03
        done
        seq -f "and line %%g" 3000; touch %s; sleep 1000"""

    # Small and large areas beside each other that change at once, over what moves and what rests.
    MOSAIC = """
import ctypes, pathlib, random, sys, time
X = ctypes.CDLL("libX11.so.6")
X.XOpenDisplay.restype = X.XDefaultRootWindow.restype = X.XCreateGC.restype = ctypes.c_void_p
display = ctypes.c_void_p(X.XOpenDisplay(None))
root = ctypes.c_ulong(X.XDefaultRootWindow(display))
gc = ctypes.c_void_p(X.XCreateGC(display, root, 0, None))
chance = random.Random(1)

def fill(x, y, width, height, colour=None):
    X.XSetForeground(display, gc, ctypes.c_ulong(chance.randrange(1 << 24) if colour is None else colour))
    X.XFillRectangle(display, root, gc, x, y, width, height)

def show():
    X.XFlush(display)
    time.sleep(0.04)

def film(left, top, right, bottom):
    for x in range(left, right, 4):
        for y in range(top, bottom, 4):
            fill(x, y, 4, 4)

film(300, 20, 700, 340)
show()
time.sleep(0.5)
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
    show()
    time.sleep(chance.choice([0, 0.3]))
pathlib.Path(sys.argv[1]).touch()
time.sleep(1000)"""

    def test_after_rest_each_page_shows_scrolled_text_exactly(self):
        fast = self.assert_exact(lambda done: ["xterm", "-geometry", "90x40+40+20", "-e",
                                               self.SCRIPT % done])
        self.assertIn(1, fast.encodings, "scrolled text should come as copies")

    def test_after_rest_each_page_shows_a_mosaic_exactly(self):
        fast = self.assert_exact(lambda done: [sys.executable, "-c", self.MOSAIC, done])
        self.assertIn(2, fast.encodings, "a film should come lossy")

    def assert_exact(self, command):
        with tempfile.TemporaryDirectory() as folder, View(
                "--", *command(folder + "/done"), arguments=("--new", "800x600")) as view:
            fast, slow = Picture(), Picture()

            async def page(client, picture, seconds):
                socket = await client.desktop()
                while True:
                    # Rest: nothing came for a while after the last drawing.
                    try:
                        message = await socket.receive(1.5)
                    except asyncio.TimeoutError:
                        if os.path.exists(folder + "/done"):
                            return
                        continue
                    if message.type == aiohttp.WSMsgType.TEXT:
                        picture.text(json.loads(message.data))
                        continue
                    frame = picture.draw(message.data)
                    if frame:
                        await asyncio.sleep(seconds)
                        await socket.send_json({"t": "drawn", "frame": frame})

            async def run():
                async with Client(view) as client:
                    await client.enter(view.token)
                    await asyncio.gather(page(client, fast, 0), page(client, slow, 0.15))
            asyncio.run(asyncio.wait_for(run(), WAIT))

            line = next(line for line in view.log().splitlines() if "XAUTHORITY=" in line)
            dump = subprocess.run(
                ["xwd", "-root", "-silent"], capture_output=True, check=True,
                env={**os.environ, "DISPLAY": line.split("display ")[1].split(",")[0],
                     "XAUTHORITY": line.split("XAUTHORITY=")[1]}).stdout
            header, width, height, stride, colours = (
                struct.unpack_from(">I", dump, at)[0] for at in (0, 16, 20, 48, 76))
            real = Image.frombuffer("RGB", (width, height), dump[header + 12 * colours:], "raw",
                                    "BGRX", stride, 1)
            for picture in (fast, slow):
                wrong = ImageChops.difference(picture.image, real).getbbox()
                self.assertIsNone(wrong, f"{picture.encodings}")
            return fast


class Program(unittest.TestCase):
    def refused(self, *arguments):
        done = subprocess.run([VIEW, *arguments], capture_output=True, timeout=WAIT, text=True)
        self.assertEqual(done.stdout, "")
        self.assertNotEqual(done.stderr, "")
        return done.returncode

    def test_what_is_refused(self):
        for arguments in (["--listen", "0.0.0.0:0"], ["--listen", "[::]:0"], ["--listen", "127.0.0.1"],
                          ["--listen", "127.0.0.1:70000"], ["--listen", "127.0.0.1:-1"],
                          ["--new", "0x5"], ["--new", "10x10x10"], ["--cert", "x"],
                          ["--param", "Nothing=1"], ["--param", "Gamma"], ["--", "true"]):
            with self.subTest(arguments):
                extra = [] if "--new" in arguments or "--" in arguments else ["--new", "64x64"]
                self.assertEqual(self.refused(*extra, "--agent", AGENT, *arguments), 2)

    def test_a_socket_of_its_own_and_a_token_that_stays(self):
        with tempfile.TemporaryDirectory() as folder:
            path, token = folder + "/view.sock", folder + "/token"
            tokens = []
            for round in range(2):
                view = View("--listen", "unix:" + path, "--token-file", token,
                            env={**os.environ, "XDG_RUNTIME_DIR": folder})
                tokens.append(view.token)
                self.assertEqual(stat.S_IMODE(os.stat(path).st_mode), 0o660)
                self.assertEqual(stat.S_IMODE(os.stat(token).st_mode), 0o600)
                if round == 0:
                    view.process.kill()  # leaves its socket behind
                    view.end()
                    continue

                async def run():
                    async with Client(view, "http://desktop.example",
                                      aiohttp.UnixConnector(path)) as client:
                        self.assertEqual((await client.enter(view.token)).status, 204)
                asyncio.run(run())
                self.assertEqual(view.end(), (0, b""))
                self.assertFalse(os.path.exists(path))
            self.assertEqual(tokens[0], tokens[1])

    def test_tls(self):
        with tempfile.TemporaryDirectory() as folder:
            certificate, key = folder + "/cert.pem", folder + "/key.pem"
            subprocess.run(["openssl", "req", "-x509", "-newkey", "rsa:2048", "-nodes", "-days", "2",
                            "-subj", "/CN=localhost", "-out", certificate, "-keyout", key],
                           check=True, capture_output=True)
            view = View("--cert", certificate, "--key", key, "--listen", "0.0.0.0:0")
            port = view.base.rstrip("/").rsplit(":", 1)[1]

            async def run():
                async with Client(view, "https://localhost:" + port,
                                  aiohttp.TCPConnector(ssl=False)) as client:
                    answer = await client.enter(view.token)
                    self.assertIn("Secure", answer.headers["Set-Cookie"])
                    # Its cookie is for encrypted lines only, and the jar keeps to that.
                    await first_frame(await client.desktop())
            asyncio.run(run())
            self.assertEqual(view.end(), (0, b""))

    def test_the_session_and_all_else_end_with_it(self):
        with tempfile.TemporaryDirectory() as folder:
            mark = folder + "/mark"
            view = View("--", "sh", "-c", f"echo $$ > {mark}.new; mv {mark}.new {mark}; sleep 1000 & wait")
            deadline = asyncio.get_event_loop_policy().new_event_loop()

            async def there():
                while not os.path.exists(mark):
                    await asyncio.sleep(0.02)
            deadline.run_until_complete(asyncio.wait_for(there(), WAIT))
            deadline.close()
            session = int(pathlib.Path(mark).read_text())
            children = subprocess.run(["ps", "-o", "pid=", "--ppid", str(view.process.pid)],
                                      capture_output=True, text=True).stdout.split()
            self.assertGreaterEqual(len(children), 3)  # Xvfb, the session, the agent
            self.assertEqual(view.end(), (0, b""))
            for process in [session, *map(int, children)]:
                with self.assertRaises(ProcessLookupError):
                    os.kill(process, 0)
            line = next(line for line in view.log().splitlines() if "XAUTHORITY=" in line)
            self.assertFalse(os.path.exists(os.path.dirname(line.split("XAUTHORITY=")[1])))


if __name__ == "__main__":
    if not aiohttp or not shutil.which("Xvfb"):
        print("!!! SKIPPED: ruvoview's wire, because python3-aiohttp, python3-pil or xvfb is not installed !!!",
              file=sys.stderr)
        sys.exit(77)
    unittest.main()
