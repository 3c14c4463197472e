#!/usr/bin/python3
"""The page of ruvoview in a real browser.

Status 0 when all is right, 1 when something is wrong, 77 when there is no browser.
"""

import pathlib
import shutil
import sys
import unittest

sys.dont_write_bytecode = True


def missing():
    try:
        import selenium  # noqa: F401
    except ImportError:
        return "python3-selenium"
    for program, package in (("chromium", "chromium"), ("chromedriver", "chromium-driver")):
        if not shutil.which(program):
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
