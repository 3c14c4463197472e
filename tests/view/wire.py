#!/usr/bin/python3
"""ruvoview against those who do not keep to its protocol, and its command line.

Status 0 when all is right, 77 when python3-aiohttp or Xvfb is not there.
"""

import asyncio
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
        self.base, self.token = self.address.split("#")

    def log(self):
        self.errors.seek(0)
        return self.errors.read().decode()

    def end(self):
        self.process.terminate()
        rest = self.process.stdout.read()
        self.process.stdout.close()
        return self.process.wait(WAIT), rest


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
                        await socket.send_str(message)
                    self.assertEqual(await closed_with(socket), code, message[:80])
                    self.assertEqual(len(self.view.log().splitlines()), lines + 1, message[:80])
                # Too much at a time.
                socket = await client.desktop()
                for _ in range(6000):
                    await socket.send_str('{"t":"pointer","x":1,"y":1,"buttons":0}')
                self.assertEqual(await closed_with(socket), 1008)
                # What is out of the picture, or early, is no fault.
                await good.send_str('{"t":"pointer","x":-5,"y":100000,"buttons":0}')
                await good.send_str('{"t":"drawn","frame":77777}')
                await good.send_str('{"t":"ping","n":9}')
                while (await good.receive_json(timeout=WAIT)) != {"t": "pong", "n": 9}:
                    pass
        asyncio.run(run())

    def test_keys_of_a_page_that_leaves_go_up(self):
        display, authority = self.display()
        watcher = subprocess.Popen(
            ["xinput", "test-xi2", "--root"], stdout=subprocess.PIPE, text=True,
            env={**os.environ, "DISPLAY": display, "XAUTHORITY": authority}) \
            if shutil.which("xinput") else None
        if not watcher:
            self.skipTest("xinput is not installed")

        async def run():
            async with Client(self.view) as client:
                await client.enter(self.view.token)
                socket = await client.desktop()
                await first_frame(socket)
                await socket.send_str('{"t":"key","sym":65505,"down":true}')
                await socket.send_str('{"t":"ping","n":1}')
                while (await socket.receive()).data != '{"n":1,"t":"pong"}':
                    pass
        try:
            for line in watcher.stdout:
                if "KeyboardClass" in line or "XITouchClass" in line:
                    break
            asyncio.run(run())
            seen = []
            for line in watcher.stdout:
                if "RawKey" in line:
                    seen.append("press" if "Press" in line else "release")
                if seen == ["press", "release"]:
                    break
        finally:
            watcher.kill()
            watcher.wait()
            watcher.stdout.close()

    def display(self):
        line = next(line for line in self.view.log().splitlines() if "XAUTHORITY=" in line)
        return line.split("display ")[1].split(",")[0], line.split("XAUTHORITY=")[1]


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
                view = View("--listen", "unix:" + path, "--token-file", token)
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
        print("!!! SKIPPED: ruvoview's wire, because python3-aiohttp or xvfb is not installed !!!",
              file=sys.stderr)
        sys.exit(77)
    unittest.main()
