#pragma once

// Posters of movies already open. Internal to the recording-files area.

#include "LumenvaleMedia/Image.h"
#include "ffmpeg/Handles.h"

#include <optional>

namespace lumenvale::files {

// The poster of `movie` (see RecordingFiles::poster), from a demuxer that is already
// open, so it can be taken while the file is still being synced or renamed. Never
// throws. Threads: any one thread; it takes over the demuxer.
std::optional<Image> posterOf(ff::InputContext movie, double durationSeconds);

} // namespace lumenvale::files
