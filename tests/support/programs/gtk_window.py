#!/usr/bin/python3
"""nimbrale_gtk_window: a window that draws its own decoration, as GTK's do, with a menu and a tooltip, and notifications.

Led by lines on standard input; each is answered with "ok", a value behind it where there is one, or "no" and a reason.
    show X Y WIDTH HEIGHT    shows the window there, in root pixels
    menu                     the center of the button that opens the menu, in root pixels
    tooltip                  the center of the label that has a tooltip, in root pixels
    identifier               the window's X identifier
    notify TITLE             has the session's service show a notification that stays: its number
    dismiss NUMBER           has the service take it away
    quit
"""

import sys

import gi

gi.require_version("Gdk", "3.0")
gi.require_version("GdkX11", "3.0")
gi.require_version("Gtk", "3.0")
from gi.repository import Gdk, GdkX11, Gio, GLib, Gtk  # noqa: E402,F401


class GtkWindow:
    def __init__(self):
        self.window = Gtk.Window()
        header = Gtk.HeaderBar(title="A window with a header bar", show_close_button=True)
        menu = Gtk.Menu()
        for text in ("First entry", "Second entry", "Third entry"):
            menu.append(Gtk.MenuItem(label=text))
        menu.show_all()
        self.button = Gtk.MenuButton(label="Menu", use_popover=False, popup=menu)
        header.pack_start(self.button)
        self.label = Gtk.Label(label="With a tooltip", tooltip_text="What a tooltip says", expand=True)
        # A label has no window of its own, and the pointer is told to windows.
        self.box = Gtk.EventBox()
        self.box.add(self.label)
        self.window.set_titlebar(header)
        self.window.add(self.box)

    def show(self, left, top, width, height):
        scale = self.window.get_scale_factor()
        self.window.move(int(left) // scale, int(top) // scale)
        self.window.set_default_size(int(width) // scale, int(height) // scale)
        self.window.show_all()

    def menu(self):
        return self.center(self.button)

    def tooltip(self):
        return self.center(self.label)

    def identifier(self):
        return str(self.window.get_window().get_xid())

    def center(self, widget):
        area = widget.get_allocation()
        _, left, top = self.window.get_window().get_origin()
        # The allocation counts from the window's edge, and the shadow around it is part of that.
        x, y = widget.translate_coordinates(self.window, area.width // 2, area.height // 2)
        scale = self.window.get_scale_factor()
        return f"{(left + x) * scale} {(top + y) * scale}"

    def notify(self, title):
        # An urgent one stays until it is dismissed.
        hints = {"urgency": GLib.Variant("y", 2)}
        answer = self.notifications(
            "Notify",
            GLib.Variant("(susssasa{sv}i)", ("nimbrale-test", 0, "", title, "What it says", [], hints, 0)),
        )
        return str(answer.unpack()[0])

    def dismiss(self, number):
        self.notifications("CloseNotification", GLib.Variant("(u)", (int(number),)))

    @staticmethod
    def notifications(method, arguments):
        bus = Gio.bus_get_sync(Gio.BusType.SESSION)
        name = "org.freedesktop.Notifications"
        path = "/org/freedesktop/Notifications"
        return bus.call_sync(name, path, name, method, arguments, None, Gio.DBusCallFlags.NONE, 10000)

    def obey(self, line):
        command, *arguments = line.split()
        try:
            value = getattr(self, command)(*arguments)
        except (AttributeError, TypeError, ValueError, GLib.Error) as error:
            return f"no {error}"
        return f"ok {value}" if value else "ok"


def main():
    commands = GtkWindow()

    def read(_channel, condition):
        line = sys.stdin.readline()
        if not line or line.strip() == "quit":
            Gtk.main_quit()
            return False
        print(commands.obey(line), flush=True)
        return True

    GLib.io_add_watch(GLib.IOChannel.unix_new(sys.stdin.fileno()), GLib.IO_IN | GLib.IO_HUP, read)
    Gtk.main()


main()
