#include "edit/EncodeAudioMix.h"

#include <algorithm>
#include <limits>

namespace lumenvale::edit {

AudioMix::AudioMix(int channels, SampleSink sink) : channels_(channels), sink_(std::move(sink)) {}

int AudioMix::addInput(int channels) {
    inputs_.push_back(Input{channels});
    return static_cast<int>(inputs_.size()) - 1;
}

void AudioMix::add(int input, const float* interleaved, std::int64_t frames) {
    Input& source = inputs_[static_cast<std::size_t>(input)];
    const std::int64_t offset = source.position - released_;
    const auto needed = static_cast<std::size_t>((offset + frames) * channels_);
    if (pending_.size() < needed) {
        pending_.resize(needed, 0.0f);
    }
    for (std::int64_t i = 0; i < frames; ++i) {
        float* out = pending_.data() + (offset + i) * channels_;
        const float* in = interleaved + i * source.channels;
        for (int channel = 0; channel < channels_; ++channel) {
            if (source.channels == 1) {
                out[channel] += in[0];
            } else if (channels_ == 1) {
                float sum = 0;
                for (int c = 0; c < source.channels; ++c) {
                    sum += in[c];
                }
                out[channel] += sum / static_cast<float>(source.channels);
            } else if (channel < source.channels) {
                out[channel] += in[channel];
            }
        }
    }
    source.position += frames;
    release();
}

void AudioMix::finishInput(int input) {
    inputs_[static_cast<std::size_t>(input)].finished = true;
    release();
}

void AudioMix::release() {
    // Mixed up to where every input still running has arrived; once all have
    // finished, up to the longest.
    std::int64_t until = std::numeric_limits<std::int64_t>::max();
    std::int64_t longest = released_;
    for (const Input& input : inputs_) {
        longest = std::max(longest, input.position);
        if (!input.finished) {
            until = std::min(until, input.position);
        }
    }
    if (until == std::numeric_limits<std::int64_t>::max()) {
        until = longest;
    }
    const std::int64_t frames = until - released_;
    if (frames <= 0) {
        return;
    }
    const auto count = static_cast<std::size_t>(frames * channels_);
    if (pending_.size() < count) {
        pending_.resize(count, 0.0f);
    }
    for (std::size_t i = 0; i < count; ++i) {
        pending_[i] = std::clamp(pending_[i], -1.0f, 1.0f);
    }
    sink_(pending_.data(), frames);
    pending_.erase(pending_.begin(), pending_.begin() + static_cast<std::ptrdiff_t>(count));
    released_ = until;
}

} // namespace lumenvale::edit
