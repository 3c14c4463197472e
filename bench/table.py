#!/usr/bin/env python3
"""Runs the benchmarks and prints one table of all rows.

    table.py [--raw] [--filter TEXT] [--document] NAME=BUILD-DIRECTORY [NAME=AGENT]...

Writes table.md, table.json and two plots to build/bench. With an agent of another build as further
arguments the programs of the first build measure that as well. With a program's name as the text
only that one runs, else only rows whose names contain the text are shown. With --raw the programs'
own output is printed instead. --document puts table and plots into docs/performance.md, and one of
the plots into README.md, between their marks.

Below 1 is better than the yardstick.
"""

import argparse
import datetime
import json
import os
import pathlib
import platform
import re
import shutil
import statistics
import subprocess
import sys
import tempfile

import plot

ROOT = pathlib.Path(__file__).resolve().parent.parent
OUT = ROOT / "build" / "bench"
# Of Google Benchmark: what the ratios are to be at most.
GOALS = {"regions": 1.0, "comparer": 1.05, "cursor": 1.0, "framing": 1.2, "grab": 1.1}
OPTIONS = ["--benchmark_repetitions=3", "--benchmark_min_time=0.005",
           "--benchmark_enable_random_interleaving=true", "--benchmark_out_format=json"]
# Those that start agents and print rows, and what another build's agent is measured by.
AGENT_PROGRAMS = ("agent", "clipboard", "fleet", "keys", "resize", "start")
FURTHER = ("agent", "clipboard", "keys", "resize", "start")
NO_ROWS = ("paths", "view-draw")
MARKS = ("<!-- figures -->", "<!-- end of figures -->")
PLOTS = {"latency.svg": "Time from drawing to \"fbUpdate\", and from a key to KeyPress",
         "load.svg": "Processor time by workload, beside the floor and other programs"}


def run(command, raw):
    done = subprocess.run(command, stdout=subprocess.PIPE, text=True, timeout=480, check=True,
                          stderr=None if "--peers" in command else subprocess.DEVNULL)
    if raw:
        print(done.stdout)
    return done.stdout


def rows_of_google(program, name, raw):
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
            if "ours" not in sides:
                continue
            pairs = [a / b for a, b in zip(sides["ours"], sides[yardstick])]
            yield {"row": f"{name}: {key}", "unit": "ns", "ours": statistics.median(sides["ours"]),
                   "yardstick": statistics.median(sides[yardstick]), "against": yardstick,
                   "ratio": statistics.median(pairs), "noise": (max(pairs) - min(pairs)) / 2,
                   "goal": GOALS.get(name, 0)}


def size_row(agent):
    with tempfile.TemporaryDirectory() as directory:
        stripped = pathlib.Path(directory) / "stripped"
        subprocess.run(["strip", "-s", "-o", stripped, agent], check=True)
        kilobytes = stripped.stat().st_size / 1000
    return {"row": "stripped size", "unit": "kB", "ours": kilobytes, "yardstick": 650,
            "against": "the goal", "ratio": kilobytes / 650, "noise": None, "goal": 650}


def lines_of(program, name, options, raw):
    return map(json.loads, run([program, *options], raw).splitlines())


