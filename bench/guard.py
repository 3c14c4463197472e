#!/usr/bin/env python3
"""Fails when a hot path costs more than it did: instructions on fixed inputs, and calls an update.

    guard.py BUILD-DIRECTORY [--write]

The baseline is bench/baseline.json; --write makes what is counted now the baseline of this
architecture. Instructions depend on the compiler: another version's are not compared.
"""

import json
import pathlib
import re
import shutil
import subprocess
import sys
import tempfile

BASELINE = pathlib.Path(__file__).with_name("baseline.json")
TOLERANCE = 0.05
TIMES = 20
ATTEMPTS = 3  # calls an update are more on a machine that is too busy for every update


def instructions(program, path, times):
    with tempfile.TemporaryDirectory() as directory:
        errors = subprocess.run(
            ["valgrind", "--tool=callgrind", f"--callgrind-out-file={directory}/out", program, path,
             str(times)], check=True, stderr=subprocess.PIPE, text=True, timeout=300).stderr
    return int(re.search(r"Collected : (\d+)", errors).group(1))


def count_instructions(build):
    """Instructions of one turn of each path."""
    program = build / "bench-paths"
    paths = subprocess.run([program], check=True, stdout=subprocess.PIPE, text=True).stdout
    return {path: (instructions(program, path, TIMES) - instructions(program, path, 0)) // TIMES
            for path in paths.splitlines()}


def count_calls(build):
    rows = subprocess.run([build / "bench-agent", "--calls"], check=True, stdout=subprocess.PIPE,
                          text=True, timeout=120).stdout
    return {row["row"]: row["ours"] for row in map(json.loads, rows.splitlines())}


def compiler(build):
    """Architecture and version, as far as instructions depend on them."""
    cache = (build / "CMakeCache.txt").read_text()
    path = re.search(r"CMAKE_CXX_COMPILER:[A-Z]+=(.*)", cache).group(1)
    flags = re.search(r"CMAKE_CXX_FLAGS:[A-Z]+=(.*)", cache).group(1).split()
    machine = subprocess.run([path, *flags, "-print-multiarch"], check=True, text=True,
                             stdout=subprocess.PIPE).stdout.strip()
    version = subprocess.run([path, "-dumpfullversion"], check=True, text=True,
                             stdout=subprocess.PIPE).stdout.strip()
    return f"{machine} {version}"


def worse(counted, baseline):
    return {name: (baseline[name], value) for name, value in counted.items()
            if name in baseline and value > baseline[name] * (1 + TOLERANCE)}


def main():
    build = pathlib.Path(sys.argv[1]).resolve()
    known = json.loads(BASELINE.read_text()) if BASELINE.exists() else {}
    key = compiler(build)
    failures = {}

    calls = count_calls(build)
    if "--write" in sys.argv:
        known["calls"] = calls
    for _ in range(ATTEMPTS - 1):
        if not worse(calls, known["calls"]):
            break
        calls = {name: min(value, calls[name]) for name, value in count_calls(build).items()}
    failures = worse(calls, known["calls"])

    if not shutil.which("valgrind"):
        print("!!! SKIPPED: counting instructions, because there is no valgrind !!!")
    else:
        counted = count_instructions(build)
        if "--write" in sys.argv:
            known.setdefault("instructions", {})[key] = counted
        if key in known.get("instructions", {}):
            failures |= worse(counted, known["instructions"][key])
        else:
            print(f"!!! SKIPPED: comparing instructions, because none are known for {key} !!!")
        calls = calls | counted

    if "--write" in sys.argv:
        BASELINE.write_text(json.dumps(known, indent=1, sort_keys=True) + "\n")
    for name, value in calls.items():
        print(f"{name:40} {value:12.5g}")
    for name, (before, now) in failures.items():
        print(f"WORSE: {name}: {now} instead of {before}")
    return 1 if failures else 0


if __name__ == "__main__":
    sys.exit(main())
