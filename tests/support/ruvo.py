"""For tests and scripts in Python: a private X server, the real agent, and the server's end of its channel.

The agent is that of RUVO_AGENT, or of the build in RUVO_BUILD.
"""

import contextlib
import ctypes
import os
import pathlib
import select
import shutil
import signal
import socket
import struct
import subprocess
import tempfile
import time

ROOT = pathlib.Path(__file__).resolve().parent.parent.parent
BUILD = pathlib.Path(os.environ.get("RUVO_BUILD", ROOT / "build" / "release"))
AGENT = os.environ.get("RUVO_AGENT", str(BUILD / "ruvoagent"))
KEY_A = 0x61


def dies_with_parent():
    ctypes.CDLL(None).prctl(1, signal.SIGTERM)


def end(process, patience=5):
    """Ends a process of ours and returns its status."""
    if process.poll() is None:
        process.terminate()
        try:
            process.wait(patience)
        except subprocess.TimeoutExpired:
            process.kill()
    return process.wait()


class XServer:
    """Xvfb, or Xorg with outputs that can change mode (their sizes and positions), on a free display
    number unless one is given."""

    def __init__(self, *options, screen="1024x768x24", dummy=False, reset=False, number=None,
                 outputs=(("1024x768", "0 0"),)):
        self.directory = tempfile.mkdtemp(prefix="ruvo-")
        command = self._dummy(outputs) if dummy else ["Xvfb", "-screen", "0", screen]
        if number:
            command.insert(1, f":{number}")
        ours, theirs = os.pipe()
        if not reset:
            command.append("-noreset")
        command += ["-nolisten", "tcp", "-displayfd", str(theirs), *options]
        self.process = subprocess.Popen(command, pass_fds=[theirs], stderr=subprocess.DEVNULL,
                                        stdout=subprocess.DEVNULL, preexec_fn=dies_with_parent)
        os.close(theirs)
        with os.fdopen(ours) as number:
            self.number = number.readline().strip()
        self.display = ":" + self.number
        assert self.number, "the X server does not start"

    def _dummy(self, outputs):
        section = 'Section "{}"\n{}\nEndSection\n'.format
        config = section("ServerFlags", 'Option "AutoAddDevices" "false"\n'
                         'Option "AutoEnableDevices" "false"\nOption "AutoAddGPU" "false"')
        config += section("Device", 'Identifier "d"\nDriver "dummy"\nVideoRam 270000\n' + "\n".join(
            f'Option "Monitor-DUMMY{n}" "m{n}"' for n in range(len(outputs))))
        for n, (size, position) in enumerate(outputs):
            config += section("Monitor", f'Identifier "m{n}"\nHorizSync 5-1000\nVertRefresh 5-200\n'
                              f'Option "Enable" "true"\nOption "PreferredMode" "{size}"\n'
                              f'Option "Position" "{position}"')
        config += section("Screen", 'Identifier "s"\nDevice "d"\nMonitor "m0"\nDefaultDepth 24\n'
                          'SubSection "Display"\nDepth 24\nVirtual 8192 8192\nEndSubSection')
        path = os.path.join(self.directory, "xorg.conf")
        pathlib.Path(path).write_text(config)
        return ["/usr/lib/xorg/Xorg", "-config", path, "-configdir", self.directory + "/none",
                "-logfile", self.directory + "/log", "-novtswitch", "-sharevts"]

    def run(self, program, *arguments, timeout=60):
        return subprocess.run([program, *map(str, arguments)], timeout=timeout, text=True,
                              env=dict(os.environ, DISPLAY=self.display), check=False,
                              stdout=subprocess.PIPE, stderr=subprocess.STDOUT).stdout

    def close(self, abruptly=False):
        if abruptly:
            self.process.kill()
        end(self.process)
        if abruptly:
            self._remove_traces()
        shutil.rmtree(self.directory, ignore_errors=True)

    def _remove_traces(self):
        """What a killed X server leaves, unless another has taken its number since."""
        path = f"/tmp/.X11-unix/X{self.number}"
        with socket.socket(socket.AF_UNIX) as probe, contextlib.suppress(OSError):
            if probe.connect_ex(path) != 0:
                os.unlink(path)


