#pragma once

#include "record/AudioEncoder.h"
#include "record/AudioTimeline.h"
#include "record/PartFile.h"

#include <atomic>
#include <functional>
#include <memory>
#include <optional>
#include <vector>

namespace lumenvale::record {

// What an audio track of a part holds.
enum class TrackContent { mix, system, microphone };

struct AudioTrack {
    TrackContent content = TrackContent::system;
    const char* title = "";
    int channels = 2;
    bool isDefault = false;
};

// The audio tracks of a recording, in file order (docs/recording-format.md):
// system only: "System audio"; microphone only: "Microphone"; both: the stereo mix
// "System audio and microphone" (default), then "System audio", then "Microphone".
std::vector<AudioTrack> audioTrackLayout(bool hasSystemAudio, bool hasMicrophone);

// The recording's sound: the timelines its sources fill, and one AAC encoder per
// track, alive for the whole recording. feed() reads a stretch of the timelines,
// builds every track's samples (the mix is system + microphone on both channels,
// clipped to full scale) and encodes them.
//
// Threads: the timelines are filled from the sources' threads; everything else is
// the writer's.
class AudioFeed {
  public:
    // Packets out of track `track`'s encoder, time base 1/48000, recording timestamps.
    using PacketSink = std::function<void(int track, AVPacket&)>;

    // How long the writer waits for a source's sound to arrive before it takes the
    // missing stretch as silence.
    static constexpr std::int64_t patience = audioRate / 2;

    AudioFeed(bool hasSystemAudio, bool hasMicrophone);

    bool empty() const { return tracks_.empty(); }
    AudioTimeline* systemTimeline() { return system_ ? &*system_ : nullptr; }
    AudioTimeline* microphoneTimeline() { return microphone_ ? &*microphone_ : nullptr; }
    std::vector<AudioTrackSpec> trackSpecs() const;

    // The position up to which every source's sound is known at steady-clock position
    // `now`: what arrived, or silence for a source that is gone or `patience` late.
    std::int64_t availableUntil(std::int64_t now) const;

    // Encodes the sources' sound at [position, position + frames).
    void feed(std::int64_t position, std::int64_t frames, const PacketSink& sink);
    // The end of the recording: drains every encoder.
    void flush(const PacketSink& sink);
    // Samples per channel encoded so far (the recording's audio clock).
    std::int64_t samplesFed() const { return fed_.load(); }

  private:
    static constexpr std::int64_t blockFrames = 1024;

    std::vector<AudioTrack> tracks_;
    std::vector<std::unique_ptr<AudioEncoder>> encoders_;
    std::optional<AudioTimeline> system_;
    std::optional<AudioTimeline> microphone_;
    std::vector<float> systemBlock_;
    std::vector<float> microphoneBlock_;
    std::vector<float> mixBlock_;
    std::atomic<std::int64_t> fed_{0}; // written by the writer, read by stats() too
};

} // namespace lumenvale::record
