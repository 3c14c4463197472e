#!/usr/bin/env python3
"""Hostile X clients against the real agent: it goes on at the same pace.

    neighbours.py [Case.test...]
"""

import os
import statistics
import struct
import subprocess
import time
import unittest

import desk

SLOW = float(os.environ.get("HOSTILE_SLOW", "1"))  # how much slower than a release build


class Case(unittest.TestCase):
    """A desktop with a witness of keys, and an agent that captures it and owns a text."""

    parameters = ("EnableClipboard=1",)
    dummy = False

    def setUp(self):
        self.xserver = desk.XServer(dummy=self.dummy)
        self.addCleanup(self.xserver.close)
        self.witness = self.neighbour("witness")
        self.agent = desk.Agent(self.xserver, *self.parameters)
        self.addCleanup(self.agent.close)
        self.agent.expect("init")
        self.agent.start()
        self.paste(b"first")
        self.memory = self.agent.memory()

    def neighbour(self, *arguments):
        client = self.xserver.client(*arguments)
        self.addCleanup(self.stop, client)
        return client

    @staticmethod
    def stop(client):
        desk.end(client, 1)
        client.stdout.close()

    def paste(self, text):
        self.agent.say("clientCutText", desk.string(text))
        self.agent.echo()

    def clipboard(self):
        return self.xserver.run("-o", "-selection", "clipboard", program="xclip")

    def pace(self, bound=0.3, seconds=0.0):
        """Key and channel latencies; one slow turn may be the machine's."""
        end = time.monotonic() + seconds
        keys, echoes = [], []
        while len(keys) < 5 or time.monotonic() < end:
            echoes.append(self.agent.echo())
            keys.append(self.agent.key_latency(self.witness))
            self.agent.forget("badMsg")
        for what, times in (("keys", keys), ("channel", echoes)):
            self.assertLess(statistics.median(times), bound * SLOW, (what, times))
            self.assertLess(max(times), 7 * bound * SLOW, (what, times))

    def updates(self, number=3):
        """Updates flow, and what they announce is there."""
        blinker = self.neighbour("blink")
        colours = set()
        for _ in range(number):
            self.agent.say("fbUpdateRequest")
            self.agent.expect("fbUpdate")
            colours.add(self.agent.pixel(50, 50))
        self.stop(blinker)
        self.assertGreater(len(colours), 1)

    def flat(self, kilobytes=4096):
        self.assertLess(self.agent.memory(), self.memory + kilobytes, self.agent.story())

    def _callTestMethod(self, method):
        """Whatever a test does: the agent works on, and leaves in good order."""
        method()
        if not self.agent.open:
            return
        self.pace()
        self.updates()
        self.ends()

    def ends(self, bound=1.0):
        self.assertLess(self.agent.terminate(), bound * SLOW)
        self.assertEqual(self.agent.process.returncode, 0, self.agent.story())
        self.assertEqual(self.agent.traces(), [])


class Windows(Case):
    def test_spoilt_windows(self):
        text = "first"
        for turn, how in enumerate(((), ("destroy",), (), ("destroy",))):
            self.xserver.run("spoil", *how)
            deadline = time.monotonic() + 10
            while self.clipboard() != text:
                self.assertLess(time.monotonic(), deadline, "it is ours still")
                self.agent.echo()
            # Copies of others are seen, and what they have taken meanwhile is theirs.
            self.agent.messages.clear()
            owner = self.neighbour("own", "text", f"copied {turn}")
            self.assertEqual(self.agent.expect("serverCutText"), desk.string(f"copied {turn}"))
            self.xserver.run("spoil", *how)
            self.pace()
            self.assertEqual(self.clipboard(), f"copied {turn}")
            self.stop(owner)
            # Offered before anybody has noticed.
            self.xserver.run("spoil", *how)
            text = f"offered {turn}"
            self.paste(text.encode())
            self.assertEqual(self.clipboard(), text)

    def test_processes_of_others(self):
        other = subprocess.Popen(["setpriv", "--reuid", "1000", "--clear-groups", "sleep", "60"],
                                 env={"PATH": os.environ["PATH"], "XAUTHORITY": "/forged"})
        self.addCleanup(desk.end, other)
        self.neighbour("windows", 10000, other.pid)
        self.pace(seconds=6)  # the owner is looked for every five seconds
        self.flat()
        self.assertNotIn(struct.pack(">II", 0, 1000) + desk.short("/forged"),
                         [body for name, body in self.agent.messages if name == "desktopUidChanged"])


