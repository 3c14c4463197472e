#!/usr/bin/env python3
"""Runs the benchmarks and prints one table of all rows; writes build/bench/table.md and .json.

    table.py [--raw] [--filter TEXT] NAME=BUILD-DIRECTORY...

With a program's name as the text only that one runs, else only rows whose names contain the text are
shown. With --raw the programs' own output is printed instead. Below 1 is better than the yardstick.
"""

import argparse
import json
import pathlib
import re
import statistics
import subprocess
import sys

ROOT = pathlib.Path(__file__).resolve().parent.parent
OUT = ROOT / "build" / "bench"
# Of Google Benchmark: what the ratios are to be at most.
GOALS = {"regions": 1.0, "comparer": 1.05, "cursor": 1.0, "framing": 1.2, "grab": 1.1}
OPTIONS = ["--benchmark_repetitions=3", "--benchmark_min_time=0.005",
           "--benchmark_enable_random_interleaving=true", "--benchmark_out_format=json"]
NUMBER = r"([\d.]+)"
# Of programs that print sentences: pattern of ours and the yardstick, what it is, goal.
SENTENCES = {
    "keys": [
        (rf"agent +median +{NUMBER} ms.*\n +bare XTEST +median +{NUMBER} ms",
         "key to KeyPress", "ms", "bare XTEST", 1.3),
        (rf"agent {NUMBER} us a key, bare XTEST {NUMBER} us", "1000 keys at once", "us a key",
         "bare XTEST", 1.3),
    ],
    "clipboard": [
        (rf"{size} .*?server to paste +{NUMBER} ms.*?xclip to xclip +{NUMBER} ms",
         f"paste {size}", "ms", "xclip", goal)
        for size, goal in (("1 KB", 1.1), ("64 KB", 1.0), ("1 MB", 1.0))
    ],
}


def run(command, raw):
    done = subprocess.run(command, stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, text=True,
                          timeout=480, check=True)
    if raw:
        print(done.stdout)
    return done.stdout


def rows_of_google(program, name, wanted, raw):
    path = OUT / f"{name}.json"
    run([program, *OPTIONS, f"--benchmark_out={path}"], raw)
    times = {}
    for one in json.loads(path.read_text())["benchmarks"]:
        if one["run_type"] != "iteration":
            continue
        what, who, *rest = one["name"].split("/")
        time = one["real_time" if "real_time" in rest else "cpu_time"]
        key = "/".join([what, *(r for r in rest if not r.startswith(("repeats:", "real_time")))])
        times.setdefault(key, {}).setdefault(who, []).append(time)
    for key, sides in times.items():
        for yardstick in set(sides) - {"ours"}:
            if "ours" not in sides or wanted not in f"{name}: {key}":
                continue
            pairs = [a / b for a, b in zip(sides["ours"], sides[yardstick])]
            yield row(f"{name}: {key}", "ns", statistics.median(sides["ours"]),
                      statistics.median(sides[yardstick]), yardstick, statistics.median(pairs),
                      (max(pairs) - min(pairs)) / 2, GOALS.get(name))


def row(name, unit, ours, yardstick, against, ratio, noise, goal):
    return {"row": name, "unit": unit, "ours": ours, "yardstick": yardstick, "against": against,
            "ratio": ratio, "noise": noise, "goal": goal}


def rows_of(program, name, wanted, raw):
    if name == "agent":
        yield from map(json.loads, run([program], raw).splitlines())
    elif name in SENTENCES:
        runs = [run([program], raw) for _ in range(2)]
        for pattern, what, unit, against, goal in SENTENCES[name]:
            found = [tuple(map(float, match.groups())) for text in runs
                     if (match := re.search(pattern, text))]
            if not found:
                continue
            pairs = [a / b for a, b in found]
            yield row(what, unit, statistics.median(a for a, _ in found),
                      statistics.median(b for _, b in found), against, statistics.median(pairs),
                      (max(pairs) - min(pairs)) / 2, goal)
    elif name == "resize":
        text = run([program], raw)
        bare = float(re.search(rf"bare client.*median +{NUMBER}", text).group(1))
        ours = float(re.search(rf"new framebuffer +median +{NUMBER}", text).group(1))
        yield row("resize to a mode that exists: beyond the bare switch", "ms", ours - bare, bare,
                  "bare switch", ours / bare, 0.0, 3)
    else:
        yield from rows_of_google(program, name, wanted, raw)


def number(value):
    return "" if value is None else f"{value:.3g}" if abs(value) < 1000 else f"{value:.0f}"


def markdown(tables):
    lines = []
    for build, rows in tables.items():
        lines += [f"**{build}**", "", "| row | ours | yardstick | ratio | noise | goal |",
                  "|---|--:|--:|--:|--:|--:|"]
        for r in rows:
            lines.append(f"| {r['row']} | {number(r['ours'])} {r['unit']} "
                         f"| {number(r['yardstick'])} {r['unit']} ({r['against']}) "
                         f"| {r['ratio']:.2f} | ±{r['noise']:.2f} | {number(r['goal'])} |")
        lines.append("")
    return "\n".join(lines)


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--raw", action="store_true")
    parser.add_argument("--filter", default="")
    parser.add_argument("builds", nargs="+")
    arguments = parser.parse_args()
    OUT.mkdir(parents=True, exist_ok=True)
    tables = {}
    for build in arguments.builds:
        name, _, directory = build.partition("=")
        rows = tables.setdefault(name, [])
        programs = {path.name.removeprefix("bench-"): path for path in
                    sorted(pathlib.Path(directory).resolve().glob("bench-*"))}
        programs.pop("paths", None)  # for counts
        programs.pop("view-draw", None)  # draws for measure.py
        for what, program in programs.items():
            # The name of a program leaves the others out; other texts may be in any.
            if arguments.filter in programs and arguments.filter != what:
                continue
            try:
                rows += [r for r in rows_of(program, what, arguments.filter, arguments.raw)
                         if arguments.filter in r["row"] or arguments.filter == what]
            except (subprocess.SubprocessError, AttributeError, ValueError) as error:
                print(f"!!! {program.name} failed: {error} !!!", file=sys.stderr)
    text = markdown(tables)
    (OUT / "table.md").write_text(text)
    (OUT / "table.json").write_text(json.dumps(tables, indent=1))
    if not arguments.raw:
        print(text)


if __name__ == "__main__":
    main()
