#pragma once

// Where a cut-only export takes the source's packets from, piece by piece. Internal to
// the edit area; used by the one thread that exports.

#include "edit/SourceBytes.h"
#include "edit/SourceMovie.h"

#include <cstdint>
#include <memory>
#include <vector>

namespace lumenvale::edit {

class PacketSource {
  public:
    virtual ~PacketSource() = default;
    // Positions every stream before source time `ticks`: a sound stream on its last
    // packet that starts by then, the picture on its last keyframe by then (or each on
    // its first packet when none does).
    virtual void seek(std::int64_t ticks) = 0;
    // The next packet of the chosen streams in file order; false when none is left.
    // Throws MediaError when the file cannot be read.
    virtual bool next(AVPacket* packet) = 0;
};

// Reads packets with the demuxer: any container, any stream.
std::unique_ptr<PacketSource> demuxedPackets(SourceMovie& movie, const std::vector<int>& streams);

// Walks the movie's own sample index and gives each packet the stand-in of its bytes
// (SourceBytes), reading nothing. Null when the index cannot stand in for the demuxer:
// not an MPEG-4 / QuickTime file, an index that disagrees with the demuxer (fragments,
// trimming edit lists), or a picture with reordered frames.
std::unique_ptr<PacketSource> indexedPackets(SourceMovie& movie, const SourceBytes& bytes,
                                             const std::vector<int>& streams);

} // namespace lumenvale::edit
