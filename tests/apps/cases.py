"""What a person does at a desktop, and what the application must hold afterwards.

Each case is a generator of (what was tried, what went wrong or nothing).
"""

import difflib
import time

PARAGRAPH = (
    "Grüße, ça va? Zażółć gęślą jaźń, příliš žluťoučký kůň, pijamalı hasta yağız şoföre. "
    "Ελληνικά γράμματα, съешь ещё этих булок, שלום עולם, مرحبا بالعالم, नमस्ते दुनिया, "
    "漢字文化, 한국어 글자, ひらがな カタカナ, 🙂🚀🎉, ∑∫√≤≠∞ → “5 €” – ok.")
LAYOUTS = [("us", ""), ("de", ""), ("fr", ""), ("us", "intl"), ("ru", ""), ("jp", "")]


def different_characters(count):
    ranges = ((0x410, 0x450), (0x3B1, 0x3C2), (0x100, 0x149), (0x3041, 0x3094), (0x4E00, 0x9FA5))
    points = [point for first, last in ranges for point in range(first, last)]
    return "".join(map(chr, points[:count]))


def difference(expected, got):
    """Nothing when they are equal."""
    if got == expected:
        return ""
    if len(expected) > 5000:
        same = next((i for i, pair in enumerate(zip(expected, got)) if pair[0] != pair[1]),
                    min(len(expected), len(got)))
        return f"{len(got)} instead of {len(expected)} characters, different from {same} on"
    matcher = difflib.SequenceMatcher(None, expected, got, autojunk=False)
    same = sum(block.size for block in matcher.get_matching_blocks())
    lost = "".join(expected[a:b] for kind, a, b, _, _ in matcher.get_opcodes() if kind != "equal")
    return (f"{len(expected) - same} of {len(expected)} lost, {len(got) - same} foreign, "
            f"first at '{lost[:12]}'")


class Bench:
    """An application on a desktop, and the agent that works it."""

    def __init__(self, desktop, agent, application, short):
        self.desktop, self.agent, self.application, self.short = desktop, agent, application, short
        self.sizes = ("1 KB", 1000), (("128 KB", 1 << 17) if short else application.large)

    def typed(self, text, per_second=0):
        """Types into the empty application; what went wrong."""
        self.application.clear()
        self.agent.type(text, per_second)
        return self.held(text)

    def held(self, expected):
        problem = difference(expected, self.application.read())
        keys = self.desktop.pressed_keys()
        return problem or (f"keys {keys} stay pressed" if keys else "")

    def put(self, text):
        """Pastes a text that the agent has no part in; what went wrong."""
        self.application.clear()
        self.desktop.own("clipboard", text)
        self.application.paste_clipboard()
        return self.pasted(text)

    def pasted(self, text):
        self.application.wait_for(text)
        return difference(text, self.application.read())


def paragraph(bench, per_second):
    layouts = LAYOUTS
    if bench.short:
        layouts = [("us", "")] if per_second else [("us", ""), ("fr", ""), ("ru", "")]
    for layout in layouts:
        bench.desktop.layout(*layout)
        yield " ".join(layout).strip(), bench.typed(PARAGRAPH, per_second)
    bench.desktop.layout("us")


def burst(bench):
    yield from paragraph(bench, 0)


def steady(bench):
    yield from paragraph(bench, 30)


def many(bench):
    text = different_characters(500)
    bench.desktop.layout("us")
    begin = time.monotonic()
    problem = bench.typed(text)
    seconds = time.monotonic() - begin
    yield "us", problem or (f"{seconds:.0f} s" if seconds > 30 else "")


