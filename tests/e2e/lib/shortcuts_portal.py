#!/usr/bin/python3
"""A stand-in for the desktop portal's GlobalShortcuts, for the end-to-end tests.

Debian 12's xdg-desktop-portal has no GlobalShortcuts, so this one owns
org.freedesktop.portal.Desktop on a test bus of its own and answers as the portal
documents it: CreateSession and BindShortcuts return a request whose Response follows,
Session.Close ends a session, and the "version" property reads 1. It says what it was
asked on stdout, one line each: "session PATH", "bound ID=TRIGGER ..." (the preferred
triggers, in the order given) and "closed PATH". The test presses a shortcut by calling
app.lumenvale.Test.Press(ID) on it: it emits Activated for each open session that
bound that id.

    shortcuts_portal.py --ready FILE    serve until killed; FILE is written once the
                                        name is owned
"""

import argparse
import sys

import dbus
import dbus.mainloop.glib
import dbus.service
from gi.repository import GLib

NAME = "org.freedesktop.portal.Desktop"
PATH = "/org/freedesktop/portal/desktop"
SHORTCUTS = "org.freedesktop.portal.GlobalShortcuts"


def say(line):
    print(line, flush=True)


def handle(kind, sender, token):
    return f"{PATH}/{kind}/{sender[1:].replace('.', '_')}/{token}"


class Request(dbus.service.Object):
    @dbus.service.signal("org.freedesktop.portal.Request", signature="ua{sv}")
    def Response(self, response, results):
        pass


class Session(dbus.service.Object):
    def __init__(self, bus, path, sessions):
        super().__init__(bus, path)
        self.path = path
        self.sessions = sessions

    @dbus.service.method("org.freedesktop.portal.Session")
    def Close(self):
        self.sessions.pop(self.path, None)
        say(f"closed {self.path}")
        self.remove_from_connection()


class Portal(dbus.service.Object):
    def __init__(self, bus):
        super().__init__(bus, PATH)
        self.bus = bus
        self.sessions = {}  # path -> the shortcut ids bound

    def answer(self, sender, options, results):
        """A request object whose Response follows once the call has returned."""
        path = handle("request", sender, options["handle_token"])
        request = Request(self.bus, path)

        def respond():
            request.Response(dbus.UInt32(0), dbus.Dictionary(results, signature="sv"))
            request.remove_from_connection()
            return False

        GLib.idle_add(respond)
        return dbus.ObjectPath(path)

    @dbus.service.method(SHORTCUTS, in_signature="a{sv}", out_signature="o",
                         sender_keyword="sender")
    def CreateSession(self, options, sender=None):
        path = handle("session", sender, options["session_handle_token"])
        Session(self.bus, path, self.sessions)
        self.sessions[path] = []
        say(f"session {path}")
        return self.answer(sender, options, {"session_handle": dbus.String(path)})

    @dbus.service.method(SHORTCUTS, in_signature="oa(sa{sv})sa{sv}", out_signature="o",
                         sender_keyword="sender")
    def BindShortcuts(self, session, shortcuts, parent_window, options, sender=None):
        if str(session) not in self.sessions:
            raise dbus.exceptions.DBusException(
                "no such session", name="org.freedesktop.portal.Error.NotFound")
        self.sessions[str(session)] = [str(id) for id, _ in shortcuts]
        say("bound " + " ".join(f"{id}={properties.get('preferred_trigger', '')}"
                                for id, properties in shortcuts))
        bound = dbus.Array([dbus.Struct((id, dbus.Dictionary(
            {"description": properties.get("description", ""),
             "trigger_description": properties.get("preferred_trigger", "")},
            signature="sv"))) for id, properties in shortcuts], signature="(sa{sv})")
        return self.answer(sender, options, {"shortcuts": bound})

    @dbus.service.signal(SHORTCUTS, signature="osta{sv}")
    def Activated(self, session, shortcut_id, timestamp, options):
        pass

    @dbus.service.method("org.freedesktop.DBus.Properties", in_signature="ss",
                         out_signature="v")
    def Get(self, interface, name):
        if interface == SHORTCUTS and name == "version":
            return dbus.UInt32(1)
        raise dbus.exceptions.DBusException(
            f"no property {interface}.{name}",
            name="org.freedesktop.DBus.Error.UnknownProperty")

    @dbus.service.method("app.lumenvale.Test", in_signature="s")
    def Press(self, shortcut_id):
        for path, ids in list(self.sessions.items()):
            if shortcut_id in ids:
                self.Activated(dbus.ObjectPath(path), shortcut_id, dbus.UInt64(0),
                               dbus.Dictionary({}, signature="sv"))


def main():
    parser = argparse.ArgumentParser(description=__doc__.split("\n\n")[0])
    parser.add_argument("--ready", required=True)
    args = parser.parse_args()
    dbus.mainloop.glib.DBusGMainLoop(set_as_default=True)
    bus = dbus.SessionBus()
    portal = Portal(bus)
    name = dbus.service.BusName(NAME, bus, do_not_queue=True)
    with open(args.ready, "w") as ready:
        ready.write("ready\n")
    GLib.MainLoop().run()
    del portal, name


if __name__ == "__main__":
    sys.exit(main())
