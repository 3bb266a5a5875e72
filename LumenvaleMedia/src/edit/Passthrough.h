#pragma once

// The cut-only export: an edit that only cuts is written by copying the source's
// packets (see VideoCut and AudioCut for the cut rules). Internal to the edit area;
// runs on the worker thread that exports.

#include "LumenvaleKit/Codec.h"
#include "LumenvaleMedia/EditRenderer.h"
#include "edit/SourceMovie.h"

#include <atomic>
#include <filesystem>

namespace lumenvale::edit {

struct ExportHooks {
    const EditRenderer::Progress& progress;
    const std::atomic<bool>* cancel = nullptr;
    const EditRenderer::StatusText& status;
};

// True when every kept audio track can be copied into MPEG-4 packet by packet (AAC).
bool canCopySound(const SourceMovie& movie, const EditRenderer::Built& built);

// Writes `built` (a cut-only edit of `movie`) to `destination` and returns the path
// written. The picture is copied, with only the frames from a cut to the next keyframe
// (and, with B-frames, those before an end that need a frame after it) encoded again:
// with the source's parameter sets when an encoder can reproduce them (Lumenvale's
// recordings; movies whose encoder wrote its settings into them), else with their own
// in the samples. When neither can be done (another codec, another picture format)
// the whole picture is encoded with `codec` instead and `hooks.status` is told why. Requires
// canCopySound(). Throws MediaError (also when the movie changed while it was copied); leaves
// nothing behind on failure.
std::filesystem::path exportCutOnly(SourceMovie& movie, const EditRenderer::Built& built,
                                    Codec codec, const EditRenderer::Destination& destination,
                                    const ExportHooks& hooks);

} // namespace lumenvale::edit
