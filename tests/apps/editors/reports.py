"""What the editors of GTK report, each in its window's title: F9 reports, F7 and F8 clear that, F8 the
shortcuts, too."""

import json

NO_SHORTCUTS = ("Control_", "Alt_", "Super_", "Shift_", "ISO_", "Meta_")
shortcuts = []


def report(count, scroll, place):
    return json.dumps({"shortcuts": shortcuts, "count": count, "scroll": scroll, "start": place(0),
                       "word": place(min(8, count)), "end": place(count)})


def pressed(name, point, held, set_title, reported):
    """A key of the name, for the Unicode character or 0, while modifiers are held."""
    if name in ("F7", "F8"):
        if name == "F8":
            shortcuts.clear()
        set_title("empty")
    elif name == "F9":
        set_title(reported())
    elif held and not name.startswith(NO_SHORTCUTS):
        shortcuts.append("+".join(held + [chr(point) if point > 32 else name]))
    return False
