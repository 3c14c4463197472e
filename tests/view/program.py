"""ruvoview as a program, and what talks to it without being a browser."""

import asyncio
import json
import os
import pathlib
import subprocess
import sys
import tempfile

import aiohttp
from PIL import ImageChops, ImageGrab

ROOT = pathlib.Path(__file__).resolve().parent.parent.parent
sys.path += [str(ROOT / "tests" / "apps"), str(ROOT / "tests" / "support")]
import ruvo  # noqa: E402

VIEW = os.environ.get("RUVOVIEW", str(ROOT / "build/release/ruvoview"))
AGENT = os.environ.get("RUVOAGENT", str(ROOT / "build/release/ruvoagent"))
WAIT = 60
LAST_PIECE = 1


class View:
    """A running ruvoview."""

    def __init__(self, *options, listen="127.0.0.1:0", agent=AGENT, **environment):
        self.errors = tempfile.TemporaryFile()
        self.process = subprocess.Popen([VIEW, "--agent", agent, "--listen", listen, *options],
                                        stdout=subprocess.PIPE, stderr=self.errors,
                                        env={**os.environ, **environment},
                                        preexec_fn=ruvo.dies_with_parent)
        self.address = self.process.stdout.readline().decode().strip()
        self.origin, _, self.token = self.address.partition("#")
        self.origin = self.origin.rstrip("/")
        if not self.token:
            self.__exit__()
            raise RuntimeError(f"ruvoview does not start: {self.address!r}")

    @property
    def port(self):
        return int(self.origin.rsplit(":", 1)[1])

    def log(self):
        self.errors.seek(0)
        return self.errors.read().decode().splitlines()

    def children(self):
        """The process ids of what it has started, by name."""
        text = subprocess.run(["ps", "-o", "comm=,pid=", "--ppid", str(self.process.pid)],
                              capture_output=True, text=True).stdout
        return {name: int(number) for name, number in map(str.split, text.splitlines())}

    def kill(self):
        self.process.kill()
        self.close()

    def close(self):
        """Its status, and what it printed after the address."""
        self.process.terminate()
        rest = self.process.communicate(timeout=WAIT)[0] if not self.process.stdout.closed else b""
        return self.process.wait(WAIT), rest

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.close()
        self.errors.close()


class Client:
    """A browser that may do anything."""

    def __init__(self, view, origin=None, connector=None):
        self.view = view
        self.origin = origin or view.origin
        self.http = aiohttp.ClientSession(cookie_jar=aiohttp.CookieJar(unsafe=True),
                                          connector=connector, timeout=aiohttp.ClientTimeout(WAIT))

    async def __aenter__(self):
        return self

    async def __aexit__(self, *_):
        await self.http.close()

    async def enter(self, token=None, **headers):
        async with self.http.post(self.origin + "/session", data=token or self.view.token,
                                  headers={"Origin": self.origin, **headers}) as answer:
            return answer

    async def desktop(self, **headers):
        return await self.http.ws_connect(
            self.origin + "/desktop", protocols=["ruvo-view-1"], max_msg_size=0,
            headers={"Origin": self.origin, **headers})


async def until(socket, condition):
    """What the desktop tells, up to the first message that is so: JSON objects, and pieces of
    frames as bytes."""
    told = []
    async with asyncio.timeout(WAIT):
        async for message in socket:
            is_text = message.type == aiohttp.WSMsgType.TEXT
            told.append(json.loads(message.data) if is_text else message.data)
            if condition(told[-1]):
                return told
    raise AssertionError(f"closed with {socket.close_code}")


def says(**values):
    """The condition that a JSON object has these."""
    return lambda told: isinstance(told, dict) and values.items() <= told.items()


def frame_of(piece):
    """The number of a frame that is complete with this piece."""
    if isinstance(piece, bytes) and piece[1] & LAST_PIECE:
        return int.from_bytes(piece[4:8], "little")
    return None


def screen_picture(display):
    """What the X server shows."""
    return ImageGrab.grab(xdisplay=display).convert("RGB")


def difference(picture, other):
    """None when they are equal, else what is not."""
    if picture.size != other.size:
        return f"{picture.size} instead of {other.size}"
    return ImageChops.difference(picture, other).getbbox()
