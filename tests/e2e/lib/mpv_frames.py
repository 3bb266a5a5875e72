#!/usr/bin/env python3
"""Plays a movie through libmpv (the library the editor's preview uses) with its image
output, which writes every frame it shows as a PNG into a folder, and prints the
folder's path once the movie has ended; exits non-zero when mpv reports an error.

    mpv_frames.py MOVIE FOLDER
"""
import ctypes
import sys

END_FILE = 7
SHUTDOWN = 1


class Event(ctypes.Structure):
    _fields_ = [("event_id", ctypes.c_int), ("error", ctypes.c_int),
                ("reply_userdata", ctypes.c_uint64), ("data", ctypes.c_void_p)]


class EndFile(ctypes.Structure):
    _fields_ = [("reason", ctypes.c_int), ("error", ctypes.c_int)]


def main():
    movie, folder = sys.argv[1], sys.argv[2]
    mpv = ctypes.CDLL("libmpv.so.2")
    mpv.mpv_create.restype = ctypes.c_void_p
    mpv.mpv_set_option_string.argtypes = [ctypes.c_void_p, ctypes.c_char_p, ctypes.c_char_p]
    mpv.mpv_initialize.argtypes = [ctypes.c_void_p]
    mpv.mpv_command.argtypes = [ctypes.c_void_p, ctypes.POINTER(ctypes.c_char_p)]
    mpv.mpv_wait_event.argtypes = [ctypes.c_void_p, ctypes.c_double]
    mpv.mpv_wait_event.restype = ctypes.POINTER(Event)
    mpv.mpv_terminate_destroy.argtypes = [ctypes.c_void_p]
    handle = mpv.mpv_create()
    # Every frame, as fast as it decodes, none dropped; no sound device, no config.
    for name, value in [("config", "no"), ("terminal", "no"), ("vo", "image"),
                        ("vo-image-format", "png"), ("vo-image-outdir", folder), ("ao", "null"),
                        ("audio", "no"), ("untimed", "yes"), ("framedrop", "no"),
                        ("hwdec", "no")]:
        mpv.mpv_set_option_string(handle, name.encode(), value.encode())
    if mpv.mpv_initialize(handle) < 0:
        sys.exit("libmpv could not start")
    command = (ctypes.c_char_p * 3)(b"loadfile", movie.encode(), None)
    mpv.mpv_command(handle, command)
    status = 1
    while True:
        event = mpv.mpv_wait_event(handle, 60).contents
        if event.event_id == END_FILE:
            ended = ctypes.cast(event.data, ctypes.POINTER(EndFile)).contents
            status = 0 if ended.reason == 0 else 1  # 0: reached the end
            break
        if event.event_id in (SHUTDOWN, 0):  # 0: nothing within the time limit
            break
    mpv.mpv_terminate_destroy(handle)
    print(folder)
    sys.exit(status)


if __name__ == "__main__":
    main()
