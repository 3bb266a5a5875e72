#!/usr/bin/python3
"""A stand-in for desktop portals that the test desktop's own lacks, for the end-to-end
tests. It owns org.freedesktop.portal.Desktop on a test bus of its own and answers as
the portal documents it: each request returns its object, whose Response follows.

--shortcuts: GlobalShortcuts (Debian 12's xdg-desktop-portal has none). Says
"session PATH", "bound ID=TRIGGER ..." (the preferred triggers, in the order given)
and "closed PATH" on stdout. app.lumenvale.Test.Press(ID) emits Activated for each
open session that bound that id.

--window WxH:RRGGBB: ScreenCast offering monitors and windows
(xdg-desktop-portal-wlr shares monitors only). "The window the user picks" is a
GStreamer test source of that size and colour on the session's PipeWire;
OpenPipeWireRemote hands over a connection to PipeWire's socket, and Start returns a
restore token when persist_mode is set. Says "select types=N cursor_mode=N
persist_mode=N restore_token=TOKEN" for each SelectSources.
app.lumenvale.Test.SetCursorModes(N) changes the cursor modes offered (hidden 1,
embedded 2, metadata 4; 3 at first); CancelNextChoice() has the next Start answer as a
user who cancelled; CloseWindow() stops the source, which ends its stream.

    portal_standin.py --ready FILE (--shortcuts | --window WxH:RRGGBB)
"""

import argparse
import os
import signal
import socket
import subprocess
import sys
import time

import dbus
import dbus.mainloop.glib
import dbus.service
from gi.repository import GLib

NAME = "org.freedesktop.portal.Desktop"
PATH = "/org/freedesktop/portal/desktop"
SHORTCUTS = "org.freedesktop.portal.GlobalShortcuts"
SCREENCAST = "org.freedesktop.portal.ScreenCast"
MONITOR, WINDOW = 1, 2
NODE_NAME = "lumenvale-test-window"


def say(line):
    print(line, flush=True)


def handle(kind, sender, token):
    return f"{PATH}/{kind}/{sender[1:].replace('.', '_')}/{token}"


class Window:
    """The picked window: a solid colour published on PipeWire while it is open."""

    def __init__(self, spec):
        size, colour = spec.split(":")
        self.width, self.height = (int(side) for side in size.split("x"))
        self.process = subprocess.Popen([
            "gst-launch-1.0", "-q", "videotestsrc", "pattern=solid-color",
            f"foreground-color=0xff{colour}", "!",
            f"video/x-raw,format=BGRx,width={self.width},height={self.height},framerate=30/1",
            "!", "pipewiresink", "mode=provide", f"client-name={NODE_NAME}",
            f"stream-properties=props,node.name={NODE_NAME},media.class=Video/Source"])
        for _ in range(200):
            listing = subprocess.run(["pw-cli", "ls", "Node"], capture_output=True,
                                     text=True).stdout
            at = listing.find(f'node.name = "{NODE_NAME}"')
            start = listing.rfind("\tid ", 0, at)  # each object opens with "\tid N,"
            if at >= 0 and start >= 0:
                self.node = int(listing[start + 4:listing.index(",", start)])
                return
            time.sleep(0.05)
        raise RuntimeError("the GStreamer window source did not appear on PipeWire")

    def close(self):
        if self.process.poll() is None:
            self.process.send_signal(signal.SIGINT)
            self.process.wait()


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
    """What both stand-ins share: requests, sessions and properties."""

    properties = {}

    def __init__(self, bus):
        super().__init__(bus, PATH)
        self.bus = bus
        self.sessions = {}  # path -> what the session holds

    def answer(self, sender, options, results, response=0):
        """A request object whose Response (0: granted, 1: cancelled) follows once the
        call has returned."""
        path = handle("request", sender, options["handle_token"])
        request = Request(self.bus, path)

        def respond():
            request.Response(dbus.UInt32(response), dbus.Dictionary(results, signature="sv"))
            request.remove_from_connection()
            return False

        GLib.idle_add(respond)
        return dbus.ObjectPath(path)

    def create_session(self, sender, options, empty):
        path = handle("session", sender, options["session_handle_token"])
        Session(self.bus, path, self.sessions)
        self.sessions[path] = empty
        return path, self.answer(sender, options, {"session_handle": dbus.String(path)})

    @dbus.service.method("org.freedesktop.DBus.Properties", in_signature="ss",
                         out_signature="v")
    def Get(self, interface, name):
        if (interface, name) in self.properties:
            return self.properties[(interface, name)]
        raise dbus.exceptions.DBusException(
            f"no property {interface}.{name}",
            name="org.freedesktop.DBus.Error.UnknownProperty")


