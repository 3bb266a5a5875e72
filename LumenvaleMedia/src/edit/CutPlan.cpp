#include "edit/CutPlan.h"

#include <algorithm>
#include <limits>
#include <numeric>

namespace lumenvale::edit {
namespace {

bool continues(const std::optional<Place>& before, const std::optional<Place>& after) {
    if (!before || !after) {
        return !before && !after;
    }
    return after->sourceStart == before->sourceEnd && after->outputStart == before->outputEnd();
}

} // namespace

std::vector<Piece> piecesOf(const EditRenderer::Built& built) {
    const std::size_t trackCount = built.tracks.size();
    // Pieces by clip index first; a clip that left nothing in any track has none.
    std::vector<Piece> byClip(built.edit.clips.size(),
                              Piece{std::vector<std::optional<Place>>(trackCount)});
    std::vector<bool> used(byClip.size(), false);
    for (std::size_t track = 0; track < trackCount; ++track) {
        for (const auto& segment : built.tracks[track].segments) {
            if (segment.clipIndex >= byClip.size()) {
                continue;
            }
            byClip[segment.clipIndex].tracks[track] =
                Place{toTicks(segment.sourceStart), toTicks(segment.sourceEnd),
                      toTicks(segment.outputStart)};
            used[segment.clipIndex] = true;
        }
    }
    std::vector<Piece> pieces;
    for (std::size_t clip = 0; clip < byClip.size(); ++clip) {
        if (!used[clip]) {
            continue;
        }
        Piece& next = byClip[clip];
        if (!pieces.empty()) {
            Piece& last = pieces.back();
            bool joins = true;
            for (std::size_t track = 0; track < trackCount && joins; ++track) {
                joins = continues(last.tracks[track], next.tracks[track]);
            }
            if (joins) {
                for (std::size_t track = 0; track < trackCount; ++track) {
                    if (last.tracks[track]) {
                        last.tracks[track]->sourceEnd = next.tracks[track]->sourceEnd;
                    }
                }
                continue;
            }
        }
        pieces.push_back(std::move(next));
    }
    return pieces;
}

AVRational exactTimeBase(AVRational streamTimeBase) {
    AVRational reduced = streamTimeBase;
    av_reduce(&reduced.num, &reduced.den, streamTimeBase.num, streamTimeBase.den,
              std::numeric_limits<int>::max());
    if (reduced.den > 0) {
        const std::int64_t common = std::lcm<std::int64_t>(ticksPerSecond, reduced.den);
        if (common <= std::numeric_limits<int>::max() / 4) {
            return {1, static_cast<int>(common)};
        }
    }
    return {1, 90000};
}

} // namespace lumenvale::edit
