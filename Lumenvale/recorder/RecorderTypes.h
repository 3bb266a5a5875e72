#pragma once

#include "LumenvaleKit/Geometry.h"
#include "desktop/Screens.h"

#include <QObject>
#include <cstdint>
#include <optional>

namespace lumenvale {

namespace RecordKinds {
Q_NAMESPACE
// What a recording shows: the whole display under the pointer, a dragged
// rectangle, or one window.
enum class RecordKind { screen, area, window };
Q_ENUM_NS(RecordKind)
} // namespace RecordKinds
using RecordKinds::RecordKind;

// What the user picked in the selection overlay: a rectangle for an area
// recording, or a window and its frame for a window recording (desktop coordinates).
struct Selection {
    Rect rect;
    std::optional<std::uint32_t> windowID;
};

} // namespace lumenvale
