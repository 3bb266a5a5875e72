#!/usr/bin/python3
"""The desktop panel's side of the tray, on the session bus, for the end-to-end tests.

A panel that shows StatusNotifierItems runs two parts: the watcher
(org.kde.StatusNotifierWatcher), with which every item registers, and a host, which
registers with the watcher and shows the items. `watch` runs both in one process for a
whole test; the other commands are short clients of that watcher and of the items'
menus (com.canonical.dbusmenu), as the panel reads and clicks them.

    tray.py watch --ready FILE        run the watcher and a host until killed; FILE is
                                      written once both are on the bus; each change is
                                      one line on stdout: "registered SERVICE TIME" or
                                      "unregistered SERVICE TIME" (TIME: Unix seconds)
    tray.py items [--count N]         the registered items, one a line; with --count,
                                      first wait until exactly N are registered
    tray.py menu [--expect]           the one registered item's menu, one row a line:
                                      "LABEL | enabled" or "LABEL | disabled", then
                                      " | SHORTCUT" when the row shows one; "---" for a
                                      separator; "hidden" in place of the state for a row
                                      that is not shown; with --expect, first wait until
                                      the rows are those on stdin, one a line (shell
                                      wildcards allowed: "Recording ??:?? | disabled")
    tray.py click LABEL               click the row with that label (it must be shown
                                      and enabled)

The waits last --timeout seconds (10 by default); a command that fails
says on stderr what it expected and what it saw, and exits 1.
"""

import argparse
import fnmatch
import os
import sys
import time

import dbus
import dbus.service

WATCHER = "org.kde.StatusNotifierWatcher"
WATCHER_PATH = "/StatusNotifierWatcher"
ITEM = "org.kde.StatusNotifierItem"
ITEM_PATH = "/StatusNotifierItem"
MENU = "com.canonical.dbusmenu"
PROPERTIES = "org.freedesktop.DBus.Properties"
INTROSPECTABLE = "org.freedesktop.DBus.Introspectable"

# What the watcher declares of itself. Clients such as Qt's read the properties only
# when the introspection data names them.
WATCHER_XML = f"""<!DOCTYPE node PUBLIC "-//freedesktop//DTD D-BUS Object Introspection 1.0//EN"
 "http://www.freedesktop.org/standards/dbus/1.0/introspect.dtd">
<node>
  <interface name="{WATCHER}">
    <method name="RegisterStatusNotifierItem"><arg name="service" type="s" direction="in"/></method>
    <method name="RegisterStatusNotifierHost"><arg name="service" type="s" direction="in"/></method>
    <property name="RegisteredStatusNotifierItems" type="as" access="read"/>
    <property name="IsStatusNotifierHostRegistered" type="b" access="read"/>
    <property name="ProtocolVersion" type="i" access="read"/>
    <signal name="StatusNotifierItemRegistered"><arg type="s"/></signal>
    <signal name="StatusNotifierItemUnregistered"><arg type="s"/></signal>
    <signal name="StatusNotifierHostRegistered"/>
    <signal name="StatusNotifierHostUnregistered"/>
  </interface>
  <interface name="{PROPERTIES}">
    <method name="Get">
      <arg name="interface" type="s" direction="in"/><arg name="name" type="s" direction="in"/>
      <arg name="value" type="v" direction="out"/>
    </method>
    <method name="GetAll">
      <arg name="interface" type="s" direction="in"/>
      <arg name="properties" type="a{{sv}}" direction="out"/>
    </method>
    <method name="Set">
      <arg name="interface" type="s" direction="in"/><arg name="name" type="s" direction="in"/>
      <arg name="value" type="v" direction="in"/>
    </method>
    <signal name="PropertiesChanged">
      <arg type="s"/><arg type="a{{sv}}"/><arg type="as"/>
    </signal>
  </interface>
  <interface name="{INTROSPECTABLE}">
    <method name="Introspect"><arg name="xml" type="s" direction="out"/></method>
  </interface>
</node>
"""


class Failure(Exception):
    """What a command expected and what it saw."""


def say(line):
    print(line, flush=True)


