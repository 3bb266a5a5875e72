#include "edit/Passthrough.h"

#include "LumenvaleMedia/RecordingPipeline.h"
#include "edit/AudioCut.h"
#include "edit/CutEncoder.h"
#include "edit/CutPlan.h"
#include "edit/EncoderSettings.h"
#include "edit/MovieWriter.h"
#include "edit/PacketSource.h"
#include "edit/SourceBytes.h"
#include "edit/VideoCut.h"
#include "edit/VideoReencode.h"
#include "record/VideoEncoder.h"

#include <algorithm>
#include <memory>

namespace lumenvale::edit {
namespace {

using EditRenderer::Built;

// splice: frames encoded at the cuts share the source's sample description;
// spliceInBand: they carry their own parameter sets; encodeAll: the whole picture.
enum class PictureRoute { splice, spliceInBand, encodeAll };

// How far before a piece's start the source is sought: enough for the sound's
// priming packet and the interleaving of the tracks in the file.
constexpr std::int64_t seekLeadTicks = ticksPerSecond / 2;

std::span<const std::uint8_t> bytesOf(const std::uint8_t* data, int size) {
    return {data, static_cast<std::size_t>(std::max(0, size))};
}

// What the source's encoder wrote into the stream: in its extradata, or in the first
// access unit (libx264 and libx265 put it there when the headers are global). Read
// with a demuxer of its own, so the export's reading is not disturbed; nothing when
// the file does not say.
std::optional<EncoderSettings> sourceEncoderSettings(const SourceMovie& movie) {
    const AVCodecParameters* video = movie.stream(movie.videoStream)->codecpar;
    if (auto found = findEncoderSettings(bytesOf(video->extradata, video->extradata_size))) {
        return found;
    }
    AVFormatContext* raw = nullptr;
    if (avformat_open_input(&raw, movie.path.c_str(), nullptr, nullptr) < 0) {
        return std::nullopt;
    }
    const ff::InputContext input(raw);
    ff::Packet packet = ff::makePacket();
    // The first video packet is close to the front; a damaged file is not read on.
    constexpr int packetsToLookAt = 64;
    for (int read = 0; read < packetsToLookAt && av_read_frame(input.get(), packet.get()) >= 0;
         ++read) {
        const bool isVideo = packet->stream_index == movie.videoStream;
        auto found =
            isVideo ? findEncoderSettings(bytesOf(packet->data, packet->size)) : std::nullopt;
        av_packet_unref(packet.get());
        if (isVideo) {
            return found;
        }
    }
    return std::nullopt;
}

PixelSize evenSize(PixelSize size) {
    return {std::max<std::int64_t>(2, size.width & ~std::int64_t{1}),
            std::max<std::int64_t>(2, size.height & ~std::int64_t{1})};
}

class CutOnlyExport {
  public:
    CutOnlyExport(SourceMovie& movie, const Built& built, PictureRoute route,
                  const ExportHooks& hooks, const EditRenderer::Destination& destination)
        : movie_(movie), built_(built),
          bytes_(route != PictureRoute::encodeAll ? std::make_unique<SourceBytes>(movie.path)
                                                  : nullptr),
          writer_(destination, built.outputDurationSeconds, hooks.progress, hooks.cancel),
          cutters_(built.tracks.size()), packet_(ff::makePacket()) {}

    void addPicture(PictureRoute route, Codec codec) {
        const auto& plan = built_.tracks.front();
        if (plan.segments.empty()) {
            return;
        }
        const AVStream* source = movie_.stream(plan.streamIndex);
        const AVRational timeBase = exactTimeBase(source->time_base);
        const int framesPerSecond = static_cast<int>(built_.frameRate);
        if (route != PictureRoute::encodeAll) {
            const bool inBand = route == PictureRoute::spliceInBand;
            // Samples that may carry parameter sets of their own have a sample entry
            // that says so.
            const int stream = writer_.addCopiedStream(source, timeBase,
                                                       inBand ? SampleEntry::parameterSetsInBand
                                                              : SampleEntry::asSource);
            videoOutput_ = std::make_unique<VideoOutput>(writer_, stream, timeBase);
            cutEncoders_ = std::make_unique<CutEncoders>(
                source, sourceEncoderSettings(movie_),
                inBand ? ParameterSetPlace::inBand : ParameterSetPlace::sampleDescription);
            cutters_.front() =
                std::make_unique<VideoCut>(source, *cutEncoders_, *videoOutput_, bytes_.get());
            return;
        }
        wholeEncoder_ = std::make_unique<FrameEncoder>(record::makeVideoEncoder(
            resolve(codec, availableVideoFourCCs()), evenSize(built_.videoSize), framesPerSecond));
        const int stream = writer_.addEncodedStream(source, wholeEncoder_->context(), timeBase);
        videoOutput_ = std::make_unique<VideoOutput>(writer_, stream, timeBase);
        cutters_.front() = std::make_unique<VideoReencode>(source, *wholeEncoder_, *videoOutput_);
    }

    void addSound() {
        for (std::size_t track = 1; track < built_.tracks.size(); ++track) {
            const auto& plan = built_.tracks[track];
            if (plan.segments.empty()) {
                continue;
            }
            const AVStream* source = movie_.stream(plan.streamIndex);
            const int stream = writer_.addCopiedStream(source, source->time_base);
            cutters_[track] = std::make_unique<AudioCut>(source, writer_, stream);
        }
    }

