#!/usr/bin/env python3
"""The example servers in C++, built somewhere, against an agent.

    examples_test.py AGENT FOLDER
"""

import os
import pathlib
import subprocess
import sys
import tempfile

ROOT = pathlib.Path(__file__).resolve().parent.parent.parent
sys.path.insert(0, str(ROOT / "tests" / "support"))
sys.dont_write_bytecode = True
from xvfb import xvfb  # noqa: E402

agent, folder = sys.argv[1], pathlib.Path(sys.argv[2])
environment = dict(os.environ, RUVOAGENT=agent, HOME="/nonexistent")
with xvfb("64x48x24") as display, tempfile.TemporaryDirectory() as directory:
    for name, arguments, size in (
            ("picture", ["out", display], len("P6\n64 48\n255\n") + 64 * 48 * 3),
            ("recording", ["out", "1", display], 10 * 64 * 48 * 4),
            ("desktops", ["1", display, display, display], None)):
        subprocess.run([folder.resolve() / name, *arguments], cwd=directory, env=environment,
                       check=True, timeout=60)
        got = (pathlib.Path(directory) / "out").stat().st_size
        assert size is None or got == size, (name, got)
