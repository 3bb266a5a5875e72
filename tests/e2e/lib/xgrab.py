#!/usr/bin/python3
"""Key grabs on the root window, as another X client makes them (libX11 through ctypes).

    xgrab.py hold KEYCODE MODIFIERS READY   grab the key with exactly these modifiers,
                                            create the file READY, and hold the grab
                                            until killed; exits 1 when refused
    xgrab.py held KEYCODE MODIFIERS         wait (up to 30 s) until some client holds
                                            that grab: trying it is refused; exits 1
                                            when none does by then

MODIFIERS is the X mask: Shift 1, Control 4, Mod1 8, Mod2 (Num Lock) 16, Mod4 64.
"""

import ctypes
import signal
import sys
import time

x = ctypes.CDLL("libX11.so.6")
x.XOpenDisplay.restype = ctypes.c_void_p
x.XOpenDisplay.argtypes = [ctypes.c_char_p]
x.XDefaultRootWindow.restype = ctypes.c_ulong
x.XDefaultRootWindow.argtypes = [ctypes.c_void_p]
x.XGrabKey.argtypes = [ctypes.c_void_p, ctypes.c_int, ctypes.c_uint, ctypes.c_ulong,
                       ctypes.c_int, ctypes.c_int, ctypes.c_int]
x.XUngrabKey.argtypes = [ctypes.c_void_p, ctypes.c_int, ctypes.c_uint, ctypes.c_ulong]
x.XSync.argtypes = [ctypes.c_void_p, ctypes.c_int]

refused = []
# BadAccess arrives through the error handler; any error counts as refused.
on_error = ctypes.CFUNCTYPE(ctypes.c_int, ctypes.c_void_p, ctypes.c_void_p)(
    lambda display, error: refused.append(1) or 0)
x.XSetErrorHandler(on_error)
display = x.XOpenDisplay(None)
root = x.XDefaultRootWindow(display)


def grab(key, modifiers):
    """True when the grab was taken."""
    refused.clear()
    x.XGrabKey(display, key, modifiers, root, 0, 1, 1)
    x.XSync(display, 0)
    return not refused


def main():
    command, key, modifiers = sys.argv[1], int(sys.argv[2]), int(sys.argv[3])
    if command == "hold":
        if not grab(key, modifiers):
            sys.exit("the grab was refused")
        open(sys.argv[4], "w").close()
        signal.pause()
    for _ in range(600):
        if not grab(key, modifiers):
            sys.exit(0)
        x.XUngrabKey(display, key, modifiers, root)
        x.XSync(display, 0)
        time.sleep(0.05)
    sys.exit(1)


main()
