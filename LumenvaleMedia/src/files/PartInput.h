#pragma once

// One input of a join: a part file (or any movie) opened for stream copy, with what
// the container lists about it and a packet reader that keeps everything up to a
// cut-off end. Internal to the recording-files area.

#include "ffmpeg/Handles.h"

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace lumenvale::files {

// Threads: one thread at a time. Owns its demuxer.
class PartInput {
  public:
    // Opens `path` as untrusted input (ff::openInput). Throws MediaError when it is
    // missing, unreadable or not a movie.
    explicit PartInput(std::filesystem::path path);

    const std::filesystem::path& path() const { return path_; }
    AVFormatContext& format() const { return *input_; }

    // The first video stream (nullptr when there is none) and the audio streams in
    // file order: the streams a join copies. Cover pictures and data are left out.
    AVStream* video() const { return video_; }
    const std::vector<AVStream*>& audio() const { return audio_; }
    // The stream whose duration is the part's: the video, else the first audio.
    AVStream* timing() const {
        return video_ != nullptr ? video_ : (audio_.empty() ? nullptr : audio_[0]);
    }

    // The part's duration in seconds as its container lists it (of the timing stream);
    // 0 when it lists nothing to play.
    double listedSeconds() const;
    // Where the timing stream starts, in its time base, as listed.
    std::int64_t listedStart() const;
    // How many samples the container lists for the copied streams, when it lists
    // them all up front (MPEG-4 does, also for fragments); an upper bound of what can
    // be read from a cut-off file.
    std::optional<std::int64_t> listedSamples() const;

    // A container tag ("lumenvale_part", ...), when present.
    std::optional<std::string> tag(const char* key) const;

    // Reads the next packet of a copied stream. False at the end of what can be read:
    // the regular end, or a damaged or cut-off tail (a packet cut short by the end of
    // the file is dropped). Throws MediaError when reading fails for another reason
    // (an I/O error), so nothing is lost silently.
    bool next(AVPacket& packet);

  private:
    std::filesystem::path path_;
    ff::InputContext input_;
    AVStream* video_ = nullptr;
    std::vector<AVStream*> audio_;
    std::vector<bool> copied_; // by stream index
    std::vector<bool> cutOff_; // by stream index: a packet was cut short
};

} // namespace lumenvale::files
