#include "edit/Passthrough.h"

#include "LumenvaleMedia/RecordingPipeline.h"
#include "edit/AudioCut.h"
#include "edit/CutEncoder.h"
#include "edit/CutPlan.h"
#include "edit/MovieWriter.h"
#include "edit/VideoCut.h"
#include "edit/VideoReencode.h"
#include "record/VideoEncoder.h"

#include <algorithm>
#include <memory>

namespace lumenvale::edit {
namespace {

using EditRenderer::Built;

enum class PictureRoute { splice, encodeAll };

// How far before a piece's start the source is sought: enough for the sound's
// priming packet and the interleaving of the tracks in the file.
constexpr std::int64_t seekLeadTicks = ticksPerSecond / 2;

bool canSplice(const AVStream* video) {
    return CutEncoders::codecOf(*video->codecpar).has_value() &&
           video->codecpar->video_delay == 0; // B-frames reorder: their cuts are not spliced
}

PixelSize evenSize(PixelSize size) {
    return {std::max<std::int64_t>(2, size.width & ~std::int64_t{1}),
            std::max<std::int64_t>(2, size.height & ~std::int64_t{1})};
}

class CutOnlyExport {
  public:
    CutOnlyExport(SourceMovie& movie, const Built& built, const ExportHooks& hooks,
                  const std::filesystem::path& destination)
        : movie_(movie), built_(built), hooks_(hooks),
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
        if (route == PictureRoute::splice) {
            const int stream = writer_.addCopiedStream(source, timeBase);
            videoOutput_ = std::make_unique<VideoOutput>(writer_, stream, timeBase);
            cutEncoders_ = std::make_unique<CutEncoders>(source, framesPerSecond);
            cutters_.front() = std::make_unique<VideoCut>(source, *cutEncoders_, *videoOutput_);
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

    void write() {
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
    }

  private:
    void seekBefore(const Piece& piece) {
        std::int64_t startTicks = INT64_MAX;
        for (const auto& place : piece.tracks) {
            if (place) {
                startTicks = std::min(startTicks, place->sourceStart);
            }
        }
        const std::int64_t targetTicks = startTicks - seekLeadTicks;
        // Seeking by a sound track lands it on the packet before the target (the
        // priming packet at the very start) and the picture on the keyframe before
        // that; seeking by the picture would land the sound on the keyframe's time.
        for (std::size_t track = built_.tracks.size(); track-- > 0;) {
            if (!piece.tracks[track] && track != 0) {
                continue;
            }
            const int stream = built_.tracks[track].streamIndex;
            const std::int64_t target =
                av_rescale_q(targetTicks, tickTimeBase, movie_.stream(stream)->time_base);
            if (av_seek_frame(movie_.input.get(), stream, target, AVSEEK_FLAG_BACKWARD) >= 0) {
                return;
            }
        }
        throw MediaError("The movie “" + movie_.path.filename().string() +
                         "” can’t be cut: it has no index of its frames.");
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
            const int read = av_read_frame(movie_.input.get(), packet_.get());
            if (read == AVERROR_EOF) {
                break;
            }
            if (read == AVERROR_INVALIDDATA) {
                throw damagedMovie(movie_.path);
            }
            ff::check(read, "Couldn’t read the movie “" + movie_.path.filename().string() + "”");
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
    const ExportHooks& hooks_;
    // Declared before what writes into it, so it is closed (or removed) last.
    MovieWriter writer_;
    std::unique_ptr<VideoOutput> videoOutput_;
    std::unique_ptr<CutEncoders> cutEncoders_;
    std::unique_ptr<FrameEncoder> wholeEncoder_;
    std::vector<std::unique_ptr<TrackCutter>> cutters_;
    ff::Packet packet_;
};

void writeCutOnly(SourceMovie& movie, const Built& built, PictureRoute route, Codec codec,
                  const std::filesystem::path& destination, const ExportHooks& hooks) {
    CutOnlyExport job(movie, built, hooks, destination);
    job.addPicture(route, codec);
    job.addSound();
    job.write();
}

} // namespace

bool canCopySound(const SourceMovie& movie, const Built& built) {
    return std::all_of(built.tracks.begin(), built.tracks.end(), [&](const auto& plan) {
        return plan.kind != EditRenderer::TrackKind::audio || plan.segments.empty() ||
               movie.stream(plan.streamIndex)->codecpar->codec_id == AV_CODEC_ID_AAC;
    });
}

void exportCutOnly(SourceMovie& movie, const Built& built, Codec codec,
                   const std::filesystem::path& destination, const ExportHooks& hooks) {
    const std::string encodingAgain =
        "This movie wasn’t recorded by Lumenvale, so its picture is encoded again.";
    if (canSplice(movie.stream(movie.videoStream))) {
        try {
            writeCutOnly(movie, built, PictureRoute::splice, codec, destination, hooks);
            return;
        } catch (const NeedsWholeEncode&) {
            // The partial file is gone; start over below.
        }
    }
    if (hooks.status) {
        hooks.status(encodingAgain);
    }
    writeCutOnly(movie, built, PictureRoute::encodeAll, codec, destination, hooks);
}

} // namespace lumenvale::edit