class Watcher(dbus.service.Object):
    """org.kde.StatusNotifierWatcher: the list of items and hosts, each dropped when its
    service leaves the bus."""

    def __init__(self, bus):
        super().__init__(bus, WATCHER_PATH)
        self._bus = bus
        self.items = []
        self.hosts = []
        self._watches = {}

    # --- the watcher's interface ---

    @dbus.service.method(WATCHER, in_signature="s", sender_keyword="sender")
    def RegisterStatusNotifierItem(self, service, sender=None):
        # An item names its bus name, or only its object path on the caller's connection.
        item = sender + service if service.startswith("/") else str(service)
        if item in self.items:
            return
        self.items.append(item)
        self._follow(item.split("/", 1)[0], lambda: self._drop_item(item))
        self.StatusNotifierItemRegistered(item)
        self._changed("RegisteredStatusNotifierItems")
        say(f"registered {item} {time.time():.6f}")

    @dbus.service.method(WATCHER, in_signature="s", sender_keyword="sender")
    def RegisterStatusNotifierHost(self, service, sender=None):
        host = str(service) if service and not service.startswith("/") else str(sender)
        if host in self.hosts:
            return
        self.hosts.append(host)
        self._follow(host, lambda: self._drop_host(host))
        if len(self.hosts) == 1:
            self.StatusNotifierHostRegistered()
            self._changed("IsStatusNotifierHostRegistered")

    @dbus.service.signal(WATCHER, signature="s")
    def StatusNotifierItemRegistered(self, service):
        pass

    @dbus.service.signal(WATCHER, signature="s")
    def StatusNotifierItemUnregistered(self, service):
        pass

    @dbus.service.signal(WATCHER, signature="")
    def StatusNotifierHostRegistered(self):
        pass

    @dbus.service.signal(WATCHER, signature="")
    def StatusNotifierHostUnregistered(self):
        pass

    # --- properties and introspection ---

    def _properties(self):
        return {
            "RegisteredStatusNotifierItems": dbus.Array(self.items, signature="s"),
            "IsStatusNotifierHostRegistered": dbus.Boolean(bool(self.hosts)),
            "ProtocolVersion": dbus.Int32(0),
        }

    @dbus.service.method(PROPERTIES, in_signature="ss", out_signature="v")
    def Get(self, interface, name):
        properties = self._properties()
        if interface != WATCHER or name not in properties:
            raise dbus.exceptions.DBusException(
                f"no property {interface}.{name}",
                name="org.freedesktop.DBus.Error.UnknownProperty")
        return properties[name]

    @dbus.service.method(PROPERTIES, in_signature="s", out_signature="a{sv}")
    def GetAll(self, interface):
        return self._properties() if interface in (WATCHER, "") else {}

    @dbus.service.method(PROPERTIES, in_signature="ssv")
    def Set(self, interface, name, value):
        raise dbus.exceptions.DBusException(
            f"{interface}.{name} is read-only",
            name="org.freedesktop.DBus.Error.PropertyReadOnly")

    @dbus.service.signal(PROPERTIES, signature="sa{sv}as")
    def PropertiesChanged(self, interface, changed, invalidated):
        pass

    @dbus.service.method(INTROSPECTABLE, out_signature="s")
    def Introspect(self):
        return WATCHER_XML

    # --- bookkeeping ---

    def _changed(self, name):
        self.PropertiesChanged(WATCHER, {name: self._properties()[name]}, [])

    def _follow(self, bus_name, on_gone):
        """Calls on_gone once when bus_name has no owner any more."""
        def owner_changed(owner):
            if not owner and bus_name in self._watches:
                self._watches.pop(bus_name).cancel()
                on_gone()
        if bus_name not in self._watches:
            self._watches[bus_name] = self._bus.watch_name_owner(bus_name, owner_changed)

    def _drop_item(self, bus_name):
        for item in [i for i in self.items if i.split("/", 1)[0] == bus_name]:
            self.items.remove(item)
            self.StatusNotifierItemUnregistered(item)
            self._changed("RegisteredStatusNotifierItems")
            say(f"unregistered {item} {time.time():.6f}")

    def _drop_host(self, host):
        self.hosts.remove(host)
        if not self.hosts:
            self.StatusNotifierHostUnregistered()
            self._changed("IsStatusNotifierHostRegistered")


def watch(ready_file):
    """Runs the watcher and a host on the session bus until the process is killed."""
    from dbus.mainloop.glib import DBusGMainLoop
    from gi.repository import GLib

    DBusGMainLoop(set_as_default=True)
    bus = dbus.SessionBus()
    watcher = Watcher(bus)
    owner = dbus.service.BusName(WATCHER, bus, do_not_queue=True)
    host = dbus.service.BusName(f"org.kde.StatusNotifierHost-{os.getpid()}", bus)
    loop = GLib.MainLoop()

    def host_registered():
        with open(ready_file + ".new", "w") as ready:
            ready.write(f"{os.getpid()}\n")
        os.replace(ready_file + ".new", ready_file)

    def host_refused(error):
        print(f"the host was refused: {error}", file=sys.stderr)
        loop.quit()

    # The host registers through the bus, as a panel in another process would.
    bus.get_object(WATCHER, WATCHER_PATH).RegisterStatusNotifierHost(
        host.get_name(), dbus_interface=WATCHER,
        reply_handler=host_registered, error_handler=host_refused)
    keep = (watcher, owner, host)  # the objects live as long as the loop runs
    loop.run()
    del keep
    sys.exit(1)


# --- clients ---------------------------------------------------------------------


def eventually(timeout, probe):
    """Calls probe() until it returns a true value or timeout seconds pass; returns its
    last value."""
    deadline = time.monotonic() + timeout
    while True:
        value = probe()
        if value or time.monotonic() >= deadline:
            return value
        time.sleep(0.1)


def registered_items(bus):
    watcher = bus.get_object(WATCHER, WATCHER_PATH)
    return [str(item) for item in
            watcher.Get(WATCHER, "RegisteredStatusNotifierItems", dbus_interface=PROPERTIES)]


