"""A private X server for tests and scripts in Python."""

import contextlib
import os
import subprocess


@contextlib.contextmanager
def xvfb(screen, *options):
    """Yields the name of a display that ends with the block."""
    read_end, write_end = os.pipe()
    server = subprocess.Popen(
        ["Xvfb", "-displayfd", str(write_end), "-screen", "0", screen, "-nolisten", "tcp",
         "-noreset", *options], pass_fds=[write_end], stderr=subprocess.DEVNULL)
    os.close(write_end)
    try:
        with os.fdopen(read_end) as number:
            yield ":" + number.readline().strip()
    finally:
        server.terminate()
        server.wait()
