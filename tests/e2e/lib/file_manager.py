#!/usr/bin/python3
"""A file manager as far as Lumenvale's "Show in Folder" sees one: it owns
org.freedesktop.FileManager1 on the session bus and writes each ShowItems call's
URIs, one a line, to LOG. READY is created once the name is owned.

    file_manager.py LOG READY
"""

import sys

import dbus
import dbus.service
from dbus.mainloop.glib import DBusGMainLoop
from gi.repository import GLib

NAME = "org.freedesktop.FileManager1"


class FileManager(dbus.service.Object):
    def __init__(self, bus, log):
        super().__init__(bus, "/org/freedesktop/FileManager1")
        self.log = log

    @dbus.service.method(NAME, in_signature="ass", out_signature="")
    def ShowItems(self, uris, startup_id):
        with open(self.log, "a") as log:
            for uri in uris:
                log.write(uri + "\n")


def main():
    log, ready = sys.argv[1:3]
    DBusGMainLoop(set_as_default=True)
    bus = dbus.SessionBus()
    keep = dbus.service.BusName(NAME, bus, do_not_queue=True)
    manager = FileManager(bus, log)
    open(ready, "w").close()
    GLib.MainLoop().run()
    del keep, manager


if __name__ == "__main__":
    main()
