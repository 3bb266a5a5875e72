#!/usr/bin/python3
"""Lumenvale's windows as a screen reader's user meets them, over AT-SPI.

Objects are found by accessible name (and role), among the shown objects of the
application's shown windows, in reading order. Controls are operated the way such a
user does: a screen reader invokes a control's "Press" (or "Toggle") action, or
moves the keyboard focus to it (AT-SPI Component.grabFocus) and the user presses
keys (xdotool, into the window, which is made the active one first).

    atspi.py exists [NAME]          wait until NAME (or, with only --window, the
                                    window) is shown
    atspi.py absent [NAME]          wait until it is not shown any more
    atspi.py press NAME             invoke NAME's Press (or Toggle) action
    atspi.py keys [--to NAME] KEY...
                                    focus NAME (or only activate --window) and press
                                    the keys, each as xdotool names it ("ctrl+w")
    atspi.py read NAME [--following ROLE] [--field name|description|text] [--expect TEXT]
                                    print NAME's name, description or text (what a
                                    text field holds); --following:
                                    of the first shown ROLE object after NAME;
                                    --expect: wait until it is TEXT
    atspi.py where NAME             print NAME's middle and size on the screen: X Y W H
    atspi.py state NAME STATE --expect yes|no
                                    wait until NAME has (or lacks) the state, e.g.
                                    "checked"

Every command takes --window TITLE (only that window), --role ROLE (e.g. "push
button", "page tab", "check box", "label") and --timeout SECONDS (10 by default). A
command that fails says on stderr what it expected and what it saw, and exits 1. The
session must run the accessibility bus, and the application
QT_LINUX_ACCESSIBILITY_ALWAYS_ON=1.
"""

import argparse
import re
import subprocess
import sys
import time

import pyatspi

APPLICATION = "Lumenvale"


class Failure(Exception):
    """What a command expected and what it saw."""


def eventually(timeout, probe):
    """Calls probe() until it returns a true value or timeout seconds pass; returns its
    last value. An object that goes away while it is read counts as not there yet."""
    deadline = time.monotonic() + timeout
    while True:
        try:
            value = probe()
        except Exception:  # a window that closes while it is read
            value = None
        if value or time.monotonic() >= deadline:
            return value
        time.sleep(0.1)


def shown(accessible):
    return accessible.getState().contains(pyatspi.STATE_SHOWING)


def windows(title=None):
    """The application's shown windows (with that title), read afresh."""
    desktop = pyatspi.Registry.getDesktop(0)
    desktop.clear_cache()
    for application in desktop:
        if application is None or application.name != APPLICATION:
            continue
        for window in application:
            if window is not None and shown(window) and title in (None, window.name):
                yield window


def reading_order(node):
    """The shown objects under node, depth first."""
    for child in node:
        if child is not None and shown(child):
            yield child
            yield from reading_order(child)


def describe(name, role, window):
    what = f"a shown {role or 'object'}"
    what += f" “{name}”" if name is not None else ""
    return what + (f" in “{window}”" if window else "")


def seen(role, window):
    """What the application shows, for a failure message."""
    try:
        lines = []
        for frame in windows(window):
            names = [f"{child.getRoleName()} “{child.name}”" for child in reading_order(frame)
                     if role in (None, child.getRoleName())]
            lines.append(f"  window “{frame.name}”: " + (", ".join(names) or "nothing"))
        return "\n".join(lines) or "  no shown window"
    except Exception as error:  # the tree changed while it was read
        return f"  (the tree could not be read: {error})"


def lookup(name, role, window, following=None):
    """(window, object) for the first shown match, or None. Without a name, the window
    itself; with following, the first shown object of that role after the match."""
    for frame in windows(window):
        if name is None:
            return frame, frame
        found = False
        for node in reading_order(frame):
            if found and node.getRoleName() == following:
                return frame, node
            if not found and node.name == name and role in (None, node.getRoleName()):
                if following is None:
                    return frame, node
                found = True
    return None


def find(name, role=None, window=None, timeout=10, following=None):
    hit = eventually(timeout, lambda: lookup(name, role, window, following))
    if hit is None:
        what = describe(name, role, window)
        if following:
            what = f"a shown {following} after {what}"
        raise Failure(f"expected {what} within {timeout:g} s, saw:\n{seen(role, window)}")
    return hit


def xdotool(*args):
    return subprocess.run(["xdotool", *args], check=True, capture_output=True,
                          text=True).stdout.strip()


def activate(title, timeout):
    """Makes the window with that title the active X window (keys go there)."""
    pattern = "^" + re.sub(r"([][.()*+?{}|^$\\])", r"\\\1", title) + "$"

    def active():
        ids = xdotool("search", "--onlyvisible", "--name", pattern).split()
        if ids:
            subprocess.run(["xdotool", "windowactivate", "--sync", ids[0]],
                           capture_output=True, timeout=5)
        return xdotool("getactivewindow", "getwindowname") == title

    if not eventually(timeout, active):
        raise Failure(f"expected the window “{title}” to become the active window, "
                      f"saw “{xdotool('getactivewindow', 'getwindowname')}” active")


