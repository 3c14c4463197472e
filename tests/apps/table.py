"""docs/applications.md, from results that run.py has kept."""

import collections
import os

import applications
import cases

HEAD = """# Applications

<!-- Written by tests/apps/run.py --write. -->

What real applications hold after an agent has typed, copied, pasted and pointed in them, on a
private X server with a window manager. Their text is read back through their own clipboard (a
terminal's: by the program that runs in it) and compared exactly; keys that stay pressed count as
wrong. `scripts/test --apps` repeats it.

The paragraph, typed on the layouts {layouts} (at 30 characters a second: {steady}):

> {paragraph}
"""


def cell(runs, case):
    """How many of the checks in all runs went right."""
    problems = [problem for run in runs for _, problem in run.get(case, [])]
    if not problems:
        return "–"
    right = problems.count("")
    return "✓" if right == len(problems) else f"{right} of {len(problems)}"


def table(results, state):
    kinds = [kind for kind in applications.ALL if results.get(kind.name, {}).get(state)]
    yield "| | " + " | ".join(kind.name for kind in kinds) + " |"
    yield "|---" * (len(kinds) + 1) + "|"
    for title, case in cases.ALL:
        cells = [cell(results[kind.name][state], case.__name__) for kind in kinds]
        yield f"| {title} | " + " | ".join(cells) + " |"
    yield "| Runs | " + " | ".join(str(len(results[kind.name][state])) for kind in kinds) + " |"
    yield ""
    found = collections.Counter()
    for kind in kinds:
        for run in results[kind.name][state]:
            for case, entries in run.items():
                found.update((kind.name, dict((c.__name__, t) for t, c in cases.ALL).get(case, case),
                              " ".join(filter(None, entry))) for entry in entries if entry[1])
    if found:
        yield "What went wrong:"
        yield ""
    for (name, title, problem), count in sorted(found.items()):
        yield f"- {name}, {title}: {problem}" + (f" ({count} times)" if count > 1 else "")
    if found:
        yield ""


def layouts(results, case):
    tried = {what for entry in results.values() for state in ("idle", "busy")
             for run in entry.get(state, []) for what, _ in run.get(case, [])}
    names = (" ".join(layout).strip() for layout in cases.LAYOUTS)
    return ", ".join(f"`{name}`" for name in names if name in tried)


def document(results):
    loads = [load for entry in results.values() for load in entry["loads"]]
    lines = [HEAD.format(paragraph=cases.PARAGRAPH, layouts=layouts(results, "burst"),
                         steady=layouts(results, "steady")),
             f"When an application was started the machine had a load of {min(loads):.0f} to"
             f" {max(loads):.0f}, on {os.cpu_count()} processors.", "", "| | Application | Version |", "|---|---|---|"]
    for kind in applications.ALL:
        if kind.name in results:
            lines.append(f"| {kind.name} | {kind.title} | {results[kind.name]['version']} |")
    for state, title in (("idle", "Results"), ("busy", "Results beside busy processes")):
        if any(entry.get(state) for entry in results.values()):
            lines += ["", f"## {title}", "", *table(results, state)]
    lines += ["## What is not tried, and why", ""]
    for kind in applications.ALL:
        lines += [f"- {kind.name}: {note}" for note in kind.notes]
    lines += ["- mousepad, gnome-text-editor and featherpad report nothing in their titles: where their"
              " text stands\n  and which shortcuts they got isn't known."]
    return "\n".join(lines) + "\n"
