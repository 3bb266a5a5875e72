#pragma once

// The two X-Resource requests Lumenvale needs, spoken directly (the system has no
// xcb binding for the extension): its version, and the process behind each client.
// The server learns a local client's process from the socket itself, so this names
// a process's windows even when they carry no _NET_WM_PID. Internal to LumenvaleMedia.

#include <cstdint>
#include <vector>
#include <xcb/xcb.h>
#include <xcb/xcbext.h>

namespace lumenvale::x11 {

extern xcb_extension_t xresExtension;

// Sends QueryVersion; returns the request's sequence number.
unsigned int requestXResVersion(xcb_connection_t* connection);
// Waits for the QueryVersion reply: true when the server speaks 1.2 or later.
bool xresVersionAtLeast12(xcb_connection_t* connection, unsigned int sequence);

// The resource-id bases (the client part of every id the client makes) of all
// connections that the server knows to come from process `pid` on this machine.
// Empty when the server cannot tell. One round trip.
std::vector<std::uint32_t> clientBasesOfProcess(xcb_connection_t* connection, std::uint32_t pid);

} // namespace lumenvale::x11
