#include "edit/GifFramePicker.h"

#include <cmath>
#include <limits>

namespace lumenvale::edit {
namespace {

// Without an index, a time this far ahead of the frames decoded is sought.
constexpr double seekDistanceSeconds = 4;
// With one, a keyframe at least this far ahead of the frames decoded is sought.
constexpr double skipWorthSeconds = 1;

} // namespace

GifFramePicker::GifFramePicker(SourceMovie& movie)
    : movie_(movie), stream_(movie.stream(movie.videoStream)),
      decoder_(stream_, movie.path.filename().string()), packet_(ff::makePacket()) {}

double GifFramePicker::startOf(const ff::Frame& frame) const {
    return ff::seconds(frame->pts, stream_->time_base);
}

bool GifFramePicker::decodeNext() {
    while (decoded_.empty() && !ended_) {
        const int read = av_read_frame(movie_.input.get(), packet_.get());
        const auto keep = [this](AVFrame* frame) {
            ff::Frame copy(av_frame_clone(frame));
            if (!copy) {
                throw MediaError("Not enough memory to make the GIF.");
            }
            decoded_.push_back(std::move(copy));
        };
        if (read == AVERROR_EOF) {
            decoder_.drain(keep);
            ended_ = true;
            break;
        }
        ff::check(read, "Couldn’t read “" + movie_.path.filename().string() + "”");
        if (packet_->stream_index == movie_.videoStream) {
            decoder_.decode(packet_.get(), keep);
        }
        av_packet_unref(packet_.get());
    }
    if (decoded_.empty()) {
        return false;
    }
    before_ = std::move(after_);
    after_ = std::move(decoded_.front());
    decoded_.pop_front();
    return true;
}

bool GifFramePicker::keyframeBetween(double fromSeconds, double toSeconds) const {
    const auto target =
        static_cast<std::int64_t>(std::floor(toSeconds / av_q2d(stream_->time_base)));
    const int entry = av_index_search_timestamp(stream_, target, AVSEEK_FLAG_BACKWARD);
    if (entry < 0) {
        return toSeconds - fromSeconds > seekDistanceSeconds;
    }
    const AVIndexEntry* keyframe = avformat_index_get_entry(stream_, entry);
    return keyframe != nullptr &&
           ff::seconds(keyframe->timestamp, stream_->time_base) > fromSeconds + 1e-6;
}

void GifFramePicker::seek(double sourceSeconds) {
    const auto timestamp =
        static_cast<std::int64_t>(std::floor(sourceSeconds / av_q2d(stream_->time_base)));
    if (av_seek_frame(movie_.input.get(), movie_.videoStream, timestamp, AVSEEK_FLAG_BACKWARD) <
        0) {
        ff::check(avformat_seek_file(movie_.input.get(), -1,
                                     std::numeric_limits<std::int64_t>::min(), 0, 0, 0),
                  "Couldn’t read “" + movie_.path.filename().string() + "”");
    }
    decoder_.reset();
    decoded_.clear();
    before_.reset();
    after_.reset();
    ended_ = false;
}

const AVFrame& GifFramePicker::nearest(double sourceSeconds) {
    // The frames looked at so far end with before_ and after_; later times are reached
    // by decoding on, earlier ones by seeking.
    if (!after_) {
        seek(sourceSeconds);
    } else if (before_ && sourceSeconds < startOf(before_) - 1e-6) {
        seek(sourceSeconds);
    } else if (sourceSeconds > startOf(after_) &&
               keyframeBetween(startOf(after_) + skipWorthSeconds, sourceSeconds)) {
        seek(sourceSeconds);
    }
    while (!after_ || startOf(after_) < sourceSeconds) {
        if (!decodeNext()) {
            break;
        }
    }
    if (!after_) {
        // Sought past the last keyframe's frames, or nothing decodable: from the start.
        seek(0);
        while (decodeNext()) {
        }
        if (!after_) {
            throw MediaError("The picture of “" + movie_.path.filename().string() +
                             "” can’t be decoded.");
        }
    }
    if (before_ &&
        std::abs(startOf(before_) - sourceSeconds) <= std::abs(startOf(after_) - sourceSeconds)) {
        return *before_;
    }
    return *after_;
}

} // namespace lumenvale::edit
