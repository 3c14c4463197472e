"""A text area of GTK 4. F9 reports in the window's title, F7 and F8 clear that, F8 the shortcuts, too."""

import json

import gi

gi.require_version("Gdk", "4.0")
gi.require_version("Gtk", "4.0")
from gi.repository import Gdk, GLib, Graphene, Gtk  # noqa: E402

Gtk.init()
window = Gtk.Window(title="empty", decorated=False)
view = Gtk.TextView(wrap_mode=Gtk.WrapMode.WORD_CHAR, monospace=True)
scrolled = Gtk.ScrolledWindow(child=view)
window.set_child(scrolled)
shortcuts = []


def place(offset):
    box = view.get_iter_location(view.get_buffer().get_iter_at_offset(offset))
    x, y = view.buffer_to_window_coords(Gtk.TextWindowType.WIDGET, box.x, box.y)
    _, point = view.compute_point(window, Graphene.Point().init(x, y))
    return [int(point.x), int(point.y) + box.height // 2]


def report():
    end = view.get_buffer().get_char_count()
    window.set_title(json.dumps({
        "shortcuts": shortcuts, "count": end, "scroll": scrolled.get_vadjustment().get_value(),
        "start": place(0), "word": place(min(8, end)), "end": place(end)}))


def pressed(_, keyval, __, state):
    name = Gdk.keyval_name(keyval)
    if name in ("F7", "F8"):
        if name == "F8":
            shortcuts.clear()
        window.set_title("empty")
    elif name == "F9":
        report()
    else:
        held = [text for text, mask in (("Control", Gdk.ModifierType.CONTROL_MASK),
                                        ("Alt", Gdk.ModifierType.ALT_MASK),
                                        ("Super", Gdk.ModifierType.SUPER_MASK)) if state & mask]
        point = Gdk.keyval_to_unicode(keyval)
        if held and not name.startswith(("Control_", "Alt_", "Super_", "Shift_", "ISO_", "Meta_")):
            shortcuts.append("+".join(held + [chr(point) if point > 32 else name]))
    return False


keys = Gtk.EventControllerKey(propagation_phase=Gtk.PropagationPhase.CAPTURE)
keys.connect("key-pressed", pressed)
window.add_controller(keys)
loop = GLib.MainLoop()
window.connect("close-request", lambda _: loop.quit())
window.maximize()
window.present()
view.grab_focus()
loop.run()
