#!/usr/bin/python3
"""The page of ruvoview in a real browser.

Status 0 when all is right, 1 when something is wrong, 77 when there is no browser.
"""

import importlib.util
import pathlib
import shutil
import sys
import unittest

sys.dont_write_bytecode = True


def missing():
    for module, package in (("selenium", "python3-selenium"), ("aiohttp", "python3-aiohttp"),
                            ("PIL", "python3-pil")):
        if not importlib.util.find_spec(module):
            return package
    for command, package in (("chromium", "chromium"), ("chromedriver", "chromium-driver"),
                             ("Xvfb", "xvfb"), ("xterm", "xterm"), ("openbox", "openbox"),
                             ("xdotool", "xdotool"), ("xclip", "xclip")):
        if not shutil.which(command):
            return package
    return None


if package := missing():
    print(f"!!! SKIPPED: the page in a browser, because {package} is not installed !!!",
          file=sys.stderr)
    sys.exit(77)

if not shutil.which("firefox-esr"):
    print("!!! SKIPPED: the page in Firefox, because firefox-esr is not installed !!!", file=sys.stderr)

import stage  # noqa: E402

try:
    program = unittest.main(
        module=None, exit=False,
        argv=[sys.argv[0], "discover", "-s", str(pathlib.Path(__file__).parent), "-p", "*_test.py",
              *sys.argv[1:]])
finally:
    if stage.Setting.browser:
        stage.Setting.browser.close()
sys.exit(not (program.result.wasSuccessful() and program.result.testsRun))
