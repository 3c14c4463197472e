#!/usr/bin/env python3
"""The server of docs/embedding.md on a private desktop.

    myserver_test.py AGENT MYSERVER
"""

import os
import pathlib
import subprocess
import sys

ROOT = pathlib.Path(__file__).resolve().parent.parent.parent
sys.path.insert(0, str(ROOT / "tests" / "support"))
sys.dont_write_bytecode = True
from ruvo import xvfb  # noqa: E402


def main():
    agent, program = map(pathlib.Path, sys.argv[1:])
    path = f"{agent.parent}:{os.environ['PATH']}"
    with xvfb("800x600x24") as display:
        told = subprocess.run([program, display], env={**os.environ, "PATH": path}, check=True,
                              stdout=subprocess.PIPE, text=True, timeout=60).stdout
    for line in "800 x 600 pixels", "700 x 500 pixels", "another size: done":
        assert line in told.splitlines(), told


if __name__ == "__main__":
    main()