def wait_for_items(bus, count, timeout):
    items = eventually(timeout, lambda: (lambda seen: seen if len(seen) == count else None)(
        registered_items(bus)))
    if items is None:
        seen = registered_items(bus)
        raise Failure(f"expected {count} registered tray item(s) within {timeout:g} s, "
                      f"saw {len(seen)}: {seen}")
    return items


def item_menu(bus):
    """The dbusmenu object of the one registered item ("busname" or "busname/path")."""
    name, _, path = wait_for_items(bus, 1, 0)[0].partition("/")
    proxy = bus.get_object(name, "/" + path if path else ITEM_PATH)
    menu_path = proxy.Get(ITEM, "Menu", dbus_interface=PROPERTIES)
    return bus.get_object(name, menu_path)


def plain_label(label):
    """A dbusmenu label as shown: "_" marks the mnemonic, "__" is one underscore."""
    return "_".join(part.replace("_", "") for part in label.split("__"))


def menu_rows(menu):
    """The menu's rows, top level in order: dicts with id, label, type, enabled,
    visible and shortcut, defaults filled in as dbusmenu defines them."""
    _, (_, _, children) = menu.GetLayout(0, -1, dbus.Array([], signature="s"),
                                         dbus_interface=MENU)
    rows = []
    for child in children:
        row_id, properties, _ = child
        shortcut = properties.get("shortcut", [])
        rows.append({
            "id": int(row_id),
            "type": str(properties.get("type", "standard")),
            "label": plain_label(str(properties.get("label", ""))),
            "enabled": bool(properties.get("enabled", True)),
            "visible": bool(properties.get("visible", True)),
            "shortcut": ", ".join("+".join(str(key) for key in chord) for chord in shortcut),
        })
    return rows


def row_text(row):
    if row["type"] == "separator":
        return "---" if row["visible"] else "--- | hidden"
    state = "hidden" if not row["visible"] else "enabled" if row["enabled"] else "disabled"
    text = f"{row['label']} | {state}"
    return f"{text} | {row['shortcut']}" if row["shortcut"] else text


def shown_row(rows, label):
    return next((row for row in rows if row["label"] == label and row["visible"]), None)


def rows_match(lines, patterns):
    return len(lines) == len(patterns) and all(
        fnmatch.fnmatchcase(line, pattern) for line, pattern in zip(lines, patterns))


def show_menu(bus, expected, timeout):
    """Prints the menu's rows; with expected (row patterns), first waits until the menu
    is made of exactly those rows."""
    menu = item_menu(bus)
    lines = [row_text(row) for row in menu_rows(menu)]
    if expected is not None and not rows_match(lines, expected):
        lines = eventually(timeout, lambda: (lambda seen: seen if rows_match(seen, expected)
                                             else None)([row_text(r) for r in menu_rows(menu)]))
        if lines is None:
            seen = "\n".join(row_text(row) for row in menu_rows(menu))
            raise Failure(f"expected the tray menu to become, within {timeout:g} s:\n"
                          + "\n".join(expected) + f"\nsaw:\n{seen}")
    say("\n".join(lines))


def click(bus, label, timeout):
    menu = item_menu(bus)

    def clickable():
        row = shown_row(menu_rows(menu), label)
        return row if row and row["enabled"] else None

    row = eventually(timeout, clickable)
    if row is None:
        seen = "\n".join(row_text(row) for row in menu_rows(menu))
        raise Failure(f"expected a shown, enabled row “{label}” in the tray menu, saw:\n{seen}")
    menu.Event(dbus.Int32(row["id"]), "clicked", dbus.String("", variant_level=1),
               dbus.UInt32(int(time.time())), dbus_interface=MENU)


def main():
    common = argparse.ArgumentParser(add_help=False)
    common.add_argument("--timeout", type=float, default=10)
    parser = argparse.ArgumentParser(description=__doc__.split("\n\n")[0])
    commands = parser.add_subparsers(dest="command", required=True)
    commands.add_parser("watch", parents=[common]).add_argument("--ready", required=True)
    commands.add_parser("items", parents=[common]).add_argument("--count", type=int)
    menu_command = commands.add_parser("menu", parents=[common])
    menu_command.add_argument("--expect", action="store_true")
    click_command = commands.add_parser("click", parents=[common])
    click_command.add_argument("label")
    args = parser.parse_args()

    if args.command == "watch":
        watch(args.ready)
    bus = dbus.SessionBus()
    try:
        if args.command == "items":
            items = (wait_for_items(bus, args.count, args.timeout) if args.count is not None
                     else registered_items(bus))
            for item in items:
                say(item)
        elif args.command == "menu":
            expected = sys.stdin.read().splitlines() if args.expect else None
            show_menu(bus, expected, args.timeout)
        elif args.command == "click":
            click(bus, args.label, args.timeout)
    except (Failure, dbus.exceptions.DBusException) as error:
        print(f"tray.py {args.command}: {error}", file=sys.stderr)
        sys.exit(1)


if __name__ == "__main__":
    main()
