#!/usr/bin/env python3
"""The example server in Python against the real agent, with System V and with POSIX memory.

    server_test.py AGENT [SERVER]
"""

import os
import pathlib
import struct
import subprocess
import sys
import tempfile
import zlib

ROOT = pathlib.Path(__file__).resolve().parent.parent.parent
sys.path.insert(0, str(ROOT / "tests" / "support"))
sys.dont_write_bytecode = True
from ruvo import xvfb  # noqa: E402

SERVER = sys.argv[2] if len(sys.argv) > 2 else ROOT / "examples" / "server.py"
TEXT = "Grüße, 5 €"
# A terminal over the left half takes one line of typing.
TERMINAL = ["xterm", "-u8", "-geometry", "40x30+0+0", "-e"]


def pixels_of(path):
    """Width and rows of a picture that the example has written."""
    data = path.read_bytes()
    width, height = struct.unpack_from(">2I", data, 16)
    begin = data.index(b"IDAT") + 4
    length = struct.unpack_from(">I", data, begin - 8)[0]
    rows = zlib.decompress(data[begin:begin + length])
    assert len(rows) == height * (1 + 3 * width), "the picture is not whole"
    return width, [rows[at + 1:at + 1 + 3 * width] for at in range(0, len(rows), 1 + 3 * width)]


def attempt(agent, folder, *options):
    with xvfb("640x480x24", *options) as display:
        environment = {**os.environ, "DISPLAY": display, "LC_ALL": "C.UTF-8"}
        environment.pop("XAUTHORITY", None)
        subprocess.run(["xsetroot", "-solid", "#336699"], env=environment, check=True)
        typed, ready, picture = folder / "typed", folder / "ready", folder / "desktop.png"
        os.mkfifo(ready)
        command = f'echo > "{ready}"; read line; echo "$line" > "{typed}"; exec sleep 60'
        terminal = subprocess.Popen([*TERMINAL, "sh", "-c", command], env=environment)
        try:
            ready.read_text()
            subprocess.run(["xdotool", "search", "--sync", "--onlyvisible", "--class", "xterm",
                            "mousemove", "100", "100"], env=environment, check=True,
                           stdout=subprocess.DEVNULL)
            result = subprocess.run(
                [sys.executable, SERVER, "--agent", agent, "--seconds", "3", "--type",
                 TEXT + "\n", "--size", "600x400", picture],
                env=environment, stdout=subprocess.PIPE, text=True, timeout=60)
        finally:
            terminal.kill()
            terminal.wait()
    print(result.stdout)
    assert result.returncode == 0, f"status {result.returncode}"
    assert typed.read_text() == TEXT + "\n", f"typed: {typed.read_text()!r}"
    assert "fbUpdate [" in result.stdout, "no update came"
    width, rows = pixels_of(picture)
    assert (width, len(rows)) == (600, 400), f"the picture has {width} by {len(rows)} pixels"
    assert {row[-300:] for row in rows} == {bytes.fromhex("336699") * 100}, "wrong colours"
    assert rows[100][60:63] == b"\xff\xff\xff", "the terminal does not show"


def main():
    for options in [], ["-extension", "MIT-SHM"]:
        with tempfile.TemporaryDirectory() as folder:
            attempt(sys.argv[1], pathlib.Path(folder), *options)


if __name__ == "__main__":
    main()
