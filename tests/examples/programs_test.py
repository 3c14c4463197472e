#!/usr/bin/env python3
"""The C++ examples, also as somebody has built them from the installed library, on private desktops.

    programs_test.py AGENT FOLDER [PREFIX]    PREFIX: of the programs' names
"""

import os
import pathlib
import subprocess
import sys
import tempfile

ROOT = pathlib.Path(__file__).resolve().parent.parent.parent
sys.path.insert(0, str(ROOT / "tests" / "support"))
sys.dont_write_bytecode = True
from ruvo import xvfb  # noqa: E402

COLOUR = bytes.fromhex("336699")


def main():
    agent, folder, prefix = sys.argv[1], pathlib.Path(sys.argv[2]), "".join(sys.argv[3:])
    environment = {**os.environ, "RUVOAGENT": agent}
    environment.pop("XAUTHORITY", None)

    def run(name, *arguments):
        return subprocess.run([folder / (prefix + name), *arguments], env=environment, check=True, text=True,
                              stdout=subprocess.PIPE, timeout=60).stdout

    with tempfile.TemporaryDirectory() as scratch, \
            xvfb("320x200x24") as first, xvfb("320x200x24") as second:
        for display in first, second:
            subprocess.run(["xsetroot", "-display", display, "-solid", "#" + COLOUR.hex()],
                           check=True)
        picture = pathlib.Path(scratch) / "picture.ppm"
        run("picture", picture, first)
        assert picture.read_bytes() == b"P6\n320 200\n255\n" + COLOUR * 320 * 200, "wrong picture"

        recording = pathlib.Path(scratch) / "recording.rgba"
        run("recording", recording, "1", first)
        frame = (COLOUR + b"\xff") * 320 * 200
        assert recording.read_bytes() == frame * 10, "wrong recording"

        told = run("desktops", "1", first, second)
        for display in first, second:
            assert f"{display}: started" in told, told


if __name__ == "__main__":
    main()
