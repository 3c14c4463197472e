"""A display between a client and its X server that hides extensions and answers requests with errors.

A request that shall fail is replaced by one that the X server refuses, so that the error comes in its
place in the stream; the error's bytes are then made those of the wanted one.
"""

import os
import select
import socket
import threading

BAD_ALLOC, BAD_IMPLEMENTATION = 11, 17
_GET_ATOM_NAME, _QUERY_EXTENSION = 17, 98
_REFUSED = bytes([_GET_ATOM_NAME, 0, 2, 0]) + b"\xff\xff\xff\x1f"


def _padded(length):
    return (length + 3) & ~3


class _Connection:
    """One client's two streams; little-endian clients only."""

    def __init__(self, proxy, client, server):
        self.proxy, self.client, self.server = proxy, client, server
        self.serial, self.failed, self.asked = 0, {}, {}
        self.held, self.begun = {client: b"", server: b""}, set()

    def run(self):
        with self.client, self.server:
            try:
                while True:
                    for source in select.select([self.client, self.server], [], [])[0]:
                        data = source.recv(1 << 18)
                        if not data:
                            return
                        target = self.server if source is self.client else self.client
                        target.sendall(self.changed(source, self.held[source] + data))
            except OSError:
                pass

    def changed(self, source, data):
        """What of the data has come as a whole, as it is passed on. The rest is held."""
        length, change = (self.request_length, self.request) if source is self.client \
            else (self.answer_length, self.answer)
        at, out = 0, bytearray()
        while 0 < (n := length(data, at)) <= len(data) - at:
            out += change(data[at:at + n]) if source in self.begun else data[at:at + n]
            self.begun.add(source)
            at += n
        self.held[source] = data[at:]
        return bytes(out)

    def request_length(self, data, at):
        """0: it cannot be told yet."""
        if self.client not in self.begun:
            return 12 + _padded(data[6] | data[7] << 8) + _padded(data[8] | data[9] << 8) \
                if len(data) >= 12 else 0
        units = int.from_bytes(data[at + 2:at + 4], "little")
        if units == 0 and at + 8 <= len(data):  # a big request
            units = int.from_bytes(data[at + 4:at + 8], "little")
        return 4 * units

    def answer_length(self, data, at):
        if self.server not in self.begun:
            return 8 + 4 * int.from_bytes(data[6:8], "little") if len(data) >= 8 else 0
        if at + 32 > len(data):
            return 0
        more = int.from_bytes(data[at + 4:at + 8], "little") if data[at] in (1, 35) else 0
        return 32 + 4 * more

    def request(self, request):
        self.serial += 1
        opcode, minor = request[0], request[1] if request[0] >= 128 else 0
        if opcode == _QUERY_EXTENSION:
            name = request[8:8 + int.from_bytes(request[4:6], "little")].decode()
            self.asked[self.serial & 0xFFFF] = name
        code = self.proxy.verdict(opcode, minor)
        if not code:
            return request
        self.failed[self.serial & 0xFFFF] = (code, opcode, minor, request[4:8].ljust(4, b"\0"))
        return _REFUSED

    def answer(self, packet):
        packet = bytearray(packet)
        serial = packet[2] | packet[3] << 8
        if packet[0] == 0 and serial in self.failed:
            code, opcode, minor, resource = self.failed.pop(serial)
            packet[1], packet[4:8], packet[8], packet[10] = code, resource, minor, opcode
        elif packet[0] == 1 and serial in self.asked:
            name = self.asked.pop(serial)
            self.proxy.opcodes[packet[9]] = name
            if name in self.proxy.hide:
                packet[8:12] = bytes(4)
        return packet


class Proxy:
    """The display ":N" of its own in front of another. Use as an X server whose .display is given."""

    def __init__(self, xserver):
        self.target = f"/tmp/.X11-unix/X{xserver.number}"
        self.hide, self.fail_at, self.fail_with, self.requests = set(), 0, BAD_ALLOC, []
        self.opcodes = {}  # major opcodes and the extensions' names
        self.socket = socket.socket(socket.AF_UNIX)
        for number in range(400 + os.getpid() % 500, 2000):
            self.path = f"/tmp/.X11-unix/X{number}"
            try:
                self.socket.bind(self.path)
                break
            except OSError:
                continue
        self.display = f":{number}"
        self.socket.listen()
        threading.Thread(target=self._accept, daemon=True).start()

    def _accept(self):
        while True:
            try:
                client = self.socket.accept()[0]
                server = socket.socket(socket.AF_UNIX)
                server.connect(self.target)
            except OSError:
                return
            threading.Thread(target=_Connection(self, client, server).run, daemon=True).start()

    def verdict(self, opcode, minor):
        """Counts a request; the error that it is answered with, or 0."""
        self.requests.append((self.opcodes.get(opcode, opcode), minor))
        return self.fail_with if self.fail_at in (len(self.requests), self.requests[-1]) else 0

    def reset(self, fail_at=0, fail_with=BAD_ALLOC, hide=()):
        """FAIL_AT: the number of a request, or all of a kind: (extension, minor opcode)."""
        self.requests.clear()
        self.fail_at, self.fail_with, self.hide = fail_at, fail_with, set(hide)

    def close(self):
        self.socket.close()
        os.unlink(self.path)
