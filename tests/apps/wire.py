"""The server's end of an agent's channel, and the keys and buttons of the viewer behind it."""

import ctypes
import pathlib
import select
import socket
import struct
import sys
import threading
import time

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parent.parent / "support"))
import ruvo  # noqa: E402

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


class Agent(ruvo.Agent):
    """A running agent, started. What it sends is read all the time."""

    def __init__(self, program, xserver, parameters, log):
        self.changed = threading.Condition()
        self.copied = []  # every text that arrived
        self.output = log
        super().__init__(xserver, *parameters, program=program)
        self.reader = threading.Thread(target=self._read, daemon=True)
        self.reader.start()
        self.say("start")
        self.wait(lambda: self.count("setPixelBuffer"), "the agent's framebuffer")

    def wait(self, condition, what, seconds=30):
        with self.changed:
            if not self.changed.wait_for(lambda: condition() or not self.open, seconds) \
                    or not self.open:
                raise TimeoutError(f"waiting for {what}")

    def _read(self):
        while self.open:
            select.select([self.socket], [], [], 1)
            with self.changed:
                self.pump()
                self.changed.notify_all()

    def give_way(self):
        time.sleep(0.01)

    def _take(self, name, body):
        super()._take(name, body)
        if name == "serverCutText":
            self.copied.append(body[4:])
        elif name == "logMsg":
            self.output.write(b"%d %b: %b\n" % tuple(
                part if isinstance(part, int) else part.encode() for part in self.log.pop()))

    # What a viewer does.

    def key(self, name, down):
        self.send(ruvo.key(keysym(name), down))

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
        self.say("pointerEvent", struct.pack(">iiIB", x, y, mask, 0))

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
        self.say("clientCutText", ruvo.string(text))

    def close(self):
        self.socket.shutdown(socket.SHUT_RDWR)
        self.reader.join()
        self.ended()
        self.errors.seek(0)
        self.output.write(self.errors.read())
        super().close()