def shortcuts(bench):
    combinations = ["Control+k", "Control+@", "Control+[", "Control+~", "Alt+x", "Alt+ß",
                    "Control+Alt+y", "Super+k", "Super+@", "Control+€", "Control+ж"]
    left = {"Control": "Control_L", "Alt": "Alt_L", "Super": "Super_L"}
    for layout in [("us", ""), ("de", "")] if bench.short else LAYOUTS:
        bench.desktop.layout(*layout)
        bench.application.forget()
        allowed = bench.application.shortcut_exceptions()
        bench.agent.press(*("+".join(left.get(key, key) for key in combination.split("+"))
                            for combination in combinations))
        got = [entry.lower() for entry in bench.application.state()["shortcuts"]]
        want = [entry.lower() for entry in bench.application.expected_shortcuts(combinations)]
        wrong = [f"{a} came as {b}" for a, b in zip(want, got) if a != b and b not in allowed(a)]
        if len(want) != len(got):
            wrong = [f"{len(got)} instead of {len(want)}: {got}"]
        yield " ".join(layout).strip(), "; ".join(wrong)
    bench.desktop.layout("us")
    bench.application.clear()


def editing(bench):
    app, press = bench.application, bench.agent.press
    app.clear()
    bench.agent.type("alpha beta gamma")
    press(*["Shift_L+Left"] * 6, "BackSpace")
    app.press_select_all()
    press(app.cut, app.paste)
    app.wait_for("alpha beta")
    press(app.paste)
    app.wait_for("alpha beta" * 2)
    press("Home", "Delete", "End", "x")
    yield "us", bench.held("lpha betaalpha betax")


def dead_keys(bench):
    sequences = [("dead_acute", "e", "é"), ("dead_circumflex", "o", "ô"), ("dead_grave", "A", "À"),
                 ("dead_tilde", "n", "ñ"), ("Multi_key", "o", "e", "œ"), ("Multi_key", "=", "e", "€"),
                 ("Multi_key", "a", "e", "æ")]
    for layout in [("us", ""), ("de", "")] if bench.short else [("us", ""), ("de", ""),
                                                                ("us", "intl")]:
        bench.desktop.layout(*layout)
        bench.application.clear()
        time.sleep(0.3)
        for *keys, _ in sequences:
            bench.agent.press(*keys)
            time.sleep(0.05)  # see Qt5
        yield " ".join(layout).strip(), bench.held("".join(entry[-1] for entry in sequences))
    bench.desktop.layout("us")


def held_keys(bench):
    """A viewer repeats a held key; the desktop does not."""
    for character in "aж":
        bench.application.clear()
        for _ in range(12):
            bench.agent.key(character, True)
            time.sleep(0.03)
        bench.agent.key(character, False)
        yield f"'{character}' repeated", bench.held(12 * character)
        bench.application.clear()
        bench.agent.key(character, True)
        time.sleep(1)
        bench.agent.key(character, False)
        yield f"'{character}' held", bench.held(character)


def locks(bench):
    text = "aBc Àé ж7"
    for lock in ("Caps_Lock", "Num_Lock"):
        bench.application.clear()
        bench.desktop.run("xdotool", "key", lock)
        bench.agent.type(text)
        bench.agent.press("KP_7", "Shift_L+D", "KP_8")
        yield lock, bench.held(text + "7D8")
        if bench.desktop.is_locked(lock):
            bench.desktop.run("xdotool", "key", lock)


LINE = "Grüße beta Ελλάδα привет, 5 €"
WORDS = "Grüße, 5 € – Ελλάδα привет “ok” 日本 🙂"


