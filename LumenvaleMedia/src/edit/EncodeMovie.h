#pragma once

// The export that encodes the whole edit again: speed, crop, gains, and movies whose
// packets cannot be copied. Internal to the edit area; runs on the worker thread that
// exports.

#include "LumenvaleKit/Codec.h"
#include "LumenvaleMedia/EditRenderer.h"

#include <atomic>
#include <filesystem>

namespace lumenvale::edit {

// Writes `built` (resolved from `source`) to `destination` as an MPEG-4 movie with
// its video in `codec`, and returns the path written. Throws MediaError and leaves
// nothing behind on failure; `cancel` (optional) stops it early with a MediaError.
std::filesystem::path encodeMovie(const EditRenderer::Built& built,
                                  const std::filesystem::path& source, Codec codec,
                                  const EditRenderer::Destination& destination,
                                  const EditRenderer::Progress& progress,
                                  const std::atomic<bool>* cancel);

} // namespace lumenvale::edit
