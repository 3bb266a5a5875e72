#include "edit/VideoOutput.h"

#include <algorithm>

namespace lumenvale::edit {

VideoOutput::VideoOutput(MovieWriter& writer, int stream, AVRational timeBase)
    : writer_(writer), stream_(stream), timeBase_(timeBase), held_(ff::makePacket()) {}

void VideoOutput::emit(AVPacket* packet, std::int64_t outputTimestamp) {
    if (holding_ && outputTimestamp <= held_->pts) {
        // Only a time base too coarse for the source's frames can get here; keep the
        // frame, one tick later, rather than break the file.
        outputTimestamp = held_->pts + 1;
    }
    writeHeld(outputTimestamp);
    av_packet_move_ref(held_.get(), packet);
    held_->pts = outputTimestamp;
    held_->dts = outputTimestamp;
    holding_ = true;
}

void VideoOutput::finish(std::int64_t endTimestamp) {
    if (holding_) {
        writeHeld(std::max(endTimestamp, held_->pts + 1));
    }
}

void VideoOutput::writeHeld(std::int64_t nextTimestamp) {
    if (!holding_) {
        return;
    }
    held_->duration = nextTimestamp - held_->pts;
    // The source's side data (skip marks, new extradata) described its own timeline.
    av_packet_free_side_data(held_.get());
    holding_ = false;
    writer_.write(stream_, held_.get());
    av_packet_unref(held_.get());
}

} // namespace lumenvale::edit
