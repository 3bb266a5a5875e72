#include "gui/editor/MpvPreviewPlan.h"

#include <algorithm>
#include <charconv>
#include <map>
#include <vector>

namespace lumenvale {
namespace {

using EditRenderer::Built;
using EditRenderer::TrackKind;
using EditRenderer::TrackPlan;

// Numbers as mpv reads them whatever the process's locale: a point, no exponent.
std::string decimal(double value) {
    char text[64];
    const auto written =
        std::to_chars(text, text + sizeof text, value, std::chars_format::fixed, 6);
    return {text, written.ptr};
}

// An EDL value of any bytes: the length-prefixed form needs no escaping.
std::string edlValue(const std::string& bytes) {
    return "%" + std::to_string(bytes.size()) + "%" + bytes;
}

struct Range {
    double start = 0;
    double end = 0;
};

// The kept range of each clip: the span its tracks take from the source. Every track
// keeps its place within a clip, so the span is the clip's part inside the movie.
std::vector<Range> keptRanges(const Built& built) {
    std::map<std::size_t, Range> byClip;
    for (const TrackPlan& track : built.tracks) {
        for (const auto& segment : track.segments) {
            auto [found, added] = byClip.try_emplace(segment.clipIndex,
                                                     Range{segment.sourceStart, segment.sourceEnd});
            if (!added) {
                found->second.start = std::min(found->second.start, segment.sourceStart);
                found->second.end = std::max(found->second.end, segment.sourceEnd);
            }
        }
    }
    std::vector<Range> ranges;
    for (const auto& [clip, range] : byClip) {
        ranges.push_back(range);
    }
    return ranges;
}

// A track on both channels: a mono track's one channel goes to left and right at full
// level, a stereo track passes through.
constexpr const char* onBothChannels = "pan=stereo|FL=FL+FC|FR=FR+FC";

std::string audioGraph(const Built& built) {
    bool hasMix = false;
    std::vector<std::pair<int, double>> sources; // mpv audio track id, gain
    int audioID = 0;
    for (const TrackPlan& track : built.tracks) {
        if (track.kind != TrackKind::audio) {
            continue;
        }
        ++audioID;
        if (track.isMix) {
            hasMix = true;
        } else if (!track.segments.empty()) {
            sources.emplace_back(audioID, track.gain);
        }
    }
    if (sources.empty()) {
        return {};
    }
    const auto input = [](int id, double gain) {
        return "[aid" + std::to_string(id) + "]volume=" + decimal(gain);
    };
    if (!hasMix) {
        return input(sources.front().first, sources.front().second) + "[ao]";
    }
    std::string graph;
    std::string inputs;
    for (const auto& [id, gain] : sources) {
        const std::string label = "[s" + std::to_string(id) + "]";
        graph += input(id, gain) + "," + onBothChannels + label + ";";
        inputs += label;
    }
    return graph + inputs + "amix=inputs=" + std::to_string(sources.size()) +
           ":normalize=0,asoftclip=type=hard[ao]";
}

} // namespace

MpvPreviewPlan planPreview(const Built& built) {
    MpvPreviewPlan plan;
    const std::string file = edlValue(built.source.string());
    plan.url = "edl://";
    for (const Range& range : keptRanges(built)) {
        if (plan.url.size() > 6) {
            plan.url += ";";
        }
        plan.url +=
            file + ",start=" + decimal(range.start) + ",length=" + decimal(range.end - range.start);
    }
    plan.speed = built.edit.speed;
    if (built.edit.crop) {
        const Rect pixels = EditDecision::cropPixels(*built.edit.crop, built.videoSize);
        plan.videoFilter = "crop=w=" + decimal(pixels.width) + ":h=" + decimal(pixels.height) +
                           ":x=" + decimal(pixels.x) + ":y=" + decimal(pixels.y) + ":exact=1";
    }
    plan.audioGraph = audioGraph(built);
    plan.outputDurationSeconds = built.outputDurationSeconds;
    return plan;
}

} // namespace lumenvale
