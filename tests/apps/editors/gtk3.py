"""A text area of GTK 3. F9 reports in the window's title, F7 and F8 clear that, F8 the shortcuts, too."""

import json

import gi

gi.require_version("Gdk", "3.0")
gi.require_version("Gtk", "3.0")
from gi.repository import Gdk, Gtk  # noqa: E402

window = Gtk.Window(title="empty")
scrolled = Gtk.ScrolledWindow()
view = Gtk.TextView(wrap_mode=Gtk.WrapMode.WORD_CHAR, monospace=True)
scrolled.add(view)
window.add(scrolled)
shortcuts = []


def place(offset):
    buffer = view.get_buffer()
    box = view.get_iter_location(buffer.get_iter_at_offset(offset))
    x, y = view.buffer_to_window_coords(Gtk.TextWindowType.WIDGET, box.x, box.y)
    _, left, top = view.get_window(Gtk.TextWindowType.WIDGET).get_origin()
    return [left + x, top + y + box.height // 2]


def report():
    end = view.get_buffer().get_char_count()
    window.set_title(json.dumps({
        "shortcuts": shortcuts, "count": end, "scroll": scrolled.get_vadjustment().get_value(),
        "start": place(0), "word": place(min(8, end)), "end": place(end)}))


def pressed(_, event):
    name = Gdk.keyval_name(event.keyval)
    if name in ("F7", "F8"):
        if name == "F8":
            shortcuts.clear()
        window.set_title("empty")
    elif name == "F9":
        report()
    else:
        held = [text for text, mask in (("Control", Gdk.ModifierType.CONTROL_MASK),
                                        ("Alt", Gdk.ModifierType.MOD1_MASK),
                                        ("Super", Gdk.ModifierType.MOD4_MASK)) if event.state & mask]
        point = Gdk.keyval_to_unicode(event.keyval)
        if held and not name.startswith(("Control_", "Alt_", "Super_", "Shift_", "ISO_", "Meta_")):
            shortcuts.append("+".join(held + [chr(point) if point > 32 else name]))
    return False


window.connect("key-press-event", pressed)
window.connect("destroy", Gtk.main_quit)
window.show_all()
view.grab_focus()
Gtk.main()
