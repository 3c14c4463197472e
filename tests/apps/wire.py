"""The server's end of an agent's channel, and the keys and buttons of the viewer behind it."""

import contextlib
import ctypes
import os
import socket
import struct
import subprocess
import threading
import time

XKB = ctypes.CDLL("libxkbcommon.so.0")
XKB.xkb_keysym_from_name.argtypes = [ctypes.c_char_p, ctypes.c_int]


def keysym(name):
    """The keysym of a character or of a key's name."""
    if len(name) == 1:
        return 0xFF0D if name == "\n" else XKB.xkb_utf32_to_keysym(ord(name))
    found = XKB.xkb_keysym_from_name(name.encode(), 0)
    if not found:
        raise ValueError(f"no key symbol '{name}'")
    return found


class Agent:
    """A running agent, started."""

    MAX_FRAME = 32766

    def __init__(self, program, display, parameters, log):
        ours, theirs = socket.socketpair()
        theirs_low = os.dup(theirs.fileno())
        self.process = subprocess.Popen(
            [program, "user", str(theirs_low), *parameters],
            pass_fds=[theirs_low],
            stdin=subprocess.DEVNULL, stdout=log, stderr=log,
            env={**os.environ, "DISPLAY": display})
        os.close(theirs_low)
        theirs.close()
        self.socket = ours
        self.log = log
        self.changed = threading.Condition()
        self.copied = []  # every text that arrived
        self.received = set()  # the names of the messages that arrived
        self.ended = False
        threading.Thread(target=self._read, daemon=True).start()
        self.send("start")
        self.wait(lambda: "setPixelBuffer" in self.received, "the agent's framebuffer")

    # The channel.

    def send(self, name, body=b""):
        message = bytes([len(name)]) + name.encode() + body
        frames = []
        for begin in range(0, len(message), self.MAX_FRAME):
            part = message[begin:begin + self.MAX_FRAME]
            last = begin + self.MAX_FRAME >= len(message)
            frames.append(struct.pack(">H", len(part) | (0x8000 if last else 0)) + part)
        self.socket.sendall(b"".join(frames))

    def wait(self, condition, what, seconds=30):
        with self.changed:
            if not self.changed.wait_for(lambda: condition() or self.ended, seconds) or self.ended:
                raise TimeoutError(f"waiting for {what}")

    def _read(self):
        message = b""
        with self.socket.makefile("rb") as stream, contextlib.suppress(OSError):
            while len(header := stream.read(2)) == 2:
                size = struct.unpack(">H", header)[0]
                message += stream.read(size & 0x7FFF)
                if size & 0x8000:
                    self._take(message)
                    message = b""
        with self.changed:
            self.ended = True
            self.changed.notify_all()

    def _take(self, message):
        name = message[1:1 + message[0]].decode()
        body = message[1 + message[0]:]
        with self.changed:
            self.received.add(name)
            if name == "serverCutText":
                self.copied.append(body[4:])
            elif name == "logMsg":
                length = body[4]
                text = body[5 + length + 4:]
                self.log.write(b"%d %s: %s\n" % (struct.unpack(">I", body[:4])[0],
                                                 body[5:5 + length], text))
            self.changed.notify_all()

    # What a viewer does.

    def key(self, name, down):
        self.send("keyEvent", struct.pack(">IB", keysym(name), down))

    def press(self, *combinations):
        """Presses keys, those joined with "+" together."""
        for combination in combinations:
            names = [combination] if combination == "+" else combination.split("+")
            for name in names:
                self.key(name, True)
            for name in reversed(names):
                self.key(name, False)

    def type(self, text, per_second=0):
        due = time.monotonic()
        for character in text:
            self.key(character, True)
            self.key(character, False)
            if per_second:
                due += 1 / per_second
                time.sleep(max(0, due - time.monotonic()))

    def pointer(self, x, y, button=0):
        mask = 1 << (button - 1) if button else 0
        self.send("pointerEvent", struct.pack(">iiIB", x, y, mask, 0))

    def click(self, x, y, button=1, count=1, pause=0.01):
        """PAUSE: seconds that a finger stays where it is."""
        self.pointer(x, y)
        for _ in range(count):
            time.sleep(pause)
            self.pointer(x, y, button)
            time.sleep(pause)
            self.pointer(x, y)

    def drag(self, start, end, pause=0.0):
        """With the left button, in steps; PAUSE seconds where a person would hesitate."""
        self.pointer(*start)
        self.pointer(*start, 1)
        time.sleep(pause)
        for step in range(1, 17):
            self.pointer(*(a + (b - a) * step // 16 for a, b in zip(start, end)), 1)
            time.sleep(pause / 16)
        time.sleep(pause)
        self.pointer(*end)

    def cut_text(self, text):
        data = text.encode()
        self.send("clientCutText", struct.pack(">i", len(data)) + data)

    def close(self):
        with contextlib.suppress(OSError):
            self.socket.shutdown(socket.SHUT_RDWR)
        try:
            self.process.wait(10)
        except subprocess.TimeoutExpired:
            self.process.kill()
            self.process.wait()
            raise
        finally:
            self.socket.close()
