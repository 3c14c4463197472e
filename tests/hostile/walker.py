#!/usr/bin/env python3
"""Walks around every message that the agent takes: each byte changed to each other value, each
truncation, each split into two deliveries and into two frames. The channel works after each."""

import array
import fcntl
import struct
import termios
import time
import unittest

import desk

MESSAGES = {
    "start": b"",
    "stop": b"",
    "fbUpdateRequest": b"",
    "keyEvent": struct.pack(">IB", desk.KEY_A, 0),
    "pointerEvent": struct.pack(">iiIB", 300, 200, 0, 0),
    "clientCutText": desk.string("caf\u00e9 \u20ac"),
    "setParams": desk.short("UpdatePeriod") + desk.string("25") + struct.pack(">I", 10)
    + desk.short("Monitor") + desk.string("") + struct.pack(">I", 0),
    "setDisplayMode": struct.pack(">II", 1024, 768),
    "setMonitor": desk.string("1"),
    "SetXServerOwner": struct.pack(">qq", -1, -1),
    "setLogLevel": struct.pack(">I", 30) + desk.short("SDesktopX11"),
    "badMsg": desk.short("what"),
}


def completed(stream):
    """The stream and what makes its last frame and message whole; and its messages."""
    at, payload, messages = 0, b"", []
    while at < len(stream) or payload is not None:
        if at == len(stream) and not payload:
            break
        if len(stream) - at < 2:
            stream += b"\x80\x00"[-(2 - (len(stream) - at)):]
        head = int.from_bytes(stream[at:at + 2], "big")
        length = head & 0x7FFF
        stream += b"A" * (at + 2 + length - len(stream))
        payload += stream[at + 2:at + 2 + length]
        at += 2 + length
        if head & 0x8000:
            messages.append(payload)
            payload = b""
    return stream, messages


def ends_agent(messages):
    """A negative length of clientCutText is the one thing that may."""
    name = desk.short("clientCutText")
    return any(m.startswith(name) and m[len(name):len(name) + 1] >= b"\x80" for m in messages)


def changes(good):
    for at, byte in enumerate(good):
        for value in range(256):
            if value != byte:
                yield good[:at] + bytes([value]) + good[at + 1:]


def truncations(name, body):
    payload = desk.short(name) + body
    for length in range(len(payload)):
        yield desk.frames(payload[:length])


def frame_splits(name, body):
    payload = desk.short(name) + body
    for cut in range(len(payload) + 1):
        yield struct.pack(">H", cut) + payload[:cut] + desk.frames(payload[cut:])


class Walker(unittest.TestCase):
    def setUp(self):
        self.xserver = desk.XServer()
        self.addCleanup(self.xserver.close)
        self.witness = self.xserver.client("witness")
        self.addCleanup(lambda: (desk.end(self.witness), self.witness.stdout.close()))
        self.agent = desk.Agent(self.xserver, "EnableClipboard=1", "log=*:ipc:0")
        self.addCleanup(self.agent.close)
        self.agent.expect("init")
        self.serial = 0

    def still_works(self, cases):
        """Sends all cases, each with an echo behind it, and sees every echo."""
        self.agent.messages.clear()
        sent = {}
        for case in cases:
            self.serial += 1
            name = f"echo{self.serial}"
            sent[desk.short(name)] = case
            self.agent.send(case + desk.message(name))
        def answered():
            for name, body in self.agent.messages:
                if name == "badMsg":
                    sent.pop(body, None)
            self.agent.messages.clear()
            return not sent
        self.assertTrue(self.agent.until(answered, 60),
                        f"no answer behind {next(iter(sent.values()), b'')!r}, "
                        f"status {self.agent.process.poll()}\n{self.agent.story()}")

    def walk(self, name, body):
        good = desk.message(name, body)
        batch = []
        for case in [*changes(good), *truncations(name, body), *frame_splits(name, body)]:
            stream, messages = completed(case)
            if ends_agent(messages):
                continue
            batch.append(stream)
            if sum(map(len, batch)) > 100000 or len(batch) == 200:
                self.still_works(batch)
                batch = []
        self.still_works(batch)
        for cut in range(1, len(good)):
            self.agent.send(good[:cut])
            self.until_read()
            self.still_works([good[cut:]])

    def until_read(self):
        """The agent has taken all bytes that were sent."""
        left = array.array("i", [1])
        deadline = time.monotonic() + 20
        while left[0]:
            self.assertLess(time.monotonic(), deadline, "the agent does not read")
            fcntl.ioctl(self.agent.socket, termios.TIOCOUTQ, left)

    def test_every_message(self):
        self.agent.start()
        for name, body in MESSAGES.items():
            with self.subTest(name):
                self.walk(name, body)
        # What it does with good messages has not changed.
        self.agent.say("stop")
        self.agent.start()
        blinker = self.xserver.client("blink")
        self.agent.say("fbUpdateRequest")
        self.agent.expect("fbUpdate")
        desk.end(blinker)
        blinker.stdout.close()
        self.agent.key_latency(self.witness)
        self.agent.terminate()
        self.assertEqual(self.agent.process.returncode, 0)
        self.assertEqual(self.agent.traces(), [])


if __name__ == "__main__":
    unittest.main()
