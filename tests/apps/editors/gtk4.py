"""A text area of GTK 4. What keys it reports by is in reports.py."""

import gi
import reports

gi.require_version("Gdk", "4.0")
gi.require_version("Gtk", "4.0")
from gi.repository import Gdk, GLib, Graphene, Gtk  # noqa: E402

Gtk.init()
window = Gtk.Window(title="empty", decorated=False)
view = Gtk.TextView(wrap_mode=Gtk.WrapMode.WORD_CHAR, monospace=True)
scrolled = Gtk.ScrolledWindow(child=view)
window.set_child(scrolled)


def place(offset):
    box = view.get_iter_location(view.get_buffer().get_iter_at_offset(offset))
    x, y = view.buffer_to_window_coords(Gtk.TextWindowType.WIDGET, box.x, box.y)
    _, point = view.compute_point(window, Graphene.Point().init(x, y))
    return [int(point.x), int(point.y) + box.height // 2]


def report():
    return reports.report(view.get_buffer().get_char_count(), scrolled.get_vadjustment().get_value(), place)


def pressed(_, keyval, __, state):
    held = [text for text, mask in (("Control", Gdk.ModifierType.CONTROL_MASK),
                                    ("Alt", Gdk.ModifierType.ALT_MASK),
                                    ("Super", Gdk.ModifierType.SUPER_MASK)) if state & mask]
    return reports.pressed(Gdk.keyval_name(keyval), Gdk.keyval_to_unicode(keyval), held, window.set_title,
                       report)


keys = Gtk.EventControllerKey(propagation_phase=Gtk.PropagationPhase.CAPTURE)
keys.connect("key-pressed", pressed)
window.add_controller(keys)
loop = GLib.MainLoop()
window.connect("close-request", lambda _: loop.quit())
window.maximize()
window.present()
view.grab_focus()
loop.run()
