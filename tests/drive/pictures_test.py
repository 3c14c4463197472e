#!/usr/bin/env python3
"""Pictures of ruvodrive in every format that it was built with, and on terminals of every kind.

    pictures_test.py RUVODRIVE [jpeg] [webp] [sixel]
"""

import base64
import fcntl
import functools
import io
import os
import pathlib
import pty
import random
import re
import select
import signal
import struct
import subprocess
import sys
import tempfile
import termios
import time
import unittest

from PIL import Image, ImageChops, ImageStat

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parent.parent / "support"))
import ruvo  # noqa: E402

DRIVE, FORMATS = sys.argv[1], sys.argv[2:]
WIDTH, HEIGHT = 640, 480
TILE = 64
LEFT, RIGHT = (204, 51, 17), (17, 85, 170)  # of each tile


class Pictures(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.xserver = ruvo.XServer(screen=f"{WIDTH}x{HEIGHT}x24")
        cls.folder = tempfile.TemporaryDirectory()
        rows = ", ".join(["0xff"] * (TILE // 16) + ["0"] * (TILE // 16))
        tile = pathlib.Path(cls.folder.name, "tile.xbm")
        tile.write_text(f"#define t_width {TILE}\n#define t_height {TILE}\nstatic char t_bits[] = {{\n"
                        + ",\n".join([rows] * TILE) + "};\n")
        cls.tile = tile
        cls.draw(LEFT)

    @classmethod
    def tearDownClass(cls):
        cls.xserver.close()
        cls.folder.cleanup()

    @classmethod
    def draw(cls, left):
        cls.xserver.run("xsetroot", "-bitmap", cls.tile, "-fg", "#%02x%02x%02x" % left,
                        "-bg", "#%02x%02x%02x" % RIGHT)

    def shot(self, suffix):
        file = pathlib.Path(self.folder.name, "shot." + suffix)
        text = self.xserver.run(DRIVE, "shot", file)
        self.assertEqual(text, "")
        return Image.open(file).convert("RGB")

    def assert_tiles(self, picture, left, tolerance, scale=1.0):
        for at, colour in ((TILE // 4, left), (TILE // 4 * 3, RIGHT)):
            for x, y in ((at, 10), (at + 5 * TILE, HEIGHT - 40)):
                seen = picture.getpixel((int(x * scale), int(y * scale)))
                self.assertLessEqual(max(abs(a - b) for a, b in zip(seen, colour)), tolerance,
                                     (x, y, seen, colour))

    def test_formats(self):
        png = self.shot("png")
        self.assertEqual(png.size, (WIDTH, HEIGHT))
        self.assert_tiles(png, LEFT, 0)
        for suffix, least, most in (("jpg", 0.01, 6), ("webp", 0, 0)):
            with self.subTest(suffix):
                if {"jpg": "jpeg"}.get(suffix, suffix) not in FORMATS:
                    self.assertIn("without the library", self.xserver.run(DRIVE, "shot", "x." + suffix))
                    continue
                picture = self.shot(suffix)
                difference = max(ImageStat.Stat(ImageChops.difference(png, picture)).mean)
                self.assertLessEqual(difference, most)
                self.assertGreaterEqual(difference, least)
                self.assert_tiles(picture, LEFT, most)


class Terminal:
    """A terminal of 80 by 24 characters that answers a question for its attributes, and others of
    which it knows how."""

    def __init__(self, display, answers, pixels=(WIDTH, HEIGHT)):
        self.answers, self.text, self.asked = answers, b"", 0
        ours, theirs = pty.openpty()
        fcntl.ioctl(theirs, termios.TIOCSWINSZ, struct.pack("HHHH", 24, 80, *pixels))
        self.fd, self.line = ours, theirs
        self.before = termios.tcgetattr(theirs)
        self.process = subprocess.Popen([DRIVE, "--display", display, "live"], stdin=theirs,
                                        stdout=theirs, preexec_fn=self.alone)

    @staticmethod
    def alone():
        os.setpgid(0, 0)  # SIGTSTP stops nobody in a group that no shell watches
        ruvo.dies_with_parent()

    def pump(self, timeout=0.1):
        if not select.select([self.fd], [], [], timeout)[0]:
            return
        self.text += os.read(self.fd, 1 << 20)
        for question, answer in self.answers.items():
            at = self.text.find(question, self.asked)
            if at >= 0:
                os.write(self.fd, answer)
        if self.text.find(b"\33[c", self.asked) >= 0:
            self.asked = len(self.text)

    def until(self, get):
        end = time.monotonic() + 20
        while time.monotonic() < end:
            found = get()
            if found is not None:
                return found
            self.pump()
        raise AssertionError(f"not within 20 s: {self.text[-300:]}")

    def is_as_it_was(self):
        while select.select([self.fd], [], [], 0)[0]:
            self.pump(0)
        return termios.tcgetattr(self.line) == self.before and self.text.endswith(b"\33[?1049l")

    def __enter__(self):
        return self

    def __exit__(self, *failure):
        """Ends the command, which leaves the terminal as it was."""
        self.process.terminate()
        self.process.send_signal(signal.SIGCONT)  # a stopped one
        while self.process.poll() is None:
            self.pump()
        good = self.is_as_it_was() and self.process.returncode == 0
        os.close(self.fd)
        os.close(self.line)
        assert failure[0] or good


def kitty_picture(text):
    """The last whole one."""
    pieces, whole = [], None
    for keys, data in re.findall(rb"\x1b_G([^;\x1b]*);([^\x1b]*)\x1b\\", text):
        if b"a=T" in keys:
            pieces = []
        pieces.append(data)
        if b"m=0" in keys:
            whole = b"".join(pieces)
    return whole and Image.open(io.BytesIO(base64.b64decode(whole))).convert("RGB")


def sixel_picture(text):
    bodies = re.findall(rb"\x1bP[0-9;]*q([^\x1b]*)\x1b\\", text)
    if not bodies:
        return None
    tokens = re.findall(rb'"[0-9;]*|#[0-9;]*|![0-9]+.|[?-~$-]', bodies[-1])
    width, height = map(int, tokens[0][1:].split(b";")[2:])
    picture = Image.new("RGB", (width, height))
    palette, colour, x, top = {}, None, 0, 0
    for token in tokens[1:]:
        if token[:1] == b"#":
            number, *definition = map(int, token[1:].split(b";"))
            if definition:
                palette[number] = tuple(round(v * 2.55) for v in definition[1:])
            colour = palette[number]
        elif token in (b"$", b"-"):
            x, top = 0, top + 6 * (token == b"-")
        else:
            count = int(token[1:-1]) if token[:1] == b"!" else 1
            bits = token[-1] - 63
            for y in range(6):
                if bits >> y & 1 and top + y < height:
                    picture.paste(colour, (x, top + y, min(x + count, width), top + y + 1))
            x += count
    return picture


class Terminals(Pictures):
    KITTY = {b"\33_Gi=31,s=1,v=1,a=q,t=d,f=24;AAAA\33\\": b"\33_Gi=31;OK\33\\"}
    SIXEL = {b"\33[?1;3;256S": b"\33[?1;0;256S", b"\33[?2;1;0S": b"\33[?2;0;600;900S"}
    PLAIN_ATTRIBUTES, SIXEL_ATTRIBUTES = {b"\33[c": b"\33[?62;22c"}, {b"\33[c": b"\33[?63;1;4c"}

    test_formats = None

    def terminal(self, answers, **options):
        return Terminal(self.xserver.display, answers, **options)

    def shows(self, answers, get, tolerance, size, **options):
        self.addCleanup(self.draw, LEFT)
        with self.terminal(answers, **options) as terminal:
            for colour in (LEFT, (240, 240, 10)):  # it follows
                self.draw(colour)
                picture = terminal.until(lambda c=colour: self.picture_with(get(terminal.text), c))
                self.assertEqual(picture.size, size)
                self.assert_tiles(picture, colour, tolerance, size[0] / WIDTH)
        return terminal.text

    @staticmethod
    def picture_with(picture, left):
        if not picture:
            return None
        seen = picture.getpixel((TILE // 8, 10))
        return picture if max(abs(a - b) for a, b in zip(seen, left)) < 10 else None

    def test_kitty(self):
        text = self.shows(self.KITTY | self.SIXEL_ATTRIBUTES, kitty_picture, 0, (WIDTH, HEIGHT))
        self.assertIn(b"a=d,d=A", text[-100:])
        # A terminal that has half the pixels, and says so only when asked.
        self.draw(LEFT)
        self.shows({b"\33[14t": b"\33[4;240;320t"} | self.KITTY | self.PLAIN_ATTRIBUTES, kitty_picture,
                   8, (WIDTH // 2, HEIGHT // 2), pixels=(0, 0))

    def test_sixel(self):
        if "sixel" not in FORMATS:
            self.assert_blocks(self.SIXEL | self.SIXEL_ATTRIBUTES)
            return
        # One line of the terminal stays free, and nothing is wider than it may be.
        self.shows(self.SIXEL | self.SIXEL_ATTRIBUTES, sixel_picture, 6, (600, 450))
        # A smaller desktop leaves nothing of the larger one.
        xrandr = functools.partial(self.xserver.run, "xrandr")
        self.addCleanup(xrandr, "--output", "screen", "--mode", f"{WIDTH}x{HEIGHT}")
        with self.terminal(self.SIXEL | self.SIXEL_ATTRIBUTES) as terminal:
            def shown(size):
                picture = sixel_picture(terminal.text)
                return picture and picture.size == size or None

            terminal.until(lambda: shown((600, 450)))
            cleared = terminal.text.count(b"\33[2J")
            xrandr("--newmode", "small", 10, 320, 330, 340, 350, 240, 250, 260, 270)
            xrandr("--addmode", "screen", "small")
            xrandr("--output", "screen", "--mode", "small")
            terminal.until(lambda: shown((320, 240)))
            self.assertGreater(terminal.text.count(b"\33[2J"), cleared)

    def assert_blocks(self, answers):
        with self.terminal(answers) as terminal:
            # Both halves of a character have the colour of the screen there.
            block = "\33[38;2;204;51;17;48;2;204;51;17m\u2580".encode()
            terminal.until(lambda: block in terminal.text or None)
        self.assertNotRegex(terminal.text, rb"\x1b_Ga=T|\x1bP")

    def test_others(self):
        self.assert_blocks(self.PLAIN_ATTRIBUTES)
        self.assert_blocks({})  # does not even answer

    def test_nobody_reads(self):
        self.addCleanup(self.draw, LEFT)
        terminal = self.terminal(self.KITTY | self.PLAIN_ATTRIBUTES)
        terminal.until(lambda: kitty_picture(terminal.text))
        noise = pathlib.Path(self.folder.name, "noise.xbm")
        bits = ", ".join(map(str, random.Random(1).randbytes(WIDTH * HEIGHT // 8)))
        noise.write_text(f"#define n_width {WIDTH}\n#define n_height {HEIGHT}\n"
                         f"static char n_bits[] = {{ {bits} }};\n")
        # Pictures of noise are more than the terminal's buffer takes.
        end = time.monotonic() + 20
        while select.select([], [terminal.line], [], 0.3)[1] and time.monotonic() < end:
            self.xserver.run("xsetroot", "-bitmap", noise)
            self.draw(LEFT)
        terminal.process.terminate()
        self.assertEqual(terminal.process.wait(10), 0)
        self.assertEqual(termios.tcgetattr(terminal.line), terminal.before)

    def test_stop(self):
        with self.terminal(self.KITTY | self.PLAIN_ATTRIBUTES) as terminal:
            pid = terminal.process.pid
            terminal.until(lambda: kitty_picture(terminal.text))
            os.kill(pid, signal.SIGTSTP)
            terminal.until(lambda: os.waitid(os.P_PID, pid, os.WSTOPPED | os.WNOHANG))
            self.assertTrue(terminal.is_as_it_was())
            terminal.text, terminal.asked = b"", 0
            os.kill(pid, signal.SIGCONT)
            terminal.until(lambda: kitty_picture(terminal.text))


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1])
