#!/usr/bin/env python3
"""Started and stopped, and resized, again and again: the agent holds what it held before."""

import os
import struct
import unittest

import desk

CYCLES = int(os.environ.get("HOSTILE_CYCLES", "50"))


class Cycles(unittest.TestCase):
    def setUp(self):
        self.xserver = desk.XServer(dummy=True)
        self.addCleanup(self.xserver.close)
        self.agent = desk.Agent(self.xserver, "EnableClipboard=1", "log=*:ipc:0")
        self.addCleanup(self.agent.close)
        self.agent.expect("init")

    def stays(self, step, times):
        """A step leaves nothing, however often it is taken."""
        for turn in range(20):
            step(turn)
        self.agent.until(lambda: False, 1)  # buffers are replaced in later turns of the loop
        before = self.agent.holdings(self.xserver)
        for turn in range(times):
            step(turn)
            self.agent.messages.clear()
        self.agent.until(lambda: False, 1)
        after = self.agent.holdings(self.xserver)
        before["memory KB"] += 1024
        for name, value in after.items():
            self.assertLessEqual(value, before[name], name)

    def test_start_and_stop(self):
        def cycle(_):
            self.agent.start()
            self.agent.say("stop")
            self.agent.echo()
        self.stays(cycle, CYCLES)

    def test_resizes(self):
        def resize(turn):
            self.agent.say("setDisplayMode", struct.pack(">II", 800 + 8 * (turn % 10), 600))
            self.agent.echo()
        self.agent.start()
        self.stays(resize, CYCLES // 10 * 10)


if __name__ == "__main__":
    unittest.main()
