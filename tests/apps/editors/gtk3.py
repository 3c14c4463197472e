"""A text area of GTK 3. What keys it reports by is in reports.py."""

import gi
import reports

gi.require_version("Gdk", "3.0")
gi.require_version("Gtk", "3.0")
from gi.repository import Gdk, Gtk  # noqa: E402

window = Gtk.Window(title="empty")
scrolled = Gtk.ScrolledWindow()
view = Gtk.TextView(wrap_mode=Gtk.WrapMode.WORD_CHAR, monospace=True)
scrolled.add(view)
window.add(scrolled)


def place(offset):
    buffer = view.get_buffer()
    box = view.get_iter_location(buffer.get_iter_at_offset(offset))
    x, y = view.buffer_to_window_coords(Gtk.TextWindowType.WIDGET, box.x, box.y)
    _, left, top = view.get_window(Gtk.TextWindowType.WIDGET).get_origin()
    return [left + x, top + y + box.height // 2]


def report():
    return reports.report(view.get_buffer().get_char_count(), scrolled.get_vadjustment().get_value(), place)


def pressed(_, event):
    held = [text for text, mask in (("Control", Gdk.ModifierType.CONTROL_MASK),
                                    ("Alt", Gdk.ModifierType.MOD1_MASK),
                                    ("Super", Gdk.ModifierType.MOD4_MASK)) if event.state & mask]
    return reports.pressed(Gdk.keyval_name(event.keyval), Gdk.keyval_to_unicode(event.keyval), held,
                       window.set_title, report)


window.connect("key-press-event", pressed)
window.connect("destroy", Gtk.main_quit)
window.show_all()
view.grab_focus()
Gtk.main()
