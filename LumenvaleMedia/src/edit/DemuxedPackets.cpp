// Packets read by the demuxer.

#include "edit/PacketSource.h"

#include <algorithm>
#include <cstring>

namespace lumenvale::edit {
namespace {

class DemuxedPackets final : public PacketSource {
  public:
    DemuxedPackets(SourceMovie& movie, std::vector<int> streams)
        : movie_(movie), streams_(std::move(streams)) {}

    void seek(std::int64_t ticks) override {
        // MPEG-4 seeks each stream on its own samples: seeking by a sound stream lands
        // it on the packet before the target (the priming packet at the very start)
        // and the picture on the keyframe before that, where seeking by the picture
        // would land the sound on the keyframe's time. Other containers seek by the
        // picture's keyframes, which the cut needs first.
        std::vector<int> order = streams_;
        if (std::strstr(movie_.input->iformat->name, "mp4") != nullptr) {
            std::reverse(order.begin(), order.end());
        }
        for (const int stream : order) {
            const std::int64_t target =
                av_rescale_q(ticks, tickTimeBase, movie_.stream(stream)->time_base);
            if (av_seek_frame(movie_.input.get(), stream, target, AVSEEK_FLAG_BACKWARD) >= 0) {
                return;
            }
        }
        throw MediaError("The movie “" + movie_.path.filename().string() +
                         "” can’t be cut: it has no index of its frames.");
    }

    bool next(AVPacket* packet) override {
        while (true) {
            const int read = av_read_frame(movie_.input.get(), packet);
            if (read == AVERROR_EOF) {
                return false;
            }
            if (read == AVERROR_INVALIDDATA) {
                throw damagedMovie(movie_.path);
            }
            ff::check(read, "Couldn’t read the movie “" + movie_.path.filename().string() + "”");
            if (std::find(streams_.begin(), streams_.end(), packet->stream_index) !=
                streams_.end()) {
                return true;
            }
            av_packet_unref(packet);
        }
    }

  private:
    SourceMovie& movie_;
    std::vector<int> streams_;
};

} // namespace

std::unique_ptr<PacketSource> demuxedPackets(SourceMovie& movie, const std::vector<int>& streams) {
    return std::make_unique<DemuxedPackets>(movie, streams);
}

} // namespace lumenvale::edit
