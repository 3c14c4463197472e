#!/usr/bin/env python3
"""A server of one desktop agent: Python's standard library and docs/protocol.md, nothing else.

Starts an agent in the desktop of DISPLAY, prints what it reports, types a text and changes the
desktop's size if asked, and writes a picture of the shared framebuffer:

    server.py --agent build/release/ruvoagent --seconds 5 --type 'echo hello' desktop.png
"""
import argparse, ctypes, mmap, os, select, socket, struct, subprocess, sys, time, zlib

libc = ctypes.CDLL(None, use_errno=True)
libc.shmat.restype = ctypes.c_void_p
libc.shmat.argtypes = [ctypes.c_int, ctypes.c_void_p, ctypes.c_int]
libc.shmdt.argtypes = [ctypes.c_void_p]
SHM_RDONLY = 0o10000


class Body:
    """Reads the body of a message from the front."""

    def __init__(self, data):
        self.data, self.at = data, 0

    def take(self, layout):
        values = struct.unpack_from(">" + layout, self.data, self.at)
        self.at += struct.calcsize(">" + layout)
        return values if len(values) > 1 else values[0]

    def string(self, count="I"):
        length = self.take(count)
        self.at += length
        return self.data[self.at - length:self.at].decode("utf-8", "replace")

    def region(self):
        count, *extents = self.take("H4h")
        return [self.take("4h") for _ in range(count)] if count > 1 else [tuple(extents)][:count]


class Channel:
    """The byte channel: cuts messages into frames, joins frames to messages."""

    def __init__(self, sock):
        self.sock, self.arrived, self.message = sock, b"", b""

    def send(self, name, layout="", *values):
        rest = bytes([len(name)]) + name.encode() + struct.pack(">" + layout, *values)
        while rest:
            frame, rest = rest[:0x7FFF], rest[0x7FFF:]
            self.sock.sendall(struct.pack(">H", len(frame) | (0 if rest else 0x8000)) + frame)

    def receive(self, deadline):
        """The next message's name and body, or None at the deadline; EOFError at the end."""
        while True:
            header = struct.unpack(">H", self.arrived[:2])[0] if len(self.arrived) > 1 else 0x7FFF
            end = 2 + (header & 0x7FFF)
            if len(self.arrived) >= end:
                self.message += self.arrived[2:end]
                self.arrived = self.arrived[end:]
                if header & 0x8000:
                    body, self.message = Body(self.message), b""
                    return body.string("B"), body
            elif select.select([self.sock], [], [], max(deadline - time.monotonic(), 0))[0]:
                data = self.sock.recv(1 << 16)
                if not data:
                    raise EOFError("the agent has closed the channel")
                self.arrived += data
            else:
                return None


class Framebuffer:
    """The memory that the agent shares, and how pixels lie in it."""

    memory = address = None

    def publish(self, body):
        self.bpp, _, self.big_endian, self.true_colour = body.take("4B")
        self.maxima, self.shifts = body.take("4H")[:3], body.take("4B")[:3]
        self.rect, self.stride = body.take("4i"), body.take("I")
        if body.take("B"):  # another segment than before
            self.attach(body, *body.take("BI"))

    def attach(self, body, kind, size):
        if self.address:
            libc.shmdt(self.address)
        self.memory = self.address = None
        if kind == 1:  # System V
            address = libc.shmat(body.take("I"), None, SHM_RDONLY)
            if address != ctypes.c_void_p(-1).value:  # else replaced already: the next one comes
                self.address, self.memory = address, (ctypes.c_char * size).from_address(address)
        else:  # POSIX
            path, is_file, position = body.string(), *body.take("BQ")
            with open(path if is_file else "/dev/shm" + path, "rb") as file:
                whole = mmap.mmap(file.fileno(), position + size, prot=mmap.PROT_READ)
            self.memory = memoryview(whole)[position:]

    def row(self, y):
        """A row as bytes of red, green and blue, from 32 bits a pixel, which nearly all have."""
        width, at = self.rect[2] - self.rect[0], (y - self.rect[1]) * self.stride * 4
        pixels, row = bytes(self.memory[at:at + width * 4]), bytearray(width * 3)
        for channel, shift in enumerate(self.shifts):
            row[channel::3] = pixels[3 - shift // 8 if self.big_endian else shift // 8::4]
        return bytes(row)

    def write_png(self, path):
        if (self.bpp, self.true_colour, self.maxima) != (32, 1, (255, 255, 255)):
            raise ValueError("a picture is made of 32 bits a pixel only")
        x1, y1, x2, y2 = self.rect
        pixels = zlib.compress(b"".join(b"\0" + self.row(y) for y in range(y1, y2)))
        with open(path, "wb") as out:
            out.write(b"\x89PNG\r\n\x1a\n")
            for name, data in ((b"IHDR", struct.pack(">2I5B", x2 - x1, y2 - y1, 8, 2, 0, 0, 0)),
                               (b"IDAT", pixels), (b"IEND", b"")):
                out.write(struct.pack(">I", len(data)) + name + data)
                out.write(struct.pack(">I", zlib.crc32(name + data)))


def keysym(character):
    """The keysym of a character: its code point, up to Latin-1 as it is, then with a bit set."""
    code = {"\n": 0xFF0D, "\t": 0xFF09}.get(character)
    return code or (ord(character) if ord(character) < 0x100 else 0x01000000 + ord(character))


def begin(channel, options):
    """The first buffer is there: all its pixels are valid."""
    channel.send("fbUpdateRequest")
    for character in options.type:
        for down in (1, 0):
            channel.send("keyEvent", "IB", keysym(character), down)
    if options.size:
        channel.send("setDisplayMode", "II", *map(int, options.size.split("x")))


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--agent", default="ruvoagent", help="the agent's program")
    parser.add_argument("--seconds", type=float, default=2, help="how long to listen")
    parser.add_argument("--type", default="", help="text to type")
    parser.add_argument("--size", help="another size for the desktop, WIDTHxHEIGHT")
    parser.add_argument("picture", nargs="?", help="PNG file to write at the end")
    options = parser.parse_args()

    ours, theirs = socket.socketpair()
    agent = subprocess.Popen([options.agent, "user", str(theirs.fileno())],
                             pass_fds=[theirs.fileno()])
    theirs.close()
    channel, framebuffer, begun = Channel(ours), Framebuffer(), False
    deadline = time.monotonic() + options.seconds
    try:
        while received := channel.receive(deadline):
            name, body = received
            if name == "init":
                channel.send("start")
            elif name == "setPixelBuffer":
                framebuffer.publish(body)
                print(name, framebuffer.rect, "stride", framebuffer.stride, flush=True)
                if not begun:
                    begin(channel, options)
                    begun = True
            elif name == "fbUpdate":
                body.region(), body.take("2i")  # what was copied: nothing, always
                print(name, body.region(), flush=True)
                channel.send("fbUpdateRequest")
            elif name == "logMsg":
                level, source, text = body.take("I"), body.string("B"), body.string()
                if level <= 30:
                    print(f"log {level} {source}: {text}", flush=True)
            elif name == "desktopFailure":
                sys.exit("no capture: " + body.string("B"))
            else:
                print(name, len(body.data) - body.at, "bytes", flush=True)
    except EOFError as end:
        sys.exit(f"{end}, status {agent.wait()}")
    if options.picture:
        framebuffer.write_png(options.picture)
    ours.close()  # which ends the agent
    return agent.wait()


if __name__ == "__main__":
    sys.exit(main())
