#!/usr/bin/env python3
"""Every way out: status, keys and buttons, auto-repeat, segments, lock files."""

import os
import random
import resource
import signal
import time
import unittest

import desk

HELD = desk.key(desk.KEY_A, 1) + desk.message(
    "pointerEvent", (5).to_bytes(4, "big") + (5).to_bytes(4, "big") + b"\0\0\0\1\0")


class WaysOut(unittest.TestCase):
    """Each test has an X server of its own, which may not survive it, and holds a key and a button."""

    def setUp(self):
        self.xserver = desk.XServer()
        self.addCleanup(lambda: self.xserver.close(abruptly=True))

    def agent(self, **options):
        agent = desk.Agent(self.xserver, "EnableClipboard=1", **options)
        self.addCleanup(agent.close)
        agent.expect("init")
        agent.start()
        agent.send(HELD)
        agent.echo()
        return agent

    def gone(self, agent, status=0):
        state = ["repeat", "0", "0"]
        if self.xserver.process.poll() is None:
            state = self.xserver.run("state").split()
        self.assertEqual(agent.process.wait(), status, agent.story())
        self.assertEqual(agent.traces(), [], agent.story())
        self.assertEqual(state, ["repeat", "0", "0"])

    def test_server_that_does_not_read(self):
        agent = self.agent()
        for turn in range(3000):  # the answers fill the channel
            try:
                agent.socket.send(desk.message(f"filler{turn}" + "." * 200))
            except BlockingIOError:
                break
        agent.process.send_signal(signal.SIGTERM)
        self.assertEqual(agent.process.wait(20), 0)
        agent.open = False
        self.gone(agent)

    def test_killed(self):
        agent = self.agent()
        self.xserver.process.kill()
        self.xserver.process.wait()
        agent.ended()
        self.gone(agent, 1)

    def test_restarted(self):
        self.xserver.close()
        self.xserver = desk.XServer(reset=True)
        agent = self.agent()
        self.xserver.process.send_signal(signal.SIGHUP)
        agent.ended()
        self.gone(agent, 1)

    def frozen(self, leave):
        agent = self.agent()
        self.xserver.process.send_signal(signal.SIGSTOP)
        agent.send(desk.message("fbUpdateRequest") + desk.message("stop") + desk.message("start"))
        self.assertLess(leave(agent), 9)
        self.assertEqual(agent.traces(), [])

    def test_frozen_and_signal(self):
        self.frozen(lambda agent: agent.terminate())

    def test_frozen_and_disconnect(self):
        self.frozen(lambda agent: agent.hang_up())

    def test_killed_while_leaving(self):
        """Also where Xlib has no way to go on: the loss is met while things are released."""
        for leave in 3 * (lambda agent: agent.terminate(), lambda agent: agent.hang_up(),
                          lambda agent: agent.ended()):
            agent = self.agent(environment={"LD_PRELOAD": desk.SHIM, "OLD_XLIB": "1"})
            agent.process.send_signal(signal.SIGSTOP)
            agent.say("stop")
            self.xserver.close(abruptly=True)
            agent.process.send_signal(signal.SIGCONT)
            leave(agent)
            self.assertIn(agent.process.wait(), (0, 1), agent.story())
            self.assertEqual(agent.traces(), [])
            self.xserver = desk.XServer()

    def test_random_moments(self):
        seed = random.randrange(1 << 30)
        dice = random.Random(seed)
        for turn in range(int(os.environ.get("WAYS_OUT_MOMENTS", "25"))):
            with self.subTest(turn, seed=seed):
                agent = desk.Agent(self.xserver, "EnableClipboard=1")
                self.addCleanup(agent.close)
                # After its signal handlers are in place, that is from its first word on.
                agent.expect("init")
                agent.send(desk.message("start") + HELD + desk.message("fbUpdateRequest"))
                agent.until(lambda: False, dice.random() * 0.1)
                leave = dice.choice((signal.SIGTERM, signal.SIGINT, signal.SIGHUP, None))
                agent.terminate(leave) if leave else agent.hang_up()
                self.gone(agent)


class FailedStart(unittest.TestCase):
    def test_few_descriptors_and_little_memory(self):
        xserver = desk.XServer()
        self.addCleanup(xserver.close)
        for kind, limits in ((resource.RLIMIT_NOFILE, range(4, 16)),
                             (resource.RLIMIT_AS, [n << 20 for n in range(8, 40, 2)])):
            for limit in limits:
                with self.subTest(kind=kind, limit=limit):
                    agent = desk.Agent(xserver, prefix=(
                        "prlimit", f"--nofile={limit}" if kind == resource.RLIMIT_NOFILE
                        else f"--as={limit}"))
                    self.addCleanup(agent.close)
                    agent.say("start")
                    agent.until(lambda: agent.count("setPixelBuffer")
                                or agent.count("desktopFailure"), 5)
                    deadline = time.monotonic() + 5
                    if agent.open:
                        agent.terminate()
                    status = agent.process.wait(max(0.1, deadline - time.monotonic()))
                    self.assertIn(status, (0, 1, 127), agent.story())
                    self.assertEqual(agent.traces(), [])
                    self.assertTrue(agent.log or agent.story().strip())


if __name__ == "__main__":
    unittest.main()
