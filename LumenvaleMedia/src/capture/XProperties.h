#pragma once

// Reading window properties: request now, decode the reply later, so that many
// reads share one round trip. Internal to LumenvaleMedia.

#include "capture/XcbHandles.h"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace lumenvale::x11 {

// Requests up to `maxWords` 32-bit words of `property` of any type.
xcb_get_property_cookie_t requestProperty(xcb_connection_t* connection, xcb_window_t window,
                                          xcb_atom_t property, std::uint32_t maxWords = 1024);
Reply<xcb_get_property_reply_t> propertyReply(xcb_connection_t* connection,
                                              xcb_get_property_cookie_t cookie);

// The 32-bit values of a reply (CARDINAL, WINDOW, ATOM lists); empty when absent
// or of another format.
std::vector<std::uint32_t> words(const xcb_get_property_reply_t* reply);
std::optional<std::uint32_t> firstWord(const xcb_get_property_reply_t* reply);
// The bytes of an 8-bit property (a string); empty when absent.
std::string text(const xcb_get_property_reply_t* reply);
// True when the property exists at all.
bool exists(const xcb_get_property_reply_t* reply);

// The scale that the toolkit applies to this desktop: Xft.dpi / 96 from the
// resources text (RESOURCE_MANAGER), times `environmentFactor` (QT_SCALE_FACTOR).
// 1 when the resources say nothing usable.
double desktopScale(const std::string& resources, std::optional<double> environmentFactor);

} // namespace lumenvale::x11
