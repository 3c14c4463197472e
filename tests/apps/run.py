#!/usr/bin/env python3
"""Works real applications through an agent and compares what they hold.

Status 0 when all is right, 1 when something is wrong, 77 when nothing could be run.
"""

import argparse
import json
import os
import shutil
import signal
import subprocess
import sys
import tempfile
import time

import applications
import cases
import desktop
import wire

NEED_REPORTS = {"shortcuts", "copy_mouse", "wheel", "drag_text"}


def run_application(kind, options):
    """{case: [[what, problem], ...]} of one application on a desktop of its own."""
    results = {}
    os.makedirs(options.logs, exist_ok=True)
    with tempfile.TemporaryDirectory(prefix="apps.", ignore_cleanup_errors=True) as directory, \
            open(os.path.join(options.logs, kind.name + ".log"), "wb", buffering=0) as log:
        screen = desktop.Desktop(directory, log)
        agent = None
        try:
            screen.layout("us")
            agent = wire.Agent(options.agent, screen.xserver, options.param, log)
            application = kind(screen, agent, directory)
            for _ in range(options.busy):
                screen.programs.start(["sh", "-c", "while :; do :; done"])
            bench = cases.Bench(screen, agent, application, options.short)
            for name, case in cases.ALL:
                key = case.__name__
                if options.case and key not in options.case or key in kind.cannot or (
                        key in NEED_REPORTS and not kind.reports):
                    continue
                begin = time.monotonic()
                results[key] = []
                try:
                    for what, problem in case(bench):
                        results[key].append([what, problem])
                        if problem:
                            print(f"{kind.name}: {name}: {what}: {problem}", flush=True)
                except (TimeoutError, OSError) as error:
                    results[key].append(["", f"{type(error).__name__} {error}"])
                    print(f"{kind.name}: {name}: {type(error).__name__} {error}", flush=True)
                    screen.layout("us")
                if options.verbose:
                    print(f"{kind.name}: {name}: {time.monotonic() - begin:.1f} s", flush=True)
        except (TimeoutError, OSError, RuntimeError) as error:
            print(f"{kind.name}: {error}", flush=True)
            results["start"] = [["", str(error)]]
        finally:
            if agent:
                agent.close()
            screen.close()
    return results


def version_of(kind):
    if kind.version:
        line = subprocess.run(kind.version, stdout=subprocess.PIPE, stderr=subprocess.DEVNULL,
                              text=True).stdout.strip()
    else:
        line = subprocess.run(["dpkg-query", "-W", "-f", "${Version}", kind.packages[0]],
                              stdout=subprocess.PIPE, text=True).stdout
    words = [word for word in line.replace("(", " ").replace(")", " ").split() if word[:1].isdigit()]
    return words[0] if words else line


def main():
    here = os.path.dirname(os.path.abspath(__file__))
    top = os.path.dirname(os.path.dirname(here))
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("application", nargs="*", help="all that are known by default: " +
                        ", ".join(kind.name for kind in applications.ALL))
    parser.add_argument("--agent", default=os.path.join(top, "build/release/ruvoagent"))
    parser.add_argument("--param", action="append", metavar="NAME=VALUE",
                        help="parameters of the agent, by default those that servers set")
    parser.add_argument("--case", action="append", help="only this function of cases.py")
    parser.add_argument("--short", action="store_true", help="fewer layouts")
    parser.add_argument("--repeat", type=int, default=1)
    parser.add_argument("--busy", type=int, default=0, help="processes that keep the machine busy")
    parser.add_argument("--logs", default=os.path.join(top, "build/apps"))
    parser.add_argument("--results", help="a JSON file that the results are added to")
    parser.add_argument("--verbose", action="store_true")
    options = parser.parse_args()
    if options.param is None:
        options.param = ["_ReuseGrafts=1"]
    options.param = ["EnableClipboard=1", *filter(None, options.param)]
    signal.signal(signal.SIGTERM, lambda *_: sys.exit(1))

    ran = failed = 0
    for _ in range(options.repeat):
        for kind in applications.ALL:
            if options.application and kind.name not in options.application:
                continue
            missing = kind.missing()
            if missing:
                print(f"!!! SKIPPED: {kind.title}, because it is not installed ({missing}) !!!",
                      file=sys.stderr, flush=True)
                continue
            begin = time.monotonic()
            load = os.getloadavg()[0]
            results = run_application(kind, options)
            wrong = [(case, what) for case, entries in results.items()
                     for what, problem in entries if problem]
            total = sum(map(len, results.values()))
            ran += 1
            failed += bool(wrong)
            print(f"{kind.name} {version_of(kind)}: {total - len(wrong)} of {total} right, "
                  f"{time.monotonic() - begin:.0f} s", flush=True)
            if options.results:
                add(options.results, kind, options.busy, results, load)
    return 77 if not ran else failed > 0


def add(path, kind, busy, results, load):
    known = {}
    if os.path.exists(path):
        with open(path) as file:
            known = json.load(file)
    entry = known.setdefault(kind.name, {})
    entry["version"] = version_of(kind)
    entry.setdefault("loads", []).append(load)
    entry.setdefault("busy" if busy else "idle", []).append(results)
    with open(path + ".new", "w") as file:
        json.dump(known, file, ensure_ascii=False, indent=1)
    shutil.move(path + ".new", path)


if __name__ == "__main__":
    sys.exit(main())
