#include "record/AudioTimeline.h"

#include <algorithm>
#include <cstring>

namespace lumenvale::record {

std::int64_t audioPosition(std::chrono::steady_clock::duration time) {
    const auto nanoseconds = std::chrono::duration_cast<std::chrono::nanoseconds>(time).count();
    constexpr std::int64_t perSecond = 1'000'000'000;
    // Split so that the product cannot overflow however long the machine has been up.
    const std::int64_t seconds = nanoseconds / perSecond;
    const std::int64_t rest = nanoseconds % perSecond;
    return seconds * audioRate + (rest * audioRate + perSecond / 2) / perSecond;
}

AudioTimeline::AudioTimeline(int channels, double capacitySeconds)
    : channels_(channels), capacityFrames_(static_cast<std::int64_t>(capacitySeconds * audioRate)),
      ring_(static_cast<std::size_t>(capacityFrames_ * channels), 0.0f) {}

void AudioTimeline::append(const AudioChunk& chunk) {
    if (chunk.channels != channels_ || chunk.sampleRate != audioRate) {
        return;
    }
    const std::int64_t frames = static_cast<std::int64_t>(chunk.samples.size()) / channels_;
    if (frames == 0) {
        return;
    }
    std::int64_t position = audioPosition(chunk.time);
    const float* samples = chunk.samples.data();
    std::int64_t count = frames;
    std::lock_guard lock(mutex_);
    if (ended_) {
        return;
    }
    const std::int64_t deviation = position - end_;
    if (!started_) {
        started_ = true;
        begin_ = end_ = position;
    } else if (deviation > jumpLimit || deviation < -jumpLimit) {
        drift_ = 0;
        skip_ = 0;
    } else {
        // The average follows the deviations with a time constant of a quarter of a
        // second of sound, whatever the chunks' size: a single stray time stamp moves
        // it by a few percent of its error.
        const double weight =
            static_cast<double>(count) / static_cast<double>(count + audioRate / 4);
        drift_ += (static_cast<double>(deviation) - drift_) * weight;
        position = end_;
        if (drift_ > driftLimit) {
            position += static_cast<std::int64_t>(drift_);
            drift_ = 0;
        } else if (drift_ < -driftLimit) {
            skip_ += static_cast<std::int64_t>(-drift_);
            drift_ = 0;
        }
        // Sound that came too early is dropped from the front of the next chunks.
        const std::int64_t skipped = std::min(skip_, count);
        skip_ -= skipped;
        samples += skipped * channels_;
        count -= skipped;
        if (count == 0) {
            return;
        }
    }
    if (position > end_) {
        writeSilence(end_, position - end_);
    } else if (position < end_) {
        const std::int64_t overlap = end_ - position;
        if (overlap >= count) {
            return;
        }
        samples += overlap * channels_;
        count -= overlap;
        position = end_;
    }
    writeSamples(position, samples, count);
}

void AudioTimeline::writeSamples(std::int64_t position, const float* samples, std::int64_t frames) {
    if (frames > capacityFrames_) {
        samples += (frames - capacityFrames_) * channels_;
        position += frames - capacityFrames_;
        frames = capacityFrames_;
    }
    std::int64_t done = 0;
    while (done < frames) {
        const std::int64_t slot = (position + done) % capacityFrames_;
        const std::int64_t run = std::min(frames - done, capacityFrames_ - slot);
        std::memcpy(&ring_[static_cast<std::size_t>(slot * channels_)], samples + done * channels_,
                    static_cast<std::size_t>(run * channels_) * sizeof(float));
        done += run;
    }
    end_ = position + frames;
    begin_ = std::max(begin_, end_ - capacityFrames_);
}

void AudioTimeline::writeSilence(std::int64_t position, std::int64_t frames) {
    if (frames >= capacityFrames_) {
        begin_ = end_ = position + frames;
        return;
    }
    std::int64_t done = 0;
    while (done < frames) {
        const std::int64_t slot = (position + done) % capacityFrames_;
        const std::int64_t run = std::min(frames - done, capacityFrames_ - slot);
        std::fill_n(ring_.begin() + static_cast<std::ptrdiff_t>(slot * channels_), run * channels_,
                    0.0f);
        done += run;
    }
    end_ = position + frames;
    begin_ = std::max(begin_, end_ - capacityFrames_);
}

void AudioTimeline::markEnded() {
    std::lock_guard lock(mutex_);
    ended_ = true;
}

std::int64_t AudioTimeline::availableUntil() const {
    std::lock_guard lock(mutex_);
    if (ended_) {
        return endOfTime;
    }
    return started_ ? end_ : std::numeric_limits<std::int64_t>::min();
}

void AudioTimeline::read(std::int64_t position, std::int64_t frames, float* out) const {
    std::lock_guard lock(mutex_);
    std::int64_t done = 0;
    while (done < frames) {
        const std::int64_t at = position + done;
        if (!started_ || at < begin_ || at >= end_) {
            // Silence up to the next position that holds sound.
            std::int64_t run = frames - done;
            if (started_ && at < begin_) {
                run = std::min(run, begin_ - at);
            }
            std::fill_n(out + done * channels_, run * channels_, 0.0f);
            done += run;
            continue;
        }
        const std::int64_t slot = at % capacityFrames_;
        const std::int64_t run = std::min({frames - done, capacityFrames_ - slot, end_ - at});
        std::memcpy(out + done * channels_, &ring_[static_cast<std::size_t>(slot * channels_)],
                    static_cast<std::size_t>(run * channels_) * sizeof(float));
        done += run;
    }
}

} // namespace lumenvale::record
