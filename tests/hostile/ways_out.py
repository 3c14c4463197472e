#!/usr/bin/env python3
"""Every way out: status, keys and buttons, auto-repeat, segments, lock files."""

import os
import random
import resource
import signal
import struct
import time
import unittest

import desk

SHIFT, KEY_SHIFTED_A = 0xFFE1, 0x41
HELD = desk.key(SHIFT, 1) + desk.key(KEY_SHIFTED_A, 1) + desk.message(
    "pointerEvent", struct.pack(">iiIB", 5, 5, 5, 0))
CONTROL_R = 105  # a keycode
KINDS = (), ("_UseXShm=0",)  # of shared memory


class WaysOut(unittest.TestCase):
    """Each test has an X server of its own, which may not survive it, and holds keys and buttons."""

    def setUp(self):
        self.xserver = desk.XServer()
        self.addCleanup(lambda: self.xserver.close(abruptly=True))

    def agent(self, *parameters, started=True, **options):
        agent = desk.Agent(self.xserver, "EnableClipboard=1", *parameters, **options)
        self.addCleanup(agent.close)
        agent.expect("init")
        if started:
            agent.start()
        agent.send(HELD)
        self.comes_to(agent, ["no-repeat", "2", "1280"])
        self.assertEqual(bool(agent.traces()), started)
        return agent

    def state(self):
        return self.xserver.run("state").split()

    def comes_to(self, agent, state):
        deadline = time.monotonic() + 20
        while self.state() != state and time.monotonic() < deadline:
            agent.echo()
        self.assertEqual(self.state(), state, agent.story())

    def gone(self, agent, status=0):
        state = self.state() if self.xserver.process.poll() is None else ["repeat", "0", "0"]
        self.assertEqual(agent.process.wait(), status, agent.story())
        self.assertEqual(agent.traces(), [], agent.story())
        self.assertEqual(state, ["repeat", "0", "0"])

    def test_each_end(self):
        for kind in KINDS:
            for number in (signal.SIGTERM, signal.SIGHUP, signal.SIGINT, None):
                with self.subTest(kind=kind, number=number):
                    agent = self.agent(*kind, started=number != signal.SIGINT)
                    agent.terminate(number) if number else agent.hang_up()
                    agent.until(lambda: False)
                    self.assertTrue(not number or agent.has_line("Got signal " + number.name, 30))
                    self.gone(agent)

    def test_stop(self):
        for started in True, False:
            agent = self.agent(started=started)
            agent.say("stop")
            agent.send(desk.key(KEY_SHIFTED_A, 0))  # a late one does nothing
            agent.echo()
            self.assertEqual(self.state()[1:], ["0", "0"])
            agent.terminate()
            self.gone(agent)

    def test_no_time_to_tidy_up(self):
        """The next agent does it, but leaves what others hold; or the same over a new connection."""
        for kind in KINDS:
            agent = self.agent(*kind)
            agent.terminate(signal.SIGKILL)
            self.xserver.run("keydown", CONTROL_R, program="xdotool")
            self.assertEqual(self.state(), ["no-repeat", "3", "1280"])
            # What is left may be removed already: each agent on the machine that starts does it.
            following = desk.Agent(self.xserver, *kind)
            self.addCleanup(following.close)
            following.expect("init")
            following.start()
            following.echo()
            self.assertEqual(self.state(), ["repeat", "1", "0"])
            self.assertEqual(agent.traces(), [])
            following.terminate()
            self.xserver.run("keyup", CONTROL_R, program="xdotool")
        agent = self.agent()
        self.xserver.run("kill")
        agent.ended()
        self.gone(agent, 1)

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
        for kind in KINDS:
            agent = self.agent(*kind)
            self.xserver.process.kill()
            self.xserver.process.wait()
            agent.ended()
            agent.until(lambda: False)
            self.assertTrue(agent.has_line("Lost connection to X display"), agent.story())
            self.gone(agent, 1)
            self.xserver.close(abruptly=True)
            self.xserver = desk.XServer()

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

    def agent(self, xserver, *parameters, script):
        """One that a shell has started after a script."""
        self.addCleanup(xserver.close)
        agent = desk.Agent(xserver, *parameters, prefix=("sh", "-c", script + '; exec "$0" "$@"'))
        self.addCleanup(agent.close)
        agent.expect("init")
        return agent

    def test_standard_error_closed(self):
        """The next descriptor opened would take its place: the X server would read what is written."""
        agent = self.agent(desk.XServer(), "Log=*:ipc:100,*:nosuch:1", script="exec 2>&-")
        self.assertEqual(os.readlink(f"/proc/{agent.pid}/fd/2"), "/dev/null")
        agent.start()
        agent.hang_up()
        self.assertEqual(agent.process.returncode, 0)

    def test_repeated(self):
        """The agent may not make files as large as the screen."""
        xserver = desk.XServer(screen="641x480x24")
        xserver.run("--newmode", "320x240", 40, 320, 1300, 1300, 1300, 240, 805, 805, 805, program="xrandr")
        xserver.run("--addmode", "screen", "320x240", program="xrandr")
        agent = self.agent(xserver, "_UseXShm=0", script="trap '' XFSZ; ulimit -f 1000")

        def set_mode(name):
            xserver.run("--output", "screen", "--mode", name, program="xrandr")

        def fails():
            failure = agent.expect("desktopFailure")
            self.assertIn(b"ftruncate(", failure)
            self.assertTrue(failure.endswith(desk.short("SystemException")))
            agent.echo()

        agent.say("start")
        agent.say("fbUpdateRequest")
        fails()
        self.assertEqual(agent.count("setPixelBuffer"), 0)
        set_mode("320x240")
        self.assertEqual(struct.unpack_from(">4i", agent.start(), 16), (0, 0, 320, 240))
        # A buffer that cannot grow with the screen stays.
        first = agent.traces()
        self.assertEqual(len(first), 2)
        set_mode("641x480")
        fails()
        self.assertEqual(agent.traces(), first)
        set_mode("320x240")
        self.assertTrue(agent.until(lambda: not set(first) & set(agent.traces())), agent.story())
        agent.echo()
        self.assertEqual(len(agent.traces()), 2)


if __name__ == "__main__":
    unittest.main()
