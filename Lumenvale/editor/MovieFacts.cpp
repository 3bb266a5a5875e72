#include "editor/MovieFacts.h"

#include "LumenvaleMedia/EditRenderer.h"
#include "LumenvaleMedia/MediaError.h"

#include <algorithm>

namespace lumenvale {
namespace {

// Longer than any recording: resolving one clip this long against the movie keeps
// every track whole, so the plan shows where each track ends.
constexpr double openEndedSeconds = 1e7;

} // namespace

MovieFacts readMovieFacts(const std::filesystem::path& movie) {
    const EditRenderer::Built plan = EditRenderer::build(movie, EditDecision(openEndedSeconds));

    MovieFacts facts;
    bool hasVideo = false;
    for (const auto& track : plan.tracks) {
        hasVideo = hasVideo || track.kind == EditRenderer::TrackKind::video;
        for (const auto& segment : track.segments) {
            facts.durationSeconds = std::max(facts.durationSeconds, segment.sourceEnd);
        }
    }
    if (!hasVideo || !(facts.durationSeconds > 0)) {
        throw MediaError(RecError::nothingRecorded);
    }
    facts.videoSize = plan.videoSize;
    facts.audioTracks = plan.audioTracks;
    for (const auto& track : plan.tracks) {
        if (track.kind == EditRenderer::TrackKind::audio && !track.isMix) {
            facts.audioTrackNames.push_back(track.name.empty()
                                                ? "Audio Track " + std::to_string(track.sourceTrack)
                                                : track.name);
        }
    }
    return facts;
}

} // namespace lumenvale