    std::filesystem::path write() {
        std::vector<int> streams;
        for (std::size_t track = 0; track < built_.tracks.size(); ++track) {
            if (cutters_[track]) {
                streams.push_back(built_.tracks[track].streamIndex);
            }
        }
        // Copying whole packets needs none of their bytes in the process: walk the index
        // and let the kernel copy them, where the movie allows it.
        if (bytes_) {
            packets_ = indexedPackets(movie_, *bytes_, streams);
        }
        if (packets_) {
            writer_.copyFrom(bytes_.get());
        } else {
            packets_ = demuxedPackets(movie_, streams);
        }
        writer_.copyMovieTags(movie_.input.get());
        writer_.start();
        for (const Piece& piece : piecesOf(built_)) {
            copyPiece(piece);
        }
        for (auto& cutter : cutters_) {
            if (cutter) {
                cutter->finish();
            }
        }
        writer_.finish();
        // What was copied of a file that changed meanwhile may not fit together.
        checkUnchanged(movie_);
        return writer_.publish();
    }

  private:
    void seekBefore(const Piece& piece) {
        std::int64_t startTicks = INT64_MAX;
        for (const auto& place : piece.tracks) {
            if (place) {
                startTicks = std::min(startTicks, place->sourceStart);
            }
        }
        packets_->seek(startTicks - seekLeadTicks);
    }

    bool allDone() const {
        return std::all_of(cutters_.begin(), cutters_.end(),
                           [](const auto& cutter) { return !cutter || cutter->done(); });
    }

    TrackCutter* cutterFor(int streamIndex) const {
        for (std::size_t track = 0; track < built_.tracks.size(); ++track) {
            if (built_.tracks[track].streamIndex == streamIndex) {
                return cutters_[track].get();
            }
        }
        return nullptr;
    }

    void copyPiece(const Piece& piece) {
        seekBefore(piece);
        for (std::size_t track = 0; track < cutters_.size(); ++track) {
            if (cutters_[track]) {
                cutters_[track]->begin(piece.tracks[track]);
            }
        }
        while (!allDone()) {
            writer_.checkCancel();
            if (!packets_->next(packet_.get())) {
                break;
            }
            if (TrackCutter* cutter = cutterFor(packet_->stream_index);
                cutter != nullptr && !cutter->done()) {
                cutter->take(packet_.get());
            }
            av_packet_unref(packet_.get());
        }
        for (auto& cutter : cutters_) {
            if (cutter) {
                cutter->end();
            }
        }
    }

    SourceMovie& movie_;
    const Built& built_;
    // The source's stand-ins outlive the writer, which may hold packets pointing at them.
    std::unique_ptr<SourceBytes> bytes_;
    std::unique_ptr<PacketSource> packets_;
    // Declared before what writes into it, so it is closed (or removed) last.
    MovieWriter writer_;
    std::unique_ptr<VideoOutput> videoOutput_;
    std::unique_ptr<CutEncoders> cutEncoders_;
    std::unique_ptr<FrameEncoder> wholeEncoder_;
    std::vector<std::unique_ptr<TrackCutter>> cutters_;
    ff::Packet packet_;
};

std::filesystem::path writeCutOnly(SourceMovie& movie, const Built& built, PictureRoute route,
                                   Codec codec, const EditRenderer::Destination& destination,
                                   const ExportHooks& hooks) {
    CutOnlyExport job(movie, built, route, hooks, destination);
    job.addPicture(route, codec);
    job.addSound();
    return job.write();
}

} // namespace

bool canCopySound(const SourceMovie& movie, const Built& built) {
    return std::all_of(built.tracks.begin(), built.tracks.end(), [&](const auto& plan) {
        return plan.kind != EditRenderer::TrackKind::audio || plan.segments.empty() ||
               movie.stream(plan.streamIndex)->codecpar->codec_id == AV_CODEC_ID_AAC;
    });
}

std::filesystem::path exportCutOnly(SourceMovie& movie, const Built& built, Codec codec,
                                    const EditRenderer::Destination& destination,
                                    const ExportHooks& hooks) {
    // Starting over must not move the progress back.
    EditRenderer::Progress progress;
    if (hooks.progress) {
        progress = [&hooks, highest = 0.0](double fraction) mutable {
            if (fraction > highest) {
                highest = fraction;
                hooks.progress(fraction);
            }
        };
    }
    const ExportHooks monotonic{progress, hooks.cancel, hooks.status};
    std::string why = "This movie’s video is neither H.264 nor HEVC, so its picture is "
                      "encoded again.";
    if (CutEncoders::codecOf(*movie.stream(movie.videoStream)->codecpar)) {
        // Each attempt that fails has removed its partial file; the next starts over.
        try {
            try {
                return writeCutOnly(movie, built, PictureRoute::splice, codec, destination,
                                    monotonic);
            } catch (const NeedsInBandParameterSets&) {
                return writeCutOnly(movie, built, PictureRoute::spliceInBand, codec, destination,
                                    monotonic);
            }
        } catch (const NeedsWholeEncode& needed) {
            why = needed.what();
        }
    }
    if (hooks.status) {
        hooks.status(why);
    }
    return writeCutOnly(movie, built, PictureRoute::encodeAll, codec, destination, monotonic);
}

} // namespace lumenvale::edit
