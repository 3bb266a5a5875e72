#pragma once

#include "LumenvaleKit/Codec.h"
#include "LumenvaleKit/Geometry.h"
#include "LumenvaleKit/RecordingOptions.h"
#include "recorder/RecorderTypes.h"

#include <QString>
#include <QStringList>
#include <cstdint>
#include <optional>
#include <string>
#include <variant>
#include <vector>

namespace lumenvale {

// `lumenvale record [--screen | --area X,Y,W,H | --window ID] [--seconds N] [--fps N]
//  [--codec h264|hevc] [--no-pointer] [--clicks] [--no-countdown] [--no-system-audio]
//  [--mic [SOURCE]] [--folder DIR]`, read into what this run records.
struct RecordRequest {
    RecordKind kind = RecordKind::screen;
    std::optional<Rect> areaTopLeft; // X11 coordinates: origin top-left, y down
    // Decimal or 0x-prefixed hexadecimal; none with --window pick (the desktop's
    // dialog picks the window).
    std::optional<std::uint32_t> windowID;
    std::optional<double> seconds; // recorded time after which the recording stops
    std::optional<std::int64_t> fps;
    std::optional<Codec> codec;
    bool hidePointer = false;
    bool showClicks = false;
    bool skipCountdown = false;
    bool skipSystemAudio = false;
    bool microphone = false;
    std::optional<std::string> microphoneSource;
    std::optional<std::string> folder; // absolute; the file system's bytes as given
};

struct HelpRequested {};

// The request, a request for help, or a sentence saying what is wrong.
using RecordParse = std::variant<RecordRequest, HelpRequested, QString>;

// `arguments` are the words after "record", as the process got them (bytes, not
// necessarily UTF-8: a folder is kept byte for byte). Relative folders are made
// absolute against the current directory.
RecordParse parseRecordArguments(const std::vector<std::string>& arguments);

// The stored options changed as the flags say, for this run only.
RecordingOptions applyFlags(RecordingOptions options, const RecordRequest& request);

} // namespace lumenvale
