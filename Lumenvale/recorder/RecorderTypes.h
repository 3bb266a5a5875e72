#pragma once

#include "LumenvaleKit/Geometry.h"

#include <QObject>
#include <cstdint>
#include <optional>
#include <string>

namespace lumenvale {

namespace RecordKinds {
Q_NAMESPACE
// What a recording shows: the whole display under the pointer, a dragged
// rectangle, or one window.
enum class RecordKind { screen, area, window };
Q_ENUM_NS(RecordKind)
} // namespace RecordKinds
using RecordKinds::RecordKind;

// One display as the recorder sees it. Rectangles are in desktop coordinates
// (points, origin at the bottom-left of the desktop, y up), as LumenvaleKit keeps them.
struct Screen {
    std::string id;    // the RandR output name, e.g. "screen" or "HDMI-1"
    Rect frame;        // the whole display
    Rect visibleFrame; // without panels and docks
    double scale = 1;  // pixels per point
    friend bool operator==(const Screen&, const Screen&) = default;
};

// What the user picked in the selection overlay: a rectangle for an area
// recording, or a window and its frame for a window recording (desktop coordinates).
struct Selection {
    Rect rect;
    std::optional<std::uint32_t> windowID;
};

} // namespace lumenvale
