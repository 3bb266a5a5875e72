#include "capture/XProperties.h"

#include <charconv>
#include <cmath>
#include <cstring>
#include <sstream>

namespace lumenvale::x11 {

xcb_get_property_cookie_t requestProperty(xcb_connection_t* connection, xcb_window_t window,
                                          xcb_atom_t property, std::uint32_t maxWords) {
    return xcb_get_property(connection, 0, window, property, XCB_GET_PROPERTY_TYPE_ANY, 0,
                            maxWords);
}

Reply<xcb_get_property_reply_t> propertyReply(xcb_connection_t* connection,
                                              xcb_get_property_cookie_t cookie) {
    return Reply<xcb_get_property_reply_t>{xcb_get_property_reply(connection, cookie, nullptr)};
}

std::vector<std::uint32_t> words(const xcb_get_property_reply_t* reply) {
    std::vector<std::uint32_t> values;
    if (reply == nullptr || reply->format != 32) {
        return values;
    }
    const auto count = static_cast<std::size_t>(xcb_get_property_value_length(reply)) / 4;
    values.resize(count);
    if (count > 0) {
        std::memcpy(values.data(), xcb_get_property_value(reply), count * 4);
    }
    return values;
}

std::optional<std::uint32_t> firstWord(const xcb_get_property_reply_t* reply) {
    if (reply == nullptr || reply->format != 32 || xcb_get_property_value_length(reply) < 4) {
        return std::nullopt;
    }
    std::uint32_t value = 0;
    std::memcpy(&value, xcb_get_property_value(reply), sizeof value);
    return value;
}

std::string text(const xcb_get_property_reply_t* reply) {
    if (reply == nullptr || reply->format != 8) {
        return {};
    }
    const auto* bytes = static_cast<const char*>(xcb_get_property_value(reply));
    std::string value(bytes, static_cast<std::size_t>(xcb_get_property_value_length(reply)));
    // Some clients include the terminating NUL.
    while (!value.empty() && value.back() == '\0') {
        value.pop_back();
    }
    return value;
}

bool exists(const xcb_get_property_reply_t* reply) {
    return reply != nullptr && reply->type != XCB_ATOM_NONE;
}

double desktopScale(const std::string& resources, std::optional<double> environmentFactor) {
    double scale = 1;
    std::istringstream lines(resources);
    std::string line;
    while (std::getline(lines, line)) {
        constexpr std::string_view key = "Xft.dpi:";
        if (line.compare(0, key.size(), key) != 0) {
            continue;
        }
        std::size_t start = key.size();
        while (start < line.size() && (line[start] == ' ' || line[start] == '\t')) {
            ++start;
        }
        double dpi = 0;
        const auto [end, error] =
            std::from_chars(line.data() + start, line.data() + line.size(), dpi);
        if (error == std::errc() && std::isfinite(dpi) && dpi > 0) {
            scale = dpi / 96;
        }
    }
    if (environmentFactor && std::isfinite(*environmentFactor) && *environmentFactor > 0) {
        scale *= *environmentFactor;
    }
    return scale;
}

} // namespace lumenvale::x11
