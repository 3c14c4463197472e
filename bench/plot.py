#!/usr/bin/env python3
"""Draws what the benchmarks measured as SVG: latency.svg and load.svg.

    plot.py TABLE.json DIRECTORY
"""

import json
import math
import pathlib
import statistics
import sys
from xml.sax.saxutils import escape

COLOURS = ["#0b6e99", "#d1495b", "#7a7a7a", "#e0a030", "#5b8c5a", "#8a6bb1"]
WIDTH = 760
STYLE = ("text{font:12px sans-serif;fill:#222}.title{font-size:15px;font-weight:bold}"
         ".grid{stroke:#ddd;stroke-width:1}.axis{stroke:#888;stroke-width:1}")


class Svg:
    def __init__(self, height):
        self.parts = [f'<svg xmlns="http://www.w3.org/2000/svg" width="{WIDTH}" height="{height}" '
                      f'viewBox="0 0 {WIDTH} {height}"><style>{STYLE}</style>'
                      f'<rect width="{WIDTH}" height="{height}" fill="#fff"/>']

    def text(self, x, y, text, anchor="start", kind=""):
        self.parts.append(f'<text x="{x:.1f}" y="{y:.1f}" text-anchor="{anchor}" class="{kind}">'
                          f'{escape(text)}</text>')

    def line(self, x1, y1, x2, y2, kind):
        self.parts.append(f'<line x1="{x1:.1f}" y1="{y1:.1f}" x2="{x2:.1f}" y2="{y2:.1f}" '
                          f'class="{kind}"/>')

    def box(self, x, y, width, height, colour):
        self.parts.append(f'<rect x="{x:.1f}" y="{y:.1f}" width="{width:.1f}" '
                          f'height="{height:.1f}" fill="{colour}"/>')

    def path(self, points, colour):
        joined = " ".join(f"{x:.1f},{y:.1f}" for x, y in points)
        self.parts.append(f'<polyline points="{joined}" fill="none" stroke="{colour}" '
                          'stroke-width="2"/>')

    def save(self, path):
        path.write_text("\n".join(self.parts) + "\n</svg>\n")
        return path


def steps_up_to(limit):
    """Round numbers for an axis from 0."""
    raw = limit / 5
    step = 10 ** math.floor(math.log10(raw))
    step *= next(f for f in (1, 2, 5, 10) if f * step >= raw)
    return [step * i for i in range(int(limit / step) + 1)]


def draw_latency(lines, path):
    """Beside each other: what part of the samples took at most so long."""
    kinds = list(dict.fromkeys(line["what"] for line in lines))
    svg = Svg(330)
    titles = {"idle screen": "Drawing until \"fbUpdate\"", "key": "Key until KeyPress"}
    width = (WIDTH - 60 * len(kinds) - 20) / len(kinds)
    top, bottom = 50, 270
    for place, kind in enumerate(kinds):
        left = 50 + place * (width + 60)
        curves = [(line["who"], sorted(line["values"])) for line in lines if line["what"] == kind]
        limit = max(values[int(len(values) * 0.98)] for _, values in curves) * 1.1
        svg.text(left, 28, titles.get(kind, kind), kind="title")
        for percent in (0, 25, 50, 75, 100):
            y = bottom - (bottom - top) * percent / 100
            svg.line(left, y, left + width, y, "grid")
            svg.text(left - 6, y + 4, f"{percent} %", "end")
        for ms in steps_up_to(limit):
            svg.text(left + width * ms / limit, bottom + 18, f"{ms:g}", "middle")
        svg.text(left + width, bottom + 34, "ms", "end")
        for i, (who, values) in enumerate(curves):
            points = [(left, bottom)]
            for rank, value in enumerate(values, 1):
                x = left + width * min(value, limit) / limit
                points += [(x, points[-1][1]), (x, bottom - (bottom - top) * rank / len(values))]
            svg.path(points, COLOURS[i])
            svg.box(left + i * 155, 308, 12, 12, COLOURS[i])
            svg.text(left + 18 + i * 155, 318, f"{who}: median {statistics.median(values):.2f}")
        svg.line(left, bottom, left + width, bottom, "axis")
    return svg.save(path)


def draw_load(lines, path):
    """Bars on a logarithmic axis, for each workload all who were measured."""
    who = list(dict.fromkeys(line["who"] for line in lines))
    workloads = list(dict.fromkeys(line["what"] for line in lines))
    load = {(line["who"], line["what"]): statistics.median(line["values"]) for line in lines}
    bar, gap, left, top = 13, 14, 100, 70
    group = bar * len(who) + gap
    bottom = top + group * len(workloads)
    svg = Svg(bottom + 46)
    low = math.floor(math.log10(max(min(load.values()), 0.05)))
    high = math.ceil(math.log10(max(load.values())))
    width = WIDTH - left - 70

    def x(value):
        return left + width * max(math.log10(max(value, 1e-9)) - low, 0.01) / (high - low)

    svg.text(20, 26, "Processor time of the program and its X server, 1920x1080", kind="title")
    place = left
    for i, name in enumerate(who):
        svg.box(place, 40, 12, 12, COLOURS[i])
        svg.text(place + 18, 50, name)
        place += 40 + 7.5 * len(name)
    for power in range(low, high + 1):
        svg.line(x(10 ** power), top - 8, x(10 ** power), bottom, "grid")
        svg.text(x(10 ** power), bottom + 18, f"{10 ** power:g}", "middle")
    svg.text(left + width, bottom + 36, "ms a second", "end")
    for row, workload in enumerate(workloads):
        y = top + row * group
        svg.text(left - 8, y + bar * len(who) / 2 + 4, workload, "end")
        for i, name in enumerate(who):
            value = load.get((name, workload))
            if value is None:
                continue
            svg.box(left, y + i * bar, x(value) - left, bar - 2, COLOURS[i])
            svg.text(x(value) + 4, y + i * bar + bar - 3, f"{value:.3g}" if value < 1000 else f"{value:.0f}")
    return svg.save(path)


def draw_all(series, directory):
    """Returns the files; none of what was not measured."""
    drawn = []
    for name, draw in (("latency", draw_latency), ("load", draw_load)):
        lines = [line for line in series if line["series"] == name]
        if lines:
            drawn.append(draw(lines, pathlib.Path(directory) / f"{name}.svg"))
    return drawn


if __name__ == "__main__":
    draw_all(json.loads(pathlib.Path(sys.argv[1]).read_text())["series"], sys.argv[2])