class Cursors(Case):
    def test_huge_cursor(self):
        self.agent.messages.clear()
        self.neighbour("cursor", 2500, 2500)
        self.agent.echo(60)  # the X server takes its time to hand it out
        self.pace()
        self.flat()
        self.assertEqual(self.agent.count("setCursorImage"), 0)

    def test_fast_cursors(self):
        self.neighbour("cursor", 500, 500, 1000)
        self.pace(seconds=2)
        self.flat(20480)


class Floods(Case):
    """Forged and real events."""

    def test_of_every_kind(self):
        self.paste(b"x" * 15_000_000)  # what answers cost
        self.memory = self.agent.memory()
        for kind, rate, bound in (("cursor", 200000, 0.3), ("cursor", 0, 2), ("answer", 200000, 0.3),
                                  ("request", 200000, 0.3), ("paste", 50, 0.3), ("owner", 200000, 0.3),
                                  ("configure", 200000, 0.3), ("mapping", 200000, 0.3),
                                  ("real-property", 0, 2), ("real-mapping", 1000, 0.3)):
            with self.subTest(kind, rate=rate):
                flooder = self.neighbour("flood", kind, rate)
                self.pace(bound, seconds=1)
                self.flat(16384)
                self.stop(flooder)
        self.neighbour("flood", "cursor", 200000)  # until the end


class Resources(Case):
    # No test of damage that would notice.
    parameters = ("EnableClipboard=1", "CaptureMethod=2")

    def frees(self, what):
        self.updates()
        self.xserver.run("free", what)
        self.updates(6)

    def test_context_freed(self):
        self.frees("context")
        self.assertTrue(self.agent.has_line("Capture was destroyed: BadGC", 0), self.agent.story())

    def test_pixmap_freed(self):
        self.frees("pixmap")
        # What happened before a stop does not count for the next start.
        self.agent.say("stop")
        self.agent.expect("captureBroken")
        self.agent.start()
        self.frees("pixmap")
        self.assertFalse(self.agent.has_line("Using polling"))

    def test_freed_again_and_again(self):
        self.frees("damage")
        self.agent.messages.clear()
        self.xserver.run("free")
        self.agent.say("fbUpdateRequest")
        self.assertEqual(self.agent.expect("captureBroken"), b"\1")
        self.updates()
        # Without damage it is still found, and made anew.
        self.frees("pixmap")


class Selections(Case):
    def test_wrong_types(self):
        owner = None
        for _ in range(12):
            if owner:
                self.stop(owner)
            owner = self.neighbour("own", "types")
            self.pace()
        self.flat()

    def test_requestors_that_vanish(self):
        self.xserver.run("vanish", 5000)
        self.pace()
        self.flat()
        self.assertEqual(self.clipboard(), "first")


class Keys(Case):
    def state(self):
        return self.xserver.run("state").split()

    def test_server_grab(self):
        """Held during every request; the agent waits, and goes on."""
        self.memory = self.agent.memory()
        for request in (desk.key(desk.KEY_A, 1), desk.message("fbUpdateRequest"),
                        desk.message("clientCutText", desk.string(b"text")),
                        desk.message("setDisplayMode", struct.pack(">II", 800, 600)),
                        desk.message("stop"), desk.message("start")):
            holder = self.neighbour("grab", 2)
            self.agent.send(request)
            self.assertEqual(holder.stdout.readline(), "released\n")
            self.agent.echo()
        self.agent.send(desk.key(desk.KEY_A, 0))
        while self.state()[1] != "0":
            self.agent.echo()
        self.stop(self.witness)
        self.witness = self.neighbour("witness")


class Modes(Case):
    dummy = True

    def test_resize_storm(self):
        sizes = "for i in $(seq 30); do xrandr -s 800x600; xrandr -s 640x480; done; xrandr -s 1024x768"
        self.assertEqual(self.xserver.run("-c", sizes, program="sh"), "")
        self.pace()
        self.updates()
        self.flat(16384)

    def test_modes_removed_while_set(self):
        remover = self.neighbour("remove-modes")
        for i in range(20):
            self.agent.say("setDisplayMode", struct.pack(">II", 800 + 8 * i, 600))
        self.agent.echo()
        self.stop(remover)
        self.agent.say("setDisplayMode", struct.pack(">II", 800, 600))
        self.agent.echo()
        geometry = self.xserver.run(program="xdpyinfo")
        self.assertIn("800x600 pixels", geometry)


if __name__ == "__main__":
    unittest.main()
