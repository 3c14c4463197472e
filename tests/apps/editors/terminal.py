"""Keeps all that a terminal sends in a file, byte for byte; shows the lines of another one."""

import os
import sys
import tty

out, shown = sys.argv[1:]
tty.setraw(0)
with open(shown, "rb") as file:
    os.write(1, file.read().replace(b"\n", b"\r\n"))
with open(out, "wb", buffering=0) as file:
    while data := os.read(0, 65536):
        file.write(data)
