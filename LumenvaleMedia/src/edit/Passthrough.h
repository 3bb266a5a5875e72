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
// encoded again; when those cannot match the source (a movie Lumenvale did not record,
// or one with B-frames) the whole picture is encoded with `codec` instead and
// `hooks.status` is told. Requires canCopySound(). Throws MediaError (also when the
// movie changed while it was copied); leaves nothing behind on failure.
std::filesystem::path exportCutOnly(SourceMovie& movie, const EditRenderer::Built& built,
                                    Codec codec, const EditRenderer::Destination& destination,
                                    const ExportHooks& hooks);

} // namespace lumenvale::edit
