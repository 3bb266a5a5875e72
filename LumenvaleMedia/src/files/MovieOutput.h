#pragma once

// The muxer of a joined movie: an MPEG-4 with the first part's tracks (their tags,
// names and dispositions), its index reserved at the front when the parts list their
// samples, written into a MovieFile. Internal to the recording-files area.

#include "files/Joiner.h"

#include <optional>
#include <vector>

namespace lumenvale::files {

// One output stream and the time base its packets are computed in before they are
// handed to the muxer (the first part's stream's).
struct Track {
    AVStream* out = nullptr;
    AVRational workBase{1, 1};
};

// Threads: one thread at a time.
class MovieOutput {
  public:
    // Creates the tracks from the first of `parts` and writes the header. Throws
    // MediaError (nothingRecorded when the first part has neither video nor audio).
    MovieOutput(const std::vector<std::unique_ptr<PartInput>>& parts, MovieFile& file,
                MoovPlacement placement);

    const std::optional<Track>& video() const { return video_; }
    const std::vector<Track>& audio() const { return audio_; }

    // Hands a packet (times in the track's work time base) to the muxer. Packets go in
    // the parts' own interleaving (about a second of each track at a time), so no
    // reordering queue is needed. A packet whose bytes were not read (listed by its
    // part: null data) is copied file to file from `part`.
    void write(AVPacket& packet, const Track& track, const PartInput& part);

    // Writes the index. Throws MediaError, or ReservedSpaceTooSmall.
    void finish();

  private:
    struct Deleter {
        void operator()(AVFormatContext* context) const;
    };

    Track addTrack(const AVStream& in);
    int reservedMoovBytes(const std::vector<std::unique_ptr<PartInput>>& parts) const;
    // Throws the file's own sentence when the failure was writing to the disk.
    void throwIfFileFailed() const;

    MovieFile& file_;
    std::unique_ptr<AVFormatContext, Deleter> output_;
    std::optional<Track> video_;
    std::vector<Track> audio_;
    int reservedBytes_ = 0;
    bool isLumenvalePart_ = false;
};

} // namespace lumenvale::files