def measure(builds, wanted, raw):
    """Tables by build, what is drawn, and whether every program ran to its end."""
    (first, directory), *others = builds.items()
    directory = pathlib.Path(directory).resolve()
    programs = {path.name.removeprefix("bench-"): path for path in sorted(directory.glob("bench-*"))
                if path.name.removeprefix("bench-") not in NO_ROWS}
    # The name of a program leaves the others out; other texts may be in any.
    if wanted in programs:
        programs = {wanted: programs[wanted]}
    jobs = [(first, name, []) for name in programs]
    if "agent" in programs:
        jobs.append((first, "agent", ["--peers"]))
    jobs += [(build, name, ["--agent", str(pathlib.Path(agent).resolve())])
             for build, agent in others for name in FURTHER if name in programs]
    tables = {build: [] for build in builds}
    series = []
    complete = True
    for build, name, options in jobs:
        try:
            if name in AGENT_PROGRAMS:
                rows = list(lines_of(programs[name], name, options, raw))
            else:
                rows = list(rows_of_google(programs[name], name, raw))
        except (subprocess.SubprocessError, ValueError) as error:
            print(f"!!! bench-{name} failed: {error} !!!", file=sys.stderr)
            complete = False
            continue
        series += [line for line in rows if "series" in line and build == first]
        tables[build] += [line for line in rows if "row" in line
                          and (wanted in line["row"] or wanted == name)]
    for build, agent in [(first, directory / "ruvoagent"), *others]:
        row = size_row(agent)
        if wanted in row["row"]:
            tables[build].append(row)
    return tables, series, complete


def machine():
    """What the figures depend on, in one line."""
    cpu = next((line.split(":")[1].strip() for line in open("/proc/cpuinfo")
                if line.startswith("model name")), platform.machine())
    compiler = subprocess.run(["c++", "-dumpfullversion"], stdout=subprocess.PIPE, text=True).stdout
    load = os.getloadavg()[2]
    return (f"{cpu}, {os.cpu_count()} processors, Linux {platform.release().split('-')[0]}, "
            f"compiler {compiler.strip()}, {datetime.date.today().isoformat()}; "
            f"load of the 15 minutes before {load:.1f}")


def number(value):
    return "" if value is None else f"{value:.3g}" if abs(value) < 1000 else f"{value:.0f}"


def markdown(tables, about):
    lines = [about, ""]
    for build, rows in tables.items():
        lines += [f"**{build}**", "", "| row | ours | yardstick | ratio | noise | goal |",
                  "|---|--:|--:|--:|--:|--:|"]
        for r in rows:
            noise = "" if r["noise"] is None else f"±{r['noise']:.2f}"
            lines.append(f"| {r['row']} | {number(r['ours'])} {r['unit']} "
                         f"| {number(r['yardstick'])} {r['unit']} ({r['against']}) "
                         f"| {r['ratio']:.2f} | {noise} | {number(r['goal'] or None)} |")
        lines.append("")
    return "\n".join(lines)


def put_into(document, text):
    begin, end = MARKS
    whole = document.read_text()
    document.write_text(re.sub(f"{begin}.*{end}", lambda _: f"{begin}\n{text}\n{end}", whole,
                               flags=re.DOTALL))


def put_into_documents(text, plots):
    docs = ROOT / "docs"
    for path in plots:
        shutil.copy(path, docs)
    images = "\n\n".join(f"![{PLOTS[path.name]}]({path.name})" for path in plots)
    put_into(docs / "performance.md", f"{images}\n\n{text}")
    put_into(ROOT / "README.md", "\n".join(f"![{PLOTS[path.name]}](docs/{path.name})"
                                           for path in plots if path.name == "load.svg"))


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--raw", action="store_true")
    parser.add_argument("--filter", default="")
    parser.add_argument("--document", action="store_true")
    parser.add_argument("builds", nargs="+")
    arguments = parser.parse_args()
    if arguments.document and arguments.filter:
        parser.error("the documents have the whole table: no --document with a filter")
    OUT.mkdir(parents=True, exist_ok=True)
    about = machine()
    tables, series, complete = measure(dict(build.split("=", 1) for build in arguments.builds),
                                       arguments.filter, arguments.raw)
    text = markdown(tables, about)
    (OUT / "table.md").write_text(text)
    (OUT / "table.json").write_text(json.dumps(
        {"machine": about, "tables": tables, "series": series}, indent=1))
    plots = plot.draw_all(series, OUT)
    if not arguments.raw:
        print(text)
    if arguments.document and not complete:
        sys.exit("the documents stay as they are: rows are missing")
    if arguments.document:
        put_into_documents(text, plots)


if __name__ == "__main__":
    main()
