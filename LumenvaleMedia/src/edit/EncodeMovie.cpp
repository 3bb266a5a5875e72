// The export that encodes the whole edit again. The source is read once per clip:
// sought to the clip's start, its packets handed to every track until each has what
// the clip needs. The picture is cropped, retimed and encoded (EncodeVideoTrack); every
// source audio track is played at the edit's speed, gained and encoded as AAC
// (EncodeAudioTrack); a Lumenvale mix track is rebuilt from the gained source tracks
// (EncodeAudioMix). Tracks keep their order, titles and dispositions.

#include "edit/EncodeMovie.h"

#include "LumenvaleMedia/RecordingPipeline.h"
#include "edit/EncodeAudioMix.h"
#include "edit/EncodeAudioTrack.h"
#include "edit/EncodeVideoTrack.h"
#include "edit/MovieWriter.h"
#include "edit/SourceMovie.h"
#include "record/AudioEncoder.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <memory>

namespace lumenvale::edit {
namespace {

using EditRenderer::Built;
using EditRenderer::Segment;
using EditRenderer::TrackKind;
using EditRenderer::TrackPlan;

// How far before a clip the source is sought, so the sound decoder is primed and the
// interleaving of the tracks in the file is covered.
constexpr double seekLeadSeconds = 0.5;
constexpr AVRational audioTimeBase{1, workingSampleRate};

// An AAC encoder and the stream of the result it writes to.
struct SoundOutput {
    std::unique_ptr<record::AudioEncoder> encoder;
    int stream = -1;
};

class MovieEncode {
  public:
    MovieEncode(const Built& built, const std::filesystem::path& source, Codec codec,
                const EditRenderer::Destination& destination,
                const EditRenderer::Progress& progress, const std::atomic<bool>* cancel)
        : built_(built), movie_(openSourceMovie(source)), name_(source.filename().string()),
          writer_(destination, built.outputDurationSeconds, progress, cancel),
          packet_(ff::makePacket()) {
        const bool hasSourceTracks =
            std::any_of(built.tracks.begin(), built.tracks.end(), [](const TrackPlan& plan) {
                return plan.kind == TrackKind::audio && !plan.isMix && !plan.segments.empty();
            });
        for (const TrackPlan& plan : built.tracks) {
            if (plan.kind == TrackKind::video) {
                tracks_.push_back(std::make_unique<VideoTrackEncode>(
                    movie_.stream(plan.streamIndex), name_, built, codec, writer_));
            } else if (plan.isMix && hasSourceTracks) {
                addMix(plan);
            } else if (!plan.segments.empty()) {
                addSound(plan);
            }
        }
        for (std::size_t input = 0; input < sourceInputs_.size(); ++input) {
            sourceInputs_[input] = mix_ ? mix_->addInput(sourceChannels_[input]) : -1;
        }
        writer_.copyMovieTags(movie_.input.get());
    }

    std::filesystem::path run() {
        writer_.start();
        for (std::size_t clip = 0; clip < built_.edit.clips.size(); ++clip) {
            encodeClip(clip);
        }
        for (auto& track : tracks_) {
            track->finish();
        }
        for (std::size_t input = 0; input < sourceInputs_.size(); ++input) {
            if (mix_) {
                mix_->finishInput(sourceInputs_[input]);
            }
        }
        for (SoundOutput& output : outputs_) {
            output.encoder->flush([&](AVPacket& packet) { writer_.write(output.stream, &packet); });
        }
        writer_.finish();
        checkUnchanged(movie_);
        return writer_.publish();
    }

  private:
    SoundOutput& addOutput(const TrackPlan& plan, int channels) {
        SoundOutput output;
        output.encoder = std::make_unique<record::AudioEncoder>(channels);
        output.stream = writer_.addEncodedStream(movie_.stream(plan.streamIndex),
                                                 output.encoder->context(), audioTimeBase);
        outputs_.push_back(std::move(output));
        return outputs_.back();
    }

    void addMix(const TrackPlan& plan) {
        const int channels = AudioTrackEncode::channelsFor(movie_.stream(plan.streamIndex));
        // Outputs live in a vector that grows: refer to them by position.
        addOutput(plan, channels);
        const std::size_t output = outputs_.size() - 1;
        mix_ = std::make_unique<AudioMix>(
            channels, [this, output](const float* samples, std::int64_t frames) {
                push(output, samples, frames);
            });
    }

