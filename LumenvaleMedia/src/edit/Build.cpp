// Resolving an edit against a real movie: which stretch of which track goes where.

#include "LumenvaleKit/Checked.h"
#include "edit/SourceMovie.h"

#include <algorithm>
#include <cmath>

namespace lumenvale::edit {
namespace {

using EditRenderer::Built;
using EditRenderer::Segment;
using EditRenderer::TrackKind;
using EditRenderer::TrackPlan;

double nominalFrameRate(const AVStream* stream) {
    AVRational rate = stream->avg_frame_rate;
    if (rate.num <= 0 || rate.den <= 0) {
        rate = stream->r_frame_rate;
    }
    double perSecond = rate.num > 0 && rate.den > 0 ? av_q2d(rate) : 0;
    if (const std::optional<double> grid = frameGridRate(stream); grid && *grid > perSecond) {
        perSecond = *grid;
    }
    // Rounded to a whole rate, halves away from zero; 30 when there is none.
    const double rounded = std::round(perSecond);
    return rounded > 0 ? rounded : 30;
}

struct TickRange {
    std::int64_t start = 0;
    std::int64_t end = 0;
    bool empty() const { return end <= start; }
};

TickRange intersect(TickRange a, TickRange b) {
    return {std::max(a.start, b.start), std::min(a.end, b.end)};
}

double seconds(std::int64_t ticks) {
    return static_cast<double>(ticks) / static_cast<double>(ticksPerSecond);
}

TrackPlan planFor(int streamIndex, TrackKind kind) {
    TrackPlan plan;
    plan.kind = kind;
    plan.streamIndex = streamIndex;
    return plan;
}

} // namespace

Built resolveEdit(const SourceMovie& movie, const EditDecision& edit) {
    // Before any of the edit's values is converted.
    if (std::optional<std::string> problem = edit.problem()) {
        throw MediaError("The edit can’t be used: " + *problem);
    }
    Built built;
    built.source = movie.path;
    built.edit = edit;

    const AVStream* video = movie.stream(movie.videoStream);
    if (video->codecpar->width <= 0 || video->codecpar->height <= 0) {
        throw damagedMovie(movie.path);
    }
    built.videoSize = {video->codecpar->width, video->codecpar->height};
    built.outputSize = built.videoSize;
    if (edit.crop) {
        const Rect pixels = EditDecision::cropPixels(*edit.crop, built.videoSize);
        built.outputSize = {checkedTruncate(pixels.width, "crop width"),
                            checkedTruncate(pixels.height, "crop height")};
    }
    built.frameRate = nominalFrameRate(video);

    // Video first, then the audio tracks in file order; the source tracks that are
    // not a mix are numbered from 1, as the edit's volumes count them.
    built.tracks.push_back(planFor(movie.videoStream, TrackKind::video));
    int sourceTrack = 0;
    for (const int index : movie.audioStreams) {
        TrackPlan plan = planFor(index, TrackKind::audio);
        plan.isMix = isMixTrack(movie.stream(index));
        plan.name = trackName(movie.stream(index));
        plan.sourceTrack = plan.isMix ? 0 : ++sourceTrack;
        plan.gain = plan.isMix ? 1 : edit.volume(plan.sourceTrack);
        built.tracks.push_back(plan);
    }
    built.audioTracks = sourceTrack;

    std::vector<TickRange> trackTicks;
    TickRange movieTicks{INT64_MAX, INT64_MIN};
    for (const TrackPlan& plan : built.tracks) {
        const TimeRange range = trackRange(movie, plan.streamIndex);
        if (!(std::abs(range.start) <= maxEditSeconds && std::abs(range.end) <= maxEditSeconds)) {
            throw damagedMovie(movie.path); // times no movie has
        }
        const TickRange ticks{toTicks(range.start), toTicks(range.end)};
        trackTicks.push_back(ticks);
        if (!ticks.empty()) {
            movieTicks.start = std::min(movieTicks.start, ticks.start);
            movieTicks.end = std::max(movieTicks.end, ticks.end);
        }
    }
    if (movieTicks.empty() || trackTicks.front().empty()) {
        throw MediaError(RecError::nothingRecorded);
    }

    // Each clip takes the place of the part of it that the movie has; within that
    // place every track contributes what it covers, at the matching offset.
    std::int64_t cursor = 0;
    bool anything = false;
    for (std::size_t clipIndex = 0; clipIndex < edit.clips.size(); ++clipIndex) {
        const Clip& clip = edit.clips[clipIndex];
        const TickRange kept = intersect({toTicks(clip.start), toTicks(clip.end)}, movieTicks);
        if (kept.empty()) {
            continue;
        }
        for (std::size_t track = 0; track < built.tracks.size(); ++track) {
            const TickRange part = intersect(kept, trackTicks[track]);
            if (part.empty()) {
                continue;
            }
            built.tracks[track].segments.push_back(
                Segment{seconds(part.start), seconds(part.end),
                        seconds(cursor + (part.start - kept.start)), clipIndex});
            anything = true;
        }
        cursor += kept.end - kept.start;
    }
    if (!anything) {
        throw MediaError(edit.clips.empty() ? "The edit keeps nothing of the movie."
                                            : "The edit reaches past the end of the movie.");
    }
    built.outputDurationSeconds = seconds(cursor) / edit.speed;
    if (built.outputDurationSeconds > maxOutputSeconds) {
        throw MediaError("The edited movie would last longer than a day.");
    }
    if (built.outputDurationSeconds < 1 / built.frameRate) {
        throw MediaError("The edited movie would be shorter than one frame.");
    }
    return built;
}

} // namespace lumenvale::edit

namespace lumenvale {

EditRenderer::Built EditRenderer::build(const std::filesystem::path& source,
                                        const EditDecision& edit) {
    const edit::SourceMovie movie = edit::openSourceMovie(source);
    return edit::resolveEdit(movie, edit);
}

} // namespace lumenvale
