#pragma once

// A source audio track encoded again: decoded, converted to the working format,
// placed at its output times (silence where the track has nothing, so every audio
// track of the result starts at 0 and stays in sync with the picture), played at the
// edit's speed with its pitch kept, and multiplied by its gain. Internal to the edit
// area; used by the one thread that exports.

#include "edit/EncodeClipTrack.h"
#include "edit/EncodeStreamDecoder.h"
#include "edit/EncodeTempo.h"

#include <cstdint>
#include <string>
#include <vector>

namespace lumenvale::edit {

class AudioTrackEncode final : public ClipTrack {
  public:
    // Gained samples at output times, interleaved, `channels()` per frame.
    using SampleSink = TempoChange::SampleSink;

    AudioTrackEncode(const AVStream* source, const std::string& movieName,
                     const EditRenderer::TrackPlan& plan, double speed, SampleSink sink);
    ~AudioTrackEncode() override;
    AudioTrackEncode(const AudioTrackEncode&) = delete;
    AudioTrackEncode& operator=(const AudioTrackEncode&) = delete;

    // Channels of the result for a source track: the source's, stereo for more than two.
    static int channelsFor(const AVStream* source);
    int channels() const { return channels_; }

    int sourceStream() const override { return streamIndex_; }
    void beginClip(const EditRenderer::Segment* segment) override;
    bool wantsPackets() const override;
    void take(const AVPacket& packet) override;
    void endClip(ClipEnd end) override;
    void finish() override;

  private:
    void convert(const AVFrame* frame);
    void place(const float* interleaved, std::int64_t frames, double sourceSeconds);
    void padTo(std::int64_t position);
    void emit(const float* interleaved, std::int64_t frames);
    void deliver(const float* interleaved, std::int64_t frames);

    int streamIndex_;
    int channels_;
    double gain_;
    SampleSink sink_;
    StreamDecoder decoder_;
    ff::Swr converter_;
    TempoChange tempo_;

    const EditRenderer::Segment* segment_ = nullptr;
    std::int64_t segmentFirst_ = 0;     // output sample (before the speed) where the segment starts
    std::int64_t segmentEnd_ = 0;       // ... and ends
    std::int64_t placed_ = 0;           // output samples (before the speed) handed on so far
    double nextSourceSeconds_ = 0;      // source time of the converter's next output sample
    AVChannelLayout convertedLayout_{}; // what the converter was set up for
    int convertedFormat_ = -1;
    int convertedRate_ = 0;
    std::vector<float> converted_;
    std::vector<float> gained_;
};

} // namespace lumenvale::edit