    void addSound(const TrackPlan& plan) {
        const AVStream* source = movie_.stream(plan.streamIndex);
        addOutput(plan, AudioTrackEncode::channelsFor(source));
        const std::size_t output = outputs_.size() - 1;
        const std::size_t input = sourceInputs_.size();
        const bool feedsMix = !plan.isMix;
        sourceInputs_.push_back(-1);
        sourceChannels_.push_back(AudioTrackEncode::channelsFor(source));
        tracks_.push_back(std::make_unique<AudioTrackEncode>(
            source, name_, plan, built_.edit.speed,
            [this, output, input, feedsMix](const float* samples, std::int64_t frames) {
                push(output, samples, frames);
                if (mix_ && feedsMix) {
                    mix_->add(sourceInputs_[input], samples, frames);
                }
            }));
    }

    void push(std::size_t output, const float* samples, std::int64_t frames) {
        SoundOutput& sound = outputs_[output];
        sound.encoder->push(samples, frames,
                            [&](AVPacket& packet) { writer_.write(sound.stream, &packet); });
    }

    const Segment* segmentOf(const TrackPlan& plan, std::size_t clip) const {
        for (const Segment& segment : plan.segments) {
            if (segment.clipIndex == clip) {
                return &segment;
            }
        }
        return nullptr;
    }

    const TrackPlan& planOf(const ClipTrack& track) const {
        for (const TrackPlan& plan : built_.tracks) {
            if (plan.streamIndex == track.sourceStream()) {
                return plan;
            }
        }
        throw MediaError("The movie’s tracks changed while it was exported.");
    }

    void encodeClip(std::size_t clip) {
        std::vector<const Segment*> segments;
        double earliest = std::numeric_limits<double>::infinity();
        for (const auto& track : tracks_) {
            const Segment* segment = segmentOf(planOf(*track), clip);
            segments.push_back(segment);
            if (segment != nullptr) {
                earliest = std::min(earliest, segment->sourceStart);
            }
        }
        if (!std::isfinite(earliest)) {
            return;
        }
        seek(earliest - seekLeadSeconds);
        std::vector<ClipTrack*> byStream(movie_.input->nb_streams, nullptr);
        for (std::size_t i = 0; i < tracks_.size(); ++i) {
            tracks_[i]->beginClip(segments[i]);
            byStream[static_cast<std::size_t>(tracks_[i]->sourceStream())] = tracks_[i].get();
        }
        bool endOfFile = false;
        while (std::any_of(tracks_.begin(), tracks_.end(),
                           [](const auto& track) { return track->wantsPackets(); })) {
            writer_.checkCancel();
            const int read = av_read_frame(movie_.input.get(), packet_.get());
            if (read == AVERROR_EOF) {
                endOfFile = true;
                break;
            }
            ff::check(read, "Couldn’t read “" + name_ + "”");
            ClipTrack* track = byStream[static_cast<std::size_t>(packet_->stream_index)];
            if (track != nullptr && track->wantsPackets()) {
                track->take(*packet_);
            }
            av_packet_unref(packet_.get());
        }
        for (auto& track : tracks_) {
            track->endClip(endOfFile && track->wantsPackets() ? ClipEnd::endOfFile
                                                              : ClipEnd::reached);
        }
    }

    void seek(double seconds) {
        const AVStream* video = movie_.stream(movie_.videoStream);
        const auto timestamp =
            static_cast<std::int64_t>(std::floor(seconds / av_q2d(video->time_base)));
        if (av_seek_frame(movie_.input.get(), movie_.videoStream, timestamp,
                          AVSEEK_FLAG_BACKWARD) >= 0) {
            return;
        }
        // A movie without an index is read from its start instead.
        ff::check(avformat_seek_file(movie_.input.get(), -1,
                                     std::numeric_limits<std::int64_t>::min(), 0, 0, 0),
                  "Couldn’t read “" + name_ + "”");
    }

    const Built& built_;
    SourceMovie movie_;
    std::string name_;
    MovieWriter writer_;
    ff::Packet packet_;
    std::vector<std::unique_ptr<ClipTrack>> tracks_;
    std::vector<SoundOutput> outputs_;
    std::unique_ptr<AudioMix> mix_;
    std::vector<int> sourceInputs_;   // per source sound track: its input of the mix
    std::vector<int> sourceChannels_; // ... and its channels
};

} // namespace

std::filesystem::path encodeMovie(const EditRenderer::Built& built,
                                  const std::filesystem::path& source, Codec codec,
                                  const EditRenderer::Destination& destination,
                                  const EditRenderer::Progress& progress,
                                  const std::atomic<bool>* cancel) {
    MovieEncode encode(built, source, resolve(codec, availableVideoFourCCs()), destination,
                       progress, cancel);
    return encode.run();
}

} // namespace lumenvale::edit
