#!/usr/bin/env python3
"""The bytes on the channel, as a server that is not ours would see and send them, and its log."""

import pathlib
import select
import signal
import struct
import time
import unittest

import desk
from desk import message, short, string

LARGE = b"x" * 3000000


def u32(*values):
    return struct.pack(f">{len(values)}I", *values)


def parameter(name, value, priority):
    return short(name) + string(value) + u32(priority)


def set_parameter(*entry):
    return message("setParams", parameter(*entry))


def in_frames_of(length, payload):
    """Each frame is behind an empty one."""
    pieces = [payload[at:at + length] for at in range(0, len(payload), length)]
    return b"".join(b"\0\0" + struct.pack(">H", len(piece)) + piece for piece in pieces) + b"\x80\0"


class Agent(desk.Agent):
    def send_without_reading(self, data):
        self.socket.setblocking(True)
        self.socket.sendall(data)
        self.socket.setblocking(False)

    def errors_told(self):
        return [f"{source}: {text}" for level, source, text in self.log if level == 0]

    def written(self):
        """To standard error."""
        self.errors.seek(0)
        return self.errors.read().decode()


class Case(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.xserver = desk.XServer(screen="641x480x24")
        cls.addClassCleanup(cls.xserver.close)

    def agent(self, *parameters, xserver=None):
        agent = Agent(xserver or self.xserver, *parameters)
        self.addCleanup(agent.close)
        return agent


class Wire(Case):
    def test_greeting_comes_first(self):
        for width, height, depth, pixels in (
                (641, 480, 24, u32(0x20180001, 0xFF00FF, 0xFF0000, 0x10080000)),
                (320, 200, 16, u32(0x10100001, 0x1F003F, 0x1F0000, 0x0B050000)),
                (64, 48, 8, u32(0x08080000, 0, 0, 0))):
            own = desk.XServer(screen=f"{width}x{height}x{depth}")
            self.addCleanup(own.close)
            agent = self.agent(xserver=own)
            greeting = message("init", u32(0x7CCA9ECB)) + message(
                "initRectAndPf", u32(0, 0, width, height) + pixels)
            line = message("logMsg", u32(100) + short("Configuration") + string("CompactLog=0 (Default)"))
            modes = message("displayModesSupported", b"\1")
            data = b""
            while not (line in data and modes in data) and select.select([agent.socket], [], [], 20)[0]:
                data += agent.socket.recv(65536)
            self.assertEqual(data[:len(greeting)], greeting)
            self.assertIn(line, data)
            self.assertIn(modes, data)

    def test_every_message_is_read_or_left_behind(self):
        end_of_message = "FdIo: Server: End of message"
        cases = (
            (message("nosuch", b"body"), ["nosuch"], []),
            (message("n" * 255), ["n" * 255], []),
            (in_frames_of(32767, short("large") + LARGE), ["large"], []),
            (in_frames_of(1, short("keyEvent") + u32(0xFFE1) + b"\1")
             + in_frames_of(3, short("keyEvent") + u32(0xFFE1) + b"\0"), [], []),
            (in_frames_of(1, short("setParams") + parameter("Monitor", "1", 10)
                          + parameter("Monitor", "", 0)), [], []),
            (in_frames_of(32767, short("clientCutText") + string(LARGE)), [], []),
            (b"\x80\0", [], [end_of_message]),
            (desk.frames(b"\5ab"), [], [end_of_message]),
            (message("keyEvent", u32(1)), [], [end_of_message]),
            (message("clientCutText", u32(0x7FFFFFFF) + b"short"), [], [end_of_message]),
            (message("stop", b"x"), [], ["FdIo: Server: FramedInStream::endMsg: data left in msg"]),
            (message("setParams", short("Monitor") + u32(1025)), [],
             ["FdIo: Server: String exceeds maximum length"]),
            (message("badMsg", short("init")), [],
             ["FdIo: Server: Peer reports bad msg name 'init'",
              "FdIo: Server: MsgIpc: expected message <null>, peer reports bad msg name 'init'"]))
        agent = self.agent()
        agent.echo()
        for data, unknown, errors in cases:
            with self.subTest(data[:40]):
                agent.messages.clear()
                agent.log.clear()
                # Short ones come byte by byte.
                step = 1 if len(data) < 100 else len(data)
                for at in range(0, len(data), step):
                    agent.send_without_reading(data[at:at + step])
                agent.echo()
                self.assertEqual(agent.errors_told(), errors)
                told = [m for m in agent.messages if m[0] not in ("setCursorPos", "localInput")]
                self.assertEqual(told[:-1], [("badMsg", short(name)) for name in unknown])

    def test_negative_length_is_fatal(self):
        """The one assertion that a server can reach: it is told before the end."""
        line = "Assertion failed: len >= 0 (libs/svr/SServerAgent)"
        agent = self.agent()
        agent.echo()
        agent.say("clientCutText", u32(0x80000000))
        agent.until(lambda: False)
        agent.ended()
        self.assertEqual((agent.process.returncode, agent.written()), (-signal.SIGABRT, line + "\n"))
        self.assertEqual(agent.errors_told(), ["Assertion: " + line])

    def test_log_texts_are_cut_between_characters(self):
        before = "Bad default for parameter 'Monitor': '"
        value = "m" * (1024 - len(before) - 1) + "é"
        agent = self.agent()
        for text, length in ((value, 1023), (value[1:], 1024)):
            agent.send(set_parameter("Monitor", text + "é", 0))
            agent.echo()
            told = agent.errors_told()[-1].removeprefix("SServerAgent: ")
            self.assertEqual(told, (before + text).encode()[:length].decode())

    def test_lines_for_a_server_that_does_not_read_are_limited(self):
        agent = self.agent()
        agent.echo()
        # Fills the channel towards us until the agent, too, has output that it cannot write.
        agent.send_without_reading(4000 * message("q" * 200) + b"".join(
            set_parameter(f"unknown{i}", "", 10) for i in range(3000)))
        notice = "LogDestIpc: Too many messages, discarding further ones"
        self.assertTrue(agent.until(lambda: notice in agent.errors_told(), 30))
        # Some may still have gone out before the channel was full.
        told = agent.errors_told().index(notice)
        self.assertGreater(told, 1000)
        self.assertEqual(agent.errors_told()[:told],
                         [f"SServerAgent: Unknown parameter 'unknown{i}'" for i in range(told)])
        # What comes once they have been sent is reported again.
        agent.send(set_parameter("later", "", 10))
        agent.echo()
        self.assertEqual(agent.errors_told()[-1], "SServerAgent: Unknown parameter 'later'")
        self.assertEqual(agent.errors_told().count(notice), 1)

    def test_server_that_never_reads_is_given_up(self):
        for setting, reason in (
                ("LazyFlushTimeout=1", "FdIo: Server: Timed out\n"),
                ("MaxOutBufferSize=16384", "FdIo: Server: BufferedOutStream overrun: buffer size exceeded\n")):
            with self.subTest(setting):
                agent = self.agent(setting, "Log=*:stderr:30")
                deadline = time.monotonic() + 20
                while agent.process.poll() is None and time.monotonic() < deadline:
                    try:
                        agent.socket.send(message("q" * 200))
                    except BlockingIOError:
                        time.sleep(0.002)
                    except OSError:
                        break
                self.assertEqual(agent.process.wait(10), 0)
                self.assertIn(reason, agent.written())
                self.assertIn("AgentServerX11: Quitting on server disconnect\n", agent.written())


class Log(Case):
    def test_the_server_chooses_levels(self):
        def set_level(level, *log):
            return message("setLogLevel", u32(level) + b"".join(map(short, log)))

        agent = self.agent()
        every = None
        for data, none, fewer in (
                (b"", False, False), (set_level(0), True, True),
                (set_level(30, "SServerAgent"), False, True),
                (set_level(0xFFFFFFFF, ""), False, False),
                # The one that the program began with.
                (set_parameter("Log", "*:stderr:0", 10) + set_parameter("Log", "", 0), False, False),
                # The same once more counts as well.
                (set_level(0) + set_parameter("Log", "", 0), False, False)):
            with self.subTest(data):
                agent.send(data)
                agent.echo()
                # What the start of the desktop is worth to the log; selections are told of at any time.
                agent.log.clear()
                agent.say("start")
                agent.echo()
                lines = sum(1 for _, source, _ in agent.log if not source.startswith("TX"))
                every = every or lines
                self.assertEqual((lines == 0, lines < every), (none, fewer), agent.story())

    def test_files_follow_the_parameters(self):
        agent = self.agent("LogFile=first.log", "Log=SServerAgent:file:30")
        first, second = (pathlib.Path(agent.home, name) for name in (".ruvo/first.log", "second.log"))
        agent.echo()
        self.assertFalse(first.exists())
        agent.say("start")
        agent.send(set_parameter("LogFile", str(second), 10))
        agent.say("stop")
        agent.echo()
        self.assertIn("SServerAgent: Starting desktop", first.read_text())
        self.assertIn("SServerAgent: Stopping desktop", second.read_text())


if __name__ == "__main__":
    unittest.main()
