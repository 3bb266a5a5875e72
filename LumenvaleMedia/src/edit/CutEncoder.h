#pragma once

// Encoders for the frames between a cut and the next keyframe. Ideally they produce
// parameter sets byte-identical to the source's, so the spliced frames decode under
// the source's one sample description: for a Lumenvale recording that is the
// recording's own encoder settings at the recording's size and rate; for a movie
// whose encoder wrote its settings into the stream (EncoderSettings.h), those
// settings. Otherwise the frames carry their own parameter sets in their samples.
// Internal to the edit area; used by the one thread that exports.

#include "LumenvaleKit/Codec.h"
#include "edit/EncoderSettings.h"
#include "ffmpeg/Handles.h"

#include <optional>
#include <vector>

namespace lumenvale::edit {

// Where the parameter sets of the frames encoded again live: in the source's one
// sample description (they must equal the source's), or in the frames' own samples.
enum class ParameterSetPlace { sampleDescription, inBand };

class CutEncoders {
  public:
    // `source` is the video stream being cut; `settings` what its encoder left in it.
    // The rate a recording was made at is its base rate (a recording that dropped
    // frames under load has a lower average); the average is tried too.
    CutEncoders(const AVStream* source, std::optional<EncoderSettings> settings,
                ParameterSetPlace place);

    // A fresh encoder (its first frame becomes a keyframe). With the sample
    // description place, its parameter sets equal the source's, or
    // NeedsInBandParameterSets is thrown; in band, it is the encoder nearest to the
    // source's, or NeedsWholeEncode is thrown when none suits. The first call finds
    // out and the answer is kept.
    ff::CodecContext make();

    ParameterSetPlace place() const { return place_; }

    // The source's codec, as far as Lumenvale encodes it: h264 or hevc.
    static std::optional<Codec> codecOf(const AVCodecParameters& parameters);

  private:
    // One way to make an encoder: Lumenvale's recording settings at a rate; the source
    // encoder's settings, or (in band, without them) plain ones, at a time base.
    enum class RecipeKind { recording, sourceSettings, plain };
    struct Recipe {
        RecipeKind kind = RecipeKind::recording;
        std::string parameters; // x264-params / x265-params
        AVRational timeBase{0, 1};
        int framesPerSecond = 0;
    };
    ff::CodecContext open(const Recipe& recipe) const;
    bool matches(const AVCodecContext& encoder) const;

    const AVStream* source_;
    ParameterSetPlace place_;
    std::vector<Recipe> recipes_;
    std::optional<std::size_t> chosen_; // once known
    bool searched_ = false;
};

} // namespace lumenvale::edit
