#pragma once

#include "LumenvaleKit/Codec.h"
#include "LumenvaleKit/Geometry.h"
#include "LumenvaleKit/Result.h"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace lumenvale {

// How the next recording is made; persisted as JSON under "options".
// Default-constructed, it holds the defaults.
struct RecordingOptions {
    std::int64_t fps = 30;
    Codec codec = Codec::h264;
    bool showsPointer = true;
    bool showsClicks = false;
    bool countdown = true;
    bool systemAudio = true;
    bool microphone = false;
    std::optional<std::string> microphoneID; // source name; absent = default source
    bool camera = false;
    double bubbleDiameter = 200;           // points
    std::optional<Rect> bubbleFrame;       // points, desktop coordinates
    std::optional<std::string> folderPath; // absent = default save folder

    friend bool operator==(const RecordingOptions&, const RecordingOptions&) = default;
};

// The JSON object with one key per field, in field order; absent optionals
// are left out; "bubbleFrame" as [[x, y], [width, height]].
std::string encode(const RecordingOptions& options);

// Starts from the defaults; every key is read if present (missing or null keeps
// the default). A wrong type or an unknown codec fails the whole decoding: "fps" must
// be an integer (a whole float such as 30.0 counts, 29.97 does not), "bubbleDiameter"
// any number, the Booleans true or false. Values are not range-checked. Never throws.
// A non-finite "bubbleDiameter" is written as null, which reads back as the default.
Result<RecordingOptions> decodeRecordingOptions(std::string_view json);

} // namespace lumenvale
