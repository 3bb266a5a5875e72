#!/usr/bin/python3
"""A stand-in for the desktop portal's ScreenCast that shares single windows, for the
end-to-end tests.

The Wayland test desktop's portal (xdg-desktop-portal-wlr) shares only monitors, so
this one owns org.freedesktop.portal.Desktop on a test bus of its own and answers as
the portal documents it, offering monitors and windows. "The window the user picks"
is a GStreamer test source on the session's PipeWire: one solid colour of the size
given, published as a video source node. OpenPipeWireRemote hands over a connection
to PipeWire's socket. With persist_mode set, Start returns a restore token.

It says what it was asked on stdout, one line each:
    select types=N cursor_mode=N persist_mode=N restore_token=TOKEN
    closed PATH
The test closes the window by calling app.lumenvale.Test.CloseWindow(): the source
stops, and its stream ends.

    screencast_portal.py --ready FILE --size WxH --colour RRGGBB
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
SCREENCAST = "org.freedesktop.portal.ScreenCast"
MONITOR, WINDOW = 1, 2
NODE_NAME = "lumenvale-test-window"


def say(line):
    print(line, flush=True)


def handle(kind, sender, token):
    return f"{PATH}/{kind}/{sender[1:].replace('.', '_')}/{token}"


class Window:
    """The picked window: a solid colour published on PipeWire while it is open."""

    def __init__(self, width, height, colour):
        self.width, self.height = width, height
        self.process = subprocess.Popen([
            "gst-launch-1.0", "-q", "videotestsrc", "pattern=solid-color",
            f"foreground-color=0xff{colour}", "!",
            f"video/x-raw,format=BGRx,width={width},height={height},framerate=30/1", "!",
            "pipewiresink", "mode=provide", f"client-name={NODE_NAME}",
            f"stream-properties=props,node.name={NODE_NAME},media.class=Video/Source"])
        self.node = 0
        for _ in range(200):
            self.node = self.find_node()
            if self.node:
                return
            time.sleep(0.05)
        raise RuntimeError("the GStreamer window source did not appear on PipeWire")

    @staticmethod
    def find_node():
        listing = subprocess.run(["pw-cli", "ls", "Node"], capture_output=True,
                                 text=True).stdout
        at = listing.find(f'node.name = "{NODE_NAME}"')
        start = listing.rfind("\tid ", 0, at)
        if at < 0 or start < 0:
            return 0
        return int(listing[start + 4:listing.index(",", start)])

    def close(self):
        self.process.send_signal(signal.SIGINT)
        self.process.wait()


class Request(dbus.service.Object):
    @dbus.service.signal("org.freedesktop.portal.Request", signature="ua{sv}")
    def Response(self, response, results):
        pass


class Session(dbus.service.Object):
    def __init__(self, bus, path):
        super().__init__(bus, path)
        self.path = path

    @dbus.service.method("org.freedesktop.portal.Session")
    def Close(self):
        say(f"closed {self.path}")
        self.remove_from_connection()


class Portal(dbus.service.Object):
    def __init__(self, bus, window):
        super().__init__(bus, PATH)
        self.bus = bus
        self.window = window
        self.sessions = {}  # path -> the options of its SelectSources
        self.tokens = 0

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

    @dbus.service.method(SCREENCAST, in_signature="a{sv}", out_signature="o",
                         sender_keyword="sender")
    def CreateSession(self, options, sender=None):
        path = handle("session", sender, options["session_handle_token"])
        Session(self.bus, path)
        self.sessions[path] = {}
        return self.answer(sender, options, {"session_handle": dbus.String(path)})

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
        fd = dbus.types.UnixFd(remote.fileno())  # duplicated
        remote.close()
        return fd

    @dbus.service.method("org.freedesktop.DBus.Properties", in_signature="ss",
                         out_signature="v")
    def Get(self, interface, name):
        values = {"AvailableSourceTypes": dbus.UInt32(MONITOR | WINDOW),
                  "AvailableCursorModes": dbus.UInt32(1 | 2), "version": dbus.UInt32(4)}
        if interface == SCREENCAST and name in values:
            return values[name]
        raise dbus.exceptions.DBusException(
            f"no property {interface}.{name}",
            name="org.freedesktop.DBus.Error.UnknownProperty")

    @dbus.service.method("app.lumenvale.Test")
    def CloseWindow(self):
        self.window.close()


def main():
    parser = argparse.ArgumentParser(description=__doc__.split("\n\n")[0])
    parser.add_argument("--ready", required=True)
    parser.add_argument("--size", required=True)
    parser.add_argument("--colour", required=True)
    args = parser.parse_args()
    width, height = (int(side) for side in args.size.split("x"))
    window = Window(width, height, args.colour)
    dbus.mainloop.glib.DBusGMainLoop(set_as_default=True)
    bus = dbus.SessionBus()
    portal = Portal(bus, window)
    name = dbus.service.BusName(NAME, bus, do_not_queue=True)
    with open(args.ready, "w") as ready:
        ready.write("ready\n")
    try:
        GLib.MainLoop().run()
    finally:
        window.close()
    del portal, name


if __name__ == "__main__":
    sys.exit(main())