class Shortcuts(Portal):
    properties = {(SHORTCUTS, "version"): dbus.UInt32(1)}

    @dbus.service.method(SHORTCUTS, in_signature="a{sv}", out_signature="o",
                         sender_keyword="sender")
    def CreateSession(self, options, sender=None):
        path, request = self.create_session(sender, options, [])
        say(f"session {path}")
        return request

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

    @dbus.service.method("app.lumenvale.Test", in_signature="s")
    def Press(self, shortcut_id):
        for path, ids in list(self.sessions.items()):
            if shortcut_id in ids:
                self.Activated(dbus.ObjectPath(path), shortcut_id, dbus.UInt64(0),
                               dbus.Dictionary({}, signature="sv"))


class ScreenCast(Portal):
    properties = {(SCREENCAST, "AvailableSourceTypes"): dbus.UInt32(MONITOR | WINDOW),
                  (SCREENCAST, "AvailableCursorModes"): dbus.UInt32(1 | 2),
                  (SCREENCAST, "version"): dbus.UInt32(4)}

    def __init__(self, bus, window):
        super().__init__(bus)
        self.window = window
        self.tokens = 0
        self.cancel_next = False

    @dbus.service.method(SCREENCAST, in_signature="a{sv}", out_signature="o",
                         sender_keyword="sender")
    def CreateSession(self, options, sender=None):
        return self.create_session(sender, options, {})[1]

    @dbus.service.method(SCREENCAST, in_signature="oa{sv}", out_signature="o",
                         sender_keyword="sender")
    def SelectSources(self, session, options, sender=None):
        self.sessions[str(session)] = dict(options)
        say("select " + " ".join(f"{key}={options.get(key, '')}" for key in
                                 ("types", "cursor_mode", "persist_mode", "restore_token")))
        return self.answer(sender, options, {})

    @dbus.service.method(SCREENCAST, in_signature="osa{sv}", out_signature="o",
                         sender_keyword="sender")
    def Start(self, session, parent_window, options, sender=None):
        selected = self.sessions[str(session)]
        if self.cancel_next:
            self.cancel_next = False
            return self.answer(sender, options, {}, response=1)
        if selected.get("types", MONITOR) != WINDOW:
            raise dbus.exceptions.DBusException(
                "this stand-in shares only its window", name="org.freedesktop.portal.Error.Failed")
        stream = dbus.Struct((dbus.UInt32(self.window.node), dbus.Dictionary({
            "size": dbus.Struct((dbus.Int32(self.window.width), dbus.Int32(self.window.height))),
            "source_type": dbus.UInt32(WINDOW)}, signature="sv")))
        results = {"streams": dbus.Array([stream], signature="(ua{sv})")}
        if selected.get("persist_mode"):
            self.tokens += 1
            results["restore_token"] = dbus.String(f"window-token-{self.tokens}")
        return self.answer(sender, options, results)

    @dbus.service.method(SCREENCAST, in_signature="oa{sv}", out_signature="h")
    def OpenPipeWireRemote(self, session, options):
        remote = socket.socket(socket.AF_UNIX, socket.SOCK_STREAM)
        remote.connect(os.path.join(os.environ["XDG_RUNTIME_DIR"], "pipewire-0"))
        fd = dbus.types.UnixFd(remote.fileno())  # a duplicate
        remote.close()
        return fd

    @dbus.service.method("app.lumenvale.Test", in_signature="u")
    def SetCursorModes(self, modes):
        self.properties = dict(self.properties)
        self.properties[(SCREENCAST, "AvailableCursorModes")] = dbus.UInt32(modes)

    @dbus.service.method("app.lumenvale.Test")
    def CancelNextChoice(self):
        self.cancel_next = True

    @dbus.service.method("app.lumenvale.Test")
    def CloseWindow(self):
        self.window.close()


def main():
    parser = argparse.ArgumentParser(description=__doc__.split("\n\n")[0])
    parser.add_argument("--ready", required=True)
    kind = parser.add_mutually_exclusive_group(required=True)
    kind.add_argument("--shortcuts", action="store_true")
    kind.add_argument("--window")
    args = parser.parse_args()
    window = Window(args.window) if args.window else None
    dbus.mainloop.glib.DBusGMainLoop(set_as_default=True)
    bus = dbus.SessionBus()
    portal = ScreenCast(bus, window) if window else Shortcuts(bus)
    name = dbus.service.BusName(NAME, bus, do_not_queue=True)
    with open(args.ready, "w") as ready:
        ready.write("ready\n")
    try:
        GLib.MainLoop().run()
    finally:
        if window:
            window.close()
    del portal, name


if __name__ == "__main__":
    sys.exit(main())
