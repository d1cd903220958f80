#!/usr/bin/python3
# A GTK 3 text view for the end-to-end tests: a target that takes keys and pastes as GTK does.
# Its text is written to OUT at every change (whole, then renamed into place); a line on standard
# input says what to do: "clear" empties the view, "present" brings the window forward.
import os
import sys

import gi

gi.require_version("Gtk", "3.0")
from gi.repository import GLib, Gtk  # noqa: E402

title, out = sys.argv[1], sys.argv[2]

window = Gtk.Window(title=title)
window.set_default_size(600, 300)
view = Gtk.TextView()
window.add(view)
text = view.get_buffer()


def write(*_):
    content = text.get_text(text.get_start_iter(), text.get_end_iter(), True)
    with open(out + ".part", "w", encoding="utf-8") as file:
        file.write(content)
    os.replace(out + ".part", out)


def command(source, condition):
    line = sys.stdin.readline()
    if not line:
        Gtk.main_quit()
        return False
    line = line.strip()
    if line == "clear":
        text.set_text("")
        write()
    elif line == "present":
        window.present_with_time(Gtk.get_current_event_time())
    return True


text.connect("changed", write)
GLib.io_add_watch(sys.stdin, GLib.IO_IN | GLib.IO_HUP, command)
window.connect("destroy", Gtk.main_quit)
window.show_all()
view.grab_focus()
write()
Gtk.main()