@contextlib.contextmanager
def xvfb(screen, *options):
    """Yields the name of a display that ends with the block."""
    server = XServer(*options, screen=screen)
    try:
        yield server.display
    finally:
        server.close()


def string(text):
    data = text.encode() if isinstance(text, str) else text
    return struct.pack(">I", len(data)) + data


def short(text):
    data = text.encode()
    return bytes([len(data)]) + data


def frames(payload):
    out = b""
    while len(payload) > 32766:
        out += struct.pack(">H", 32766) + payload[:32766]
        payload = payload[32766:]
    return out + struct.pack(">H", 0x8000 | len(payload)) + payload


def message(name, body=b""):
    return frames(short(name) + body)


def key(keysym, down):
    return message("keyEvent", struct.pack(">IB", keysym, down))


class Agent:
    """The real agent and the server's end of its channel."""

    def __init__(self, xserver, *parameters, environment=None, mode="user", prefix=(),
                 program=AGENT):
        self.home = tempfile.mkdtemp(prefix="ruvo-")
        self.log, self.messages, self.buffer, self.partial = [], [], b"", b""
        self.open = True
        ours, theirs = socket.socketpair()
        # Another channel of ours must not be what keeps this one open.
        self.socket = ours
        ours.setblocking(False)
        variables = dict(os.environ, HOME=self.home, LC_ALL="C")
        if xserver:
            variables["DISPLAY"] = xserver.display
        variables.update(environment or {})
        self.errors = tempfile.TemporaryFile()
        options = [p for p in parameters if p.startswith("-")]
        settings = [p for p in parameters if not p.startswith("-")]
        self.process = subprocess.Popen(
            [*prefix, program, mode, *options, str(theirs.fileno()), *settings],
            pass_fds=[theirs.fileno()], env=variables, stderr=self.errors,
            stdout=subprocess.DEVNULL, preexec_fn=dies_with_parent)
        theirs.close()
        self.pid = self.process.pid

    # The channel

    def send(self, data, timeout=20):
        deadline = time.monotonic() + timeout
        while data:
            try:
                data = data[self.socket.send(data):]
            except BlockingIOError:
                assert time.monotonic() < deadline, "the agent does not read"
                self.give_way()
            except OSError:
                self.open = False
                return

    def give_way(self):
        """The agent may be waiting for us to read."""
        self.pump(0.01)

    def say(self, name, body=b""):
        self.send(message(name, body))

    def pump(self, timeout=0.0):
        """Reads what is there, or comes within the time."""
        if not self.open:
            return False
        if not select.select([self.socket], [], [], timeout)[0]:
            return False
        try:
            data = self.socket.recv(1 << 20)
        except BlockingIOError:
            return False
        except OSError:
            data = b""
        self.open = bool(data)
        self.buffer += data
        at = 0
        while at + 2 <= len(self.buffer):
            head = int.from_bytes(self.buffer[at:at + 2], "big")
            length = head & 0x7FFF
            if at + 2 + length > len(self.buffer):
                break
            self.partial += self.buffer[at + 2:at + 2 + length]
            at += 2 + length
            if head & 0x8000:
                end_of_name = 1 + self.partial[0]
                self._take(self.partial[1:end_of_name].decode(), self.partial[end_of_name:])
                self.partial = b""
        self.buffer = self.buffer[at:]
        return True

    def _take(self, name, body):
        if name == "logMsg":
            level = int.from_bytes(body[:4], "big")
            end_of_source = 5 + body[4]
            self.log.append((level, body[5:end_of_source].decode(),
                             body[end_of_source + 4:].decode(errors="replace")))
        else:
            self.messages.append((name, body))

    def until(self, done, timeout=10):
        deadline = time.monotonic() + timeout
        while not done():
            left = deadline - time.monotonic()
            if left <= 0 or not self.open:
                return False
            self.pump(min(left, 0.5))
        return True

    def forget(self, name):
        self.messages = [message for message in self.messages if message[0] != name]

    def count(self, name):
        return sum(1 for n, _ in self.messages if n == name)

    def expect(self, name, timeout=10):
        """Waits for a message of the name, forgets it and what came before, returns its body."""
        assert self.until(lambda: self.count(name), timeout), f"no {name}\n{self.story()}"
        index = [n for n, _ in self.messages].index(name)
        body = self.messages[index][1]
        del self.messages[:index + 1]
        return body

    def has_line(self, text, level=None):
        return any(text in line[2] and level in (None, line[0]) for line in self.log)

    def story(self):
        self.errors.seek(0)
        return "\n".join(f"{level:3} {source}: {text}" for level, source, text in self.log[-30:]) \
            + "\n" + self.errors.read().decode(errors="replace")[-2000:]

    # Measures, in seconds

    def echo(self, timeout=20):
        """How long the channel takes to answer."""
        name = f"echo{time.monotonic_ns()}"
        start = time.monotonic()
        self.say(name)
        assert self.until(lambda: ("badMsg", short(name)) in self.messages, timeout), \
            f"the channel does not answer within {timeout} s, open {self.open}, " \
            f"status {self.process.poll()}\n{self.story()}"
        return time.monotonic() - start

    def start(self):
        self.say("start")
        return self.expect("setPixelBuffer")

    def terminate(self, number=signal.SIGTERM, timeout=20):
        """How long the agent takes to end by a signal."""
        start = time.monotonic()
        self.process.send_signal(number)
        return self.ended(start, timeout)

    def hang_up(self, timeout=20):
        start = time.monotonic()
        self.socket.close()
        self.open = False
        return self.ended(start, timeout)

    def ended(self, start=None, timeout=10):
        """Waits for its end, and says how long that took."""
        start = start or time.monotonic()
        while self.process.poll() is None and time.monotonic() < start + timeout:
            self.pump(0.01) or time.sleep(0.002)
        assert self.process.poll() is not None, f"it goes on after {timeout} s"
        return time.monotonic() - start

    def memory(self, what="VmRSS"):
        """Resident memory in KB; VmHWM is the most that it was."""
        if self.process.poll() is not None:
            return 0
        for line in pathlib.Path(f"/proc/{self.pid}/status").read_text().splitlines():
            if line.startswith(what + ":"):
                return int(line.split()[1])
        return 0

    def traces(self):
        """What an agent leaves in the system: segments and lock files."""
        return segments(self.pid) + lock_files(self.pid)

    def close(self):
        self.socket.close()
        self.open = False
        status = end(self.process)
        self.errors.close()
        shutil.rmtree(self.home, ignore_errors=True)
        return status


def segments(pid):
    """Those that a process made, except for what is removed but still attached by the X server."""
    lines = [line.split() for line in pathlib.Path("/proc/sysvipc/shm").read_text().splitlines()]
    at, mode = lines[0].index("cpid"), lines[0].index("perms")
    return [f"segment {line[1]}" for line in lines[1:]
            if line[at] == str(pid) and not int(line[mode], 8) & 0o1000]


def lock_files(pid):
    """Those of POSIX segments, and the segments, carry their maker's process id in the name, others
    within."""
    found = []
    for top in (f"/tmp/.ruvo-{os.geteuid()}", "/run/ruvo", "/dev/shm"):
        for directory, _, files in os.walk(top):
            for path in (pathlib.Path(directory, name) for name in files):
                with contextlib.suppress(OSError):
                    notes = path.read_text().split() if directory.endswith("/SysV") else path.name.split("-")
                    found += [str(path)] if str(pid) in notes else []
    return found
