#include "edit/VideoOutput.h"

#include <algorithm>

namespace lumenvale::edit {

VideoOutput::VideoOutput(MovieWriter& writer, int stream, AVRational timeBase)
    : writer_(writer), stream_(stream), timeBase_(timeBase), held_(ff::makePacket()) {}

void VideoOutput::emit(AVPacket* packet, std::int64_t presentation, std::int64_t decoding) {
    if (holding_) {
        decoding = std::max(decoding, held_->dts + 1);
    }
    presentation = std::max(presentation, decoding);
    writeHeld(decoding);
    av_packet_move_ref(held_.get(), packet);
    held_->pts = presentation;
    held_->dts = decoding;
    holding_ = true;
}

void VideoOutput::finish(std::int64_t endTimestamp) {
    if (holding_) {
        // The last frame in decoding order lasts from when it is shown to the end.
        writeHeld(held_->dts + std::max<std::int64_t>(1, endTimestamp - held_->pts));
    }
}

void VideoOutput::writeHeld(std::int64_t nextDecoding) {
    if (!holding_) {
        return;
    }
    held_->duration = std::max<std::int64_t>(1, nextDecoding - held_->dts);
    // The source's side data (skip marks, new extradata) described its own timeline.
    av_packet_free_side_data(held_.get());
    holding_ = false;
    writer_.write(stream_, held_.get());
    av_packet_unref(held_.get());
}

} // namespace lumenvale::edit