def sized(size):
    """Lines of text, about SIZE bytes of them."""
    line = (WORDS * 2)[:60] + "\n"
    count = max(1, size // len(line.encode()))
    return "".join(f"{number} {line}" for number in range(count))[:-1]


def copy_keys(bench):
    for label, size in bench.sizes:
        text = sized(size)
        if problem := bench.put(text):
            yield label, problem
            continue
        # The same text again is no news.
        bench.desktop.own("clipboard", "something else")
        bench.agent.wait(lambda: b"something else" in bench.agent.copied, "the other text")
        bench.agent.copied.clear()
        bench.application.copy_all()
        yield label, copied(bench, text)
    bench.application.clear()
    bench.application.wait_for("")


def copied(bench, text, whole=True):
    """What is wrong with the text that has arrived, and with all before it."""
    data = text.encode()
    large = len(data) > 256 * 1024
    # Of a large text the agent sends the beginning, or nothing when it comes in pieces.
    right = (lambda got: got == b"" or (len(got) > 250000 and data.startswith(got))) if large else (
        lambda got: got == data)
    try:
        bench.agent.wait(lambda: bench.agent.copied and right(bench.agent.copied[-1]),
                         "the copied text", 10)
    except TimeoutError:
        if not bench.agent.copied:
            return "nothing arrived"
        return "last arrived: " + difference(text, bench.agent.copied[-1].decode(errors="replace"))
    time.sleep(0.3)  # for a second, wrong text
    for got in list(bench.agent.copied):
        if not (right(got) if whole else got in data):
            return "arrived though nobody copied it: " + repr(got[:60].decode(errors="replace"))
    return "" if right(bench.agent.copied[-1]) else "something else arrived last"


def copy_mouse(bench):
    text = LINE
    if problem := bench.application.show(bench, text):
        yield "line", problem
        return
    bench.agent.press("End")  # nothing is selected
    state = bench.application.state()
    for turn in range(3):
        time.sleep(0.6)  # no triple click
        bench.agent.click(*state["word"], count=2)
        bench.agent.wait(lambda: bench.agent.copied[-1:] == [b"beta"], "the selected word", 5)
        time.sleep(0.6)  # no triple click
        bench.agent.copied.clear()
        bench.agent.drag(state["start"], (state["end"][0] + 3, state["end"][1]), pause=0.1)
        yield f"drag {turn + 1}", copied(bench, text, whole=False)


def paste(bench):
    for label, size in bench.sizes:
        text = sized(size)
        for way, action in (("keys", bench.application.paste_clipboard),
                            ("middle button", bench.application.paste_primary)):
            bench.application.clear()
            bench.application.wait_for("")
            bench.agent.cut_text(text)
            action()
            yield f"{label} by {way}", bench.pasted(text)
    bench.application.clear()
    bench.application.wait_for("")


def wheel(bench):
    if problem := bench.put("\n".join(f"line {number}" for number in range(200))):
        yield "down", problem
        return
    def scrolled(condition):
        bench.desktop.until(lambda: condition(bench.application.state()["scroll"]), "scrolling", 5)

    bench.agent.press("Control_L+Home")
    time.sleep(0.5)
    top = bench.application.state()["scroll"]
    bench.agent.click(640, 400, 5, 8)
    scrolled(lambda position: position > top + 1)
    bench.agent.click(640, 400, 4, 8)
    scrolled(lambda position: abs(position - top) < 1)
    yield "down and up", ""


def drag_text(bench):
    if problem := bench.put("alpha beta gamma"):
        yield "word", problem
        return
    bench.agent.press("End")
    state = bench.application.state()
    bench.agent.click(*state["word"], count=2)
    time.sleep(1)  # a third press would select the line
    bench.agent.drag(state["word"], (state["end"][0] + 2, state["end"][1]), pause=0.3)
    time.sleep(0.5)
    got = bench.application.read()
    yield "word", "" if "".join(got.split()) == "alphagammabeta" else f"'{got}'"


ALL = [
    ("Paragraph in twelve scripts, as one burst", burst),
    ("Paragraph in twelve scripts, 30 characters a second", steady),
    ("500 different characters", many),
    ("Shortcuts", shortcuts),
    ("Editing keys", editing),
    ("Dead keys and Multi_key", dead_keys),
    ("Held keys", held_keys),
    ("Caps Lock and Num Lock", locks),
    ("Copying by keys", copy_keys),
    ("Selecting by mouse", copy_mouse),
    ("Pasting by keys and middle button", paste),
    ("Wheel", wheel),
    ("Dragging text", drag_text),
]
