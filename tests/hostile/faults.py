#!/usr/bin/env python3
"""Every call fails once: each library call that a conversation makes, each X request, each
combination of absent extensions. The agent may go on or end, but does not crash, hang, leave anything
behind, or keep silent about what it could not do.
"""

import itertools
import os
import struct
import subprocess
import tempfile
import time
import types
import unittest

import desk
import proxy

# What the shim can do, with the step from one point to the next in the complete table.
CALLS = {
    "memory": 20, "read-interrupted": 1, "read-again": 1, "read-reset": 1, "read-short": 1,
    "write-interrupted": 2, "write-again": 2, "write-broken": 2, "write-full": 4, "write-short": 1,
    "select": 1, "poll": 2, "open": 1, "socket": 1, "pipe": 1, "mkdir": 1, "flock": 1,
    "shmget": 1, "shmat": 1, "shmctl": 1, "shm_open": 1, "ftruncate": 1, "mmap": 1, "fork": 1,
}
# Where another way is taken than with all extensions.
PARAMETERS = {"shm_open": ["_UseXShm=0"], "ftruncate": ["_UseXShm=0"], "mmap": ["_UseXShm=0"],
              "fork": ["-fork"]}
EXTENSIONS = ["XTEST", "XFIXES", "DAMAGE", "MIT-SHM", "RANDR", "XKEYBOARD"]
GOOD, FATAL = ("absorbed", "told"), ("crashed", "hangs", "leaked", "silent")


def conversation(display, *parameters, environment=None, prefix=(), patience=5):
    """A whole life of an agent; says how it went."""
    result = types.SimpleNamespace(done=[], story="")
    agent = desk.Agent(display, "EnableClipboard=1", *parameters, environment=environment,
                       prefix=prefix)
    forked = "-fork" in parameters
    try:
        for name, body, answer in (
                (None, b"", "init"), ("start", b"", "setPixelBuffer"),
                ("clientCutText", desk.string(b"text"), None),
                ("keyEvent", struct.pack(">IB", desk.KEY_A, 1), None),
                ("pointerEvent", struct.pack(">iiIB", 9, 9, 0, 0), None),
                ("fbUpdateRequest", b"", "fbUpdate"), ("stop", b"", None)):
            if name:
                agent.say(name, body)
            if answer and not agent.until(
                    lambda: agent.count(answer) or agent.count("desktopFailure"), patience):
                break
            if answer and agent.count("desktopFailure"):
                break
            if name:
                agent.echo(patience)
            result.done.append(name or answer)
        if forked and agent.process.wait(5) == 0:
            agent.hang_up(5)
        elif agent.open:  # otherwise it is on its way out, and says why when its channel has gone
            agent.terminate(timeout=patience + 3)
        while agent.open and agent.pump(0.01):
            pass
    except AssertionError as e:
        result.story = str(e).partition("\n")[0] + " "
    try:  # after its channel has gone, say
        agent.process.wait(8 if not agent.open else 0)
    except subprocess.TimeoutExpired:
        pass
    hangs = agent.process.poll() is None
    if hangs:
        agent.process.kill()
    result.status = agent.process.wait()
    agent.errors.seek(0)
    errors = agent.errors.read().decode(errors="replace")
    lines = [line for line in agent.log if line[0] == 0] + errors.splitlines()
    # A channel that breaks ends the agent with status 0, and leaves nobody to tell.
    told = lines or agent.count("desktopFailure") or (not agent.open and result.status == 0)
    # The X server lets go of a segment when it has noticed.
    traces = []
    for _ in range(0 if forked else 20):
        traces = agent.traces()
        if not traces:
            break
        time.sleep(0.05)
    result.story += f"{lines[:2]} {traces} {result.done[-1:]} status {result.status}"
    complete = len(result.done) == 7 and result.status == 0
    result.verdict = "hangs" if hangs else \
        "crashed" if result.status not in (0, 1) else \
        "leaked" if traces else \
        "absorbed" if complete else \
        "told" if told else "silent"
    agent.close()
    return result


