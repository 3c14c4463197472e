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
import proxy

SLOW = float(os.environ.get("HOSTILE_SLOW", "1"))  # how much slower than a release build


class Case(unittest.TestCase):
    """A desktop with a witness of keys, and an agent that captures it and owns a text."""

    parameters = ("EnableClipboard=1",)
    dummy = False
    hide = frozenset()  # extensions that the agent does not find

    def setUp(self):
        self.xserver = desk.XServer(dummy=self.dummy)
        self.addCleanup(self.xserver.close)
        self.witness = self.neighbour("witness")
        display = self.xserver
        if self.hide:
            display = proxy.Proxy(self.xserver)
            display.reset(hide=self.hide)
            self.addCleanup(display.close)
        self.agent = desk.Agent(display, *self.parameters)
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
    def test_spoilt_time_window(self):
        for _ in range(3):
            self.xserver.run("spoil")
            self.paste(b"second")
            self.assertEqual(self.clipboard(), "second")

    def test_destroyed_windows(self):
        for text in (b"second", b"third"):
            self.xserver.run("spoil", "destroy")
            self.paste(text)
            self.assertEqual(self.clipboard(), text.decode())
        # Copies of others are still seen.
        self.agent.messages.clear()
        self.neighbour("own", "text", "copied")
        self.assertEqual(self.agent.expect("serverCutText"), desk.string("copied"))

    def test_windows_that_wander(self):
        self.neighbour("move", 60000)
        self.pace()
        self.flat()

    def test_crowd(self):
        self.neighbour("crowd", 10000)
        self.pace(seconds=6)  # the owner is looked for every five seconds
        self.flat()

    def test_processes_of_others(self):
        other = subprocess.Popen(["setpriv", "--reuid", "1000", "--clear-groups", "sleep", "60"],
                                 env={"PATH": os.environ["PATH"], "XAUTHORITY": "/forged"})
        self.addCleanup(desk.end, other)
        self.neighbour("pids", other.pid, 300)
        self.pace(seconds=6)
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
    """Forged and real events, 200,000 a second and as many as go."""

    def flood(self, kind, rate, bound=0.3, end=1.0):
        flooder = self.neighbour("flood", kind, rate)
        self.pace(bound, seconds=3)
        self.flat(16384)
        self.ends(end)
        self.stop(flooder)
        self.agent.open = False

    def paste_much(self):
        self.paste(b"x" * 15_000_000)
        self.memory = self.agent.memory()

    def test_cursors(self):
        self.flood("cursor", 200000)

    def test_cursors_at_full_speed(self):
        self.flood("cursor", 0, 2, 2)

    def test_answers(self):
        self.flood("answer", 200000)

    def test_answers_at_full_speed(self):
        self.flood("answer", 0, 2, 2)

    def test_requests(self):
        self.flood("request", 200000)

    def test_pasting_much(self):
        self.paste_much()
        self.flood("paste", 50)

    def test_owners(self):
        self.flood("owner", 200000)

    def test_configurations(self):
        self.flood("configure", 200000)

    def test_mappings(self):
        self.flood("mapping", 200000)

    def test_properties_at_full_speed(self):
        self.flood("real-property", 0, 2, 2)


class Resources(Case):
    # No test of damage that would notice.
    parameters = ("EnableClipboard=1", "CaptureMethod=2")

    def frees(self, what):
        self.updates()
        self.xserver.run("free", what)
        self.updates(6)

    def test_damage_destroyed(self):
        self.frees("damage")

    def test_pixmap_freed(self):
        self.frees("pixmap")

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
    def test_endless_pieces(self):
        owner = self.neighbour("own", "endless")
        self.pace(seconds=7)
        self.flat()
        # It is given up: no piece is taken any more.
        os.set_blocking(owner.stdout.fileno(), False)
        pieces = owner.stdout.buffer.raw
        pieces.read()
        self.pace(seconds=1)
        self.assertFalse(pieces.read())

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


class FarFuture(Case):
    parameters = ("EnableClipboard=1", "poll=100")
    hide = {"XFIXES"}

    def test_polled_clipboard_hears_on(self):
        owner = self.neighbour("own", "future")
        self.assertEqual(owner.stdout.readline(), "asked\n")
        self.agent.until(lambda: False, 1)
        self.stop(owner)
        self.agent.messages.clear()
        self.neighbour("own", "text", "news")
        self.assertEqual(self.agent.expect("serverCutText"), desk.string("news"))


class Keys(Case):
    def test_keymaps(self):
        self.neighbour("keymaps", 1000)
        self.pace(seconds=2)
        self.flat()

    def state(self):
        return self.xserver.run("state").split()

    def test_killed_connection(self):
        before = self.state()
        self.agent.send(desk.key(desk.KEY_A, 1))
        self.agent.echo()
        self.assertEqual(self.state()[1], "1")
        self.xserver.run("kill")
        self.agent.ended()
        self.assertEqual(self.agent.process.wait(), 1)
        self.assertEqual(self.agent.traces(), [])
        self.assertEqual(self.state(), ["repeat", *before[1:]])
        self.agent.open = False

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
        self.xserver.run("resize", 100)
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
