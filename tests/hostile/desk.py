"""The measures that tests of hostile neighbours need.

Programs come from the environment: HOSTILE_CLIENT, FAULTS (the shim, optional), see ruvo.py.
"""

import ctypes
import os
import pathlib
import select
import socket
import struct
import subprocess
import sys
import time

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parent.parent / "support"))
import ruvo  # noqa: E402
from ruvo import AGENT, KEY_A, BUILD, end, frames, key, message, segments, short, string  # noqa: E402,F401

CLIENT = os.environ.get("HOSTILE_CLIENT", str(BUILD / "hostile-client"))
SHIM = os.environ.get("FAULTS", str(BUILD / "libfaults.so"))


class XServer(ruvo.XServer):
    def client(self, *arguments, ready=True):
        """Starts a hostile client; waits until its trouble has begun."""
        process = subprocess.Popen([CLIENT, *map(str, arguments)], stdout=subprocess.PIPE,
                                   env=dict(os.environ, DISPLAY=self.display),
                                   preexec_fn=ruvo.dies_with_parent, text=True)
        if ready:
            line = process.stdout.readline()
            assert line == "ready\n", (arguments, line)
        return process

    def run(self, *arguments, program=CLIENT, timeout=60):
        return super().run(program, *arguments, timeout=timeout)

    def resources(self, pid):
        """How many X resources the client with that process id holds, as the X-Resource extension
        counts them."""
        with socket.socket(socket.AF_UNIX) as wire:
            wire.connect(f"/tmp/.X11-unix/X{self.number}")
            stream = wire.makefile("rwb")

            def ask(request):
                stream.write(request)
                stream.flush()
                head = stream.read(32)
                return head, stream.read(4 * int.from_bytes(head[4:8], "little"))

            stream.write(struct.pack("<BxHHHHxx", ord("l"), 11, 0, 0, 0))
            stream.flush()
            stream.read(4 * struct.unpack("<6xH", stream.read(8))[0])
            name = b"X-Resource\0\0"
            opcode = ask(struct.pack("<BxHHxx", 98, 2 + len(name) // 4, 10) + name)[0][9]
            head, ids = ask(struct.pack("<BBHIII", opcode, 4, 4, 1, 0, 2))
            clients = {value: client for client, _, _, value in struct.iter_unpack(
                "<IIII", ids[:16 * int.from_bytes(head[8:12], "little")])}
            _, types = ask(struct.pack("<BBHI", opcode, 2, 2, clients[pid]))
            return sum(count for _, count in struct.iter_unpack("<II", types))


class Agent(ruvo.Agent):
    def _take(self, name, body):
        super()._take(name, body)
        if name == "setPixelBuffer":
            self.description = body

    def pixel(self, x, y):
        """A pixel of the buffer that was described last (32 bits a pixel)."""
        at = 4 * (y * int.from_bytes(self.description[32:36], "big") + x)
        return read_segment(self.description[37:], at, 4)

    def key_latency(self, witness, timeout=20):
        """How long a key takes to arrive at another client."""
        fd = witness.stdout.fileno()
        start = time.monotonic()
        self.send(key(KEY_A, 1) + key(KEY_A, 0))
        text = b""
        while text.count(b"\n") < 2:
            left = start + timeout - time.monotonic()
            assert left > 0, f"no key within {timeout} s: {text}\n{self.story()}"
            ready = select.select([fd, self.socket] if self.open else [fd], [], [], left)[0]
            if self.socket in ready:
                self.pump()
            if fd in ready:
                text += os.read(fd, 4096)
        return time.monotonic() - start

    def holdings(self, xserver):
        """What it holds now."""
        return {
            "descriptors": len(os.listdir(f"/proc/{self.pid}/fd")),
            "segments": len(segments(self.pid)),
            "X resources": xserver.resources(self.pid),
            "memory KB": self.memory(),
        }


def read_segment(description, at, length):
    """Bytes of a segment by its description in the protocol; None when it is gone."""
    if description[0] == 0:
        end_of_name = 9 + int.from_bytes(description[5:9], "big")
        with open("/dev/shm" + description[9:end_of_name].decode(), "rb") as file:
            file.seek(at)
            return file.read(length)
    libc = ctypes.CDLL(None)
    libc.shmat.restype = ctypes.c_void_p
    address = libc.shmat(int.from_bytes(description[5:9], "big"), None, 0o10000)  # read only
    if address == ctypes.c_void_p(-1).value:
        return None
    try:
        return ctypes.string_at(address + at, length)
    finally:
        libc.shmdt(ctypes.c_void_p(address))