def focus(name, role, window, timeout):
    """Activates the window of NAME and moves the keyboard focus to NAME."""
    frame, target = find(name, role, window, timeout)
    activate(frame.name, timeout)

    def focused():
        _, again = lookup(name, role, frame.name)
        if again.getState().contains(pyatspi.STATE_FOCUSED):
            return True
        again.queryComponent().grabFocus()
        return False

    if not eventually(timeout, focused):
        raise Failure(f"expected {describe(name, role, frame.name)} to take the keyboard "
                      f"focus, saw its states: {states_text(target)}")


def states_text(accessible):
    return ", ".join(pyatspi.stateToString(s) for s in accessible.getState().getStates())


# --- commands --------------------------------------------------------------------


def exists(args):
    find(args.name, args.role, args.window, args.timeout)


def absent(args):
    if eventually(args.timeout, lambda: lookup(args.name, args.role, args.window) is None) \
            is not True:
        raise Failure(f"expected no more {describe(args.name, args.role, args.window)} "
                      f"within {args.timeout:g} s, saw:\n{seen(args.role, args.window)}")


def press(args):
    _, target = find(args.name, args.role, args.window, args.timeout)
    action = target.queryAction()
    names = [action.getName(i).lower() for i in range(action.nActions)]
    for wanted in ("press", "toggle"):
        if wanted in names:
            action.doAction(names.index(wanted))
            return
    raise Failure(f"expected {describe(args.name, args.role, args.window)} to offer a "
                  f"Press or Toggle action, saw: {', '.join(names) or 'none'}")


def keys(args):
    if args.to is not None:
        focus(args.to, args.role, args.window, args.timeout)
    elif args.window is not None:
        activate(args.window, args.timeout)
    else:
        raise Failure("keys needs --to NAME or --window TITLE")
    xdotool("key", *args.keys)


def read(args):
    def value():
        hit = lookup(args.name, args.role, args.window, args.following)
        if hit is None:
            return None
        if args.field == "text":
            text = hit[1].queryText()
            return text.getText(0, text.characterCount)
        return hit[1].description if args.field == "description" else hit[1].name

    if args.expect is None:
        find(args.name, args.role, args.window, args.timeout, args.following)
        print(value())
        return
    if eventually(args.timeout, lambda: value() == args.expect) is not True:
        what = f"the {args.field} of " + (f"the {args.following} after "
                                          if args.following else "")
        now = eventually(0, value)
        raise Failure(f"expected {what}{describe(args.name, args.role, args.window)} to be "
                      f"“{args.expect}” within {args.timeout:g} s, saw "
                      + (f"“{now}”" if now is not None
                         else f"no such object:\n{seen(args.role, args.window)}"))


def where(args):
    _, target = find(args.name, args.role, args.window, args.timeout)
    extents = target.queryComponent().getExtents(pyatspi.DESKTOP_COORDS)
    print(extents.x + extents.width // 2, extents.y + extents.height // 2, extents.width,
          extents.height)


def state(args):
    wanted = getattr(pyatspi, "STATE_" + args.state.upper().replace(" ", "_"))
    expect = args.expect == "yes"

    def settled():
        hit = lookup(args.name, args.role, args.window)
        return hit is not None and hit[1].getState().contains(wanted) == expect

    if eventually(args.timeout, settled) is not True:
        hit = eventually(0, lambda: lookup(args.name, args.role, args.window))
        raise Failure(f"expected {describe(args.name, args.role, args.window)} "
                      f"{'with' if expect else 'without'} the state {args.state} within "
                      f"{args.timeout:g} s, saw: "
                      + (states_text(hit[1]) if hit else "no such object"))


def main():
    common = argparse.ArgumentParser(add_help=False)
    common.add_argument("--window")
    common.add_argument("--role")
    common.add_argument("--timeout", type=float, default=10)
    parser = argparse.ArgumentParser(description=__doc__.split("\n\n")[0])
    commands = parser.add_subparsers(dest="command", required=True)
    for command in (exists, absent):
        sub = commands.add_parser(command.__name__, parents=[common])
        sub.add_argument("name", nargs="?")
        sub.set_defaults(run=command)
    for command in (press, where):
        sub = commands.add_parser(command.__name__, parents=[common])
        sub.add_argument("name")
        sub.set_defaults(run=command)
    sub = commands.add_parser("keys", parents=[common])
    sub.add_argument("--to")
    sub.add_argument("keys", nargs="+")
    sub.set_defaults(run=keys)
    sub = commands.add_parser("read", parents=[common])
    sub.add_argument("name")
    sub.add_argument("--following")
    sub.add_argument("--field", choices=("name", "description", "text"), default="name")
    sub.add_argument("--expect")
    sub.set_defaults(run=read)
    sub = commands.add_parser("state", parents=[common])
    sub.add_argument("name")
    sub.add_argument("state")
    sub.add_argument("--expect", choices=("yes", "no"), required=True)
    sub.set_defaults(run=state)
    args = parser.parse_args()
    try:
        args.run(args)
    except (Failure, subprocess.CalledProcessError) as error:
        detail = error.stderr.strip() if isinstance(error, subprocess.CalledProcessError) else ""
        print(f"atspi.py {args.command}: {error} {detail}".rstrip(), file=sys.stderr)
        sys.exit(1)


if __name__ == "__main__":
    main()
