#include "record/AudioFeed.h"

#include <algorithm>

namespace lumenvale::record {

namespace {
constexpr double timelineSeconds = 10;
}

std::vector<AudioTrack> audioTrackLayout(bool hasSystemAudio, bool hasMicrophone) {
    const AudioTrack system{TrackContent::system, "System audio", 2, false};
    const AudioTrack microphone{TrackContent::microphone, "Microphone", 1, false};
    if (hasSystemAudio && hasMicrophone) {
        return {{TrackContent::mix, "System audio and microphone", 2, true}, system, microphone};
    }
    if (hasSystemAudio) {
        return {{TrackContent::system, "System audio", 2, true}};
    }
    if (hasMicrophone) {
        return {{TrackContent::microphone, "Microphone", 1, true}};
    }
    return {};
}

AudioFeed::AudioFeed(bool hasSystemAudio, bool hasMicrophone)
    : tracks_(audioTrackLayout(hasSystemAudio, hasMicrophone)) {
    if (hasSystemAudio) {
        system_.emplace(2, timelineSeconds);
        systemBlock_.resize(blockFrames * 2);
    }
    if (hasMicrophone) {
        microphone_.emplace(1, timelineSeconds);
        microphoneBlock_.resize(blockFrames);
    }
    if (hasSystemAudio && hasMicrophone) {
        mixBlock_.resize(blockFrames * 2);
    }
    for (const AudioTrack& track : tracks_) {
        encoders_.push_back(std::make_unique<AudioEncoder>(track.channels));
    }
}

std::vector<AudioTrackSpec> AudioFeed::trackSpecs() const {
    std::vector<AudioTrackSpec> specs;
    for (std::size_t i = 0; i < tracks_.size(); ++i) {
        specs.push_back({tracks_[i].title, &encoders_[i]->context(), tracks_[i].isDefault});
    }
    return specs;
}

std::int64_t AudioFeed::availableUntil(std::int64_t now) const {
    std::int64_t until = endOfTime;
    for (const auto* timeline :
         {system_ ? &*system_ : nullptr, microphone_ ? &*microphone_ : nullptr}) {
        if (timeline != nullptr) {
            until = std::min(until, std::max(timeline->availableUntil(), now - patience));
        }
    }
    return until;
}

void AudioFeed::feed(std::int64_t position, std::int64_t frames, const PacketSink& sink) {
    while (frames > 0) {
        const std::int64_t block = std::min(frames, blockFrames);
        if (system_) {
            system_->read(position, block, systemBlock_.data());
        }
        if (microphone_) {
            microphone_->read(position, block, microphoneBlock_.data());
        }
        if (system_ && microphone_) {
            for (std::int64_t i = 0; i < block; ++i) {
                const float voice = microphoneBlock_[static_cast<std::size_t>(i)];
                for (std::size_t channel = 0; channel < 2; ++channel) {
                    const auto at = static_cast<std::size_t>(i) * 2 + channel;
                    mixBlock_[at] = std::clamp(systemBlock_[at] + voice, -1.0f, 1.0f);
                }
            }
        }
        for (std::size_t track = 0; track < tracks_.size(); ++track) {
            const float* samples = tracks_[track].content == TrackContent::mix ? mixBlock_.data()
                                   : tracks_[track].content == TrackContent::system
                                       ? systemBlock_.data()
                                       : microphoneBlock_.data();
            encoders_[track]->push(
                samples, block, [&](AVPacket& packet) { sink(static_cast<int>(track), packet); });
        }
        position += block;
        frames -= block;
        fed_ += block;
    }
}

void AudioFeed::flush(const PacketSink& sink) {
    for (std::size_t track = 0; track < encoders_.size(); ++track) {
        encoders_[track]->flush([&](AVPacket& packet) { sink(static_cast<int>(track), packet); });
    }
}

} // namespace lumenvale::record