class Bench:
    """An X server on which conversations are had; it always shows something new."""

    def __init__(self):
        self.xserver = desk.XServer()
        self.proxy = proxy.Proxy(self.xserver)
        self.blinker = self.xserver.client("blink")

    def close(self):
        desk.end(self.blinker)
        self.blinker.stdout.close()
        self.proxy.close()
        self.xserver.close()

    def calls(self, kind, step):
        """The n-th call of a kind fails, until a conversation makes no n-th call."""
        for n in itertools.count(1, step):
            with tempfile.TemporaryDirectory(prefix="hostile-") as directory:
                mark = directory + "/mark"
                result = conversation(
                    self.xserver, *PARAMETERS.get(kind, []), environment={
                        "LD_PRELOAD": desk.SHIM, "FAULT": f"{kind}:{n}", "FAULT_MARK": mark})
                if not os.path.exists(mark):
                    return
            yield f"{kind} {n}", result

    def requests(self, step):
        for n in itertools.count(1, step):
            self.proxy.reset(fail_at=n)
            result = conversation(self.proxy)
            if len(self.proxy.requests) < n:
                return
            # libXext itself frees twice when this one is refused.
            if self.proxy.requests[n - 1][0] != "Generic Event Extension":
                yield f"request {n} {self.proxy.requests[n - 1]}", result

    def extensions(self, step):
        combinations = [c for k in range(1, len(EXTENSIONS) + 1)
                        for c in itertools.combinations(EXTENSIONS, k)]
        for absent in combinations[::step]:
            self.proxy.reset(hide=absent)
            yield "without " + " ".join(absent), conversation(self.proxy)

    def points(self, coarser=1):
        """All kinds of points: name, and a generator of (point, result)."""
        for kind, step in CALLS.items():
            yield kind, self.calls(kind, step * coarser)
        yield "X request", self.requests(coarser)
        yield "extensions", self.extensions(coarser)


class Valgrind(unittest.TestCase):
    def test_no_leak_and_nothing_uninitialised(self):
        bench = Bench()
        self.addCleanup(bench.close)
        result = conversation(bench.xserver, patience=120, prefix=(
            "valgrind", "-q", "--error-exitcode=99", "--leak-check=full",
            "--errors-for-leak-kinds=definite,indirect"))
        self.assertEqual(result.verdict, "absorbed", result.story)


class Faults(unittest.TestCase):
    def test_some_of_each_kind(self):
        bench = Bench()
        self.addCleanup(bench.close)
        for kind, points in bench.points(coarser=int(os.environ.get("FAULTS_STEP", "16"))):
            for point, result in points:
                with self.subTest(point):
                    self.assertIn(result.verdict, GOOD, result.story)

    def test_extensions_that_refuse_the_first_request(self):
        """Xlib keeps an error of some codes to itself, and its extensions then know no version."""
        bench = Bench()
        self.addCleanup(bench.close)
        for name in (*EXTENSIONS, "SYNC", "X-Resource"):
            with self.subTest(name):
                bench.proxy.reset(fail_at=(name, 0))
                result = conversation(bench.proxy)
                self.assertIn((name, 0), bench.proxy.requests)
                self.assertIn(result.verdict, GOOD, result.story)

    def test_segment_for_nobody(self):
        """A segment that the server can't open is none."""
        xserver = desk.XServer()
        self.addCleanup(xserver.close)
        agent = desk.Agent(xserver, environment={"LD_PRELOAD": desk.SHIM, "FAULT": "shmctl:2"})
        self.addCleanup(agent.close)
        agent.say("SetXServerOwner", struct.pack(">qq", 12345, 54321))
        agent.say("start")
        agent.expect("desktopFailure")
        self.assertTrue(agent.has_line("shmctl(IPC_SET)"), agent.story())


if __name__ == "__main__":
    unittest.main()
