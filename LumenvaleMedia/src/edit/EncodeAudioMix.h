#pragma once

// The mixed track of a Lumenvale recording, rebuilt from the gained source tracks
// when an export encodes the sound again: the sum of the sources on every channel
// (a mono source on both), clipped to full scale, as the recorder makes it (see
// docs/recording-format.md). Internal to the edit area; used by one thread.

#include <cstdint>
#include <functional>
#include <vector>

namespace lumenvale::edit {

class AudioMix {
  public:
    // Mixed samples, interleaved, `channels` per frame; valid only during the call.
    using SampleSink = std::function<void(const float* interleaved, std::int64_t frames)>;

    AudioMix(int channels, SampleSink sink);

    // Adds an input and returns its number. Every input starts at sample 0.
    int addInput(int channels);
    // The input's next samples. Samples that every unfinished input has reached are
    // mixed and handed on.
    void add(int input, const float* interleaved, std::int64_t frames);
    // The input has no more samples: it no longer holds the mix back.
    void finishInput(int input);

  private:
    struct Input {
        int channels = 1;
        std::int64_t position = 0; // samples added so far
        bool finished = false;
    };

    void release();

    int channels_;
    SampleSink sink_;
    std::vector<Input> inputs_;
    std::int64_t released_ = 0;  // samples handed on so far
    std::vector<float> pending_; // sums from `released_` on
};

} // namespace lumenvale::edit
