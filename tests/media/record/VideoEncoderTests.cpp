// The video settings every part (and every re-encoded cut) shares, read back from
// real files, and the BGRA to I420 conversion.

#include "Harness.h"
#include "LumenvaleMedia/RecordingPipeline.h"
#include "Probe.h"
#include "RecordTestSupport.h"
#include "record/FrameConverter.h"
#include "record/VideoEncoder.h"

#include <gtest/gtest.h>
#include <sstream>
#include <thread>

namespace lumenvale::testing {
namespace {

using namespace std::chrono_literals;

struct CodecCase {
    Codec codec;
    std::string codecName;
    std::string tag;
};

class VideoSettings : public ::testing::TestWithParam<CodecCase> {};

TEST_P(VideoSettings, PartsAreTaggedBt601WithoutBFramesAndWithKeyframesEveryTwoSeconds) {
    const CodecCase& expected = GetParam();
    TemporaryFolder folder;
    std::filesystem::path part;
    {
        RecordingPipeline pipeline(counterSources(), expected.codec, folder.path(), {}, {});
        part = pipeline.start();
        std::this_thread::sleep_for(4500ms);
        pipeline.stop();
    }
    const std::string stream =
        run("ffprobe -v error -select_streams v:0 -show_entries stream=codec_name,codec_tag_string,"
            "pix_fmt,color_range,color_space,color_transfer,color_primaries,has_b_frames "
            "-of default=nw=1 " +
            quoted(part));
    for (const std::string& line :
         {"codec_name=" + expected.codecName, "codec_tag_string=" + expected.tag,
          std::string("pix_fmt=yuv420p"), std::string("color_range=tv"),
          std::string("color_space=smpte170m"), std::string("color_transfer=smpte170m"),
          std::string("color_primaries=smpte170m"), std::string("has_b_frames=0")}) {
        EXPECT_NE(stream.find(line + "\n"), std::string::npos) << line << " in\n" << stream;
    }

    std::istringstream packets(run("ffprobe -v error -select_streams v:0 -show_entries "
                                   "packet=pts,dts,flags -of csv=p=0 " +
                                   quoted(part)));
    std::string line;
    std::int64_t index = 0;
    std::int64_t lastKeyframe = -1;
    std::int64_t longestGop = 0;
    while (std::getline(packets, line)) {
        std::istringstream fields(line);
        std::string pts, dts, flags;
        std::getline(fields, pts, ',');
        std::getline(fields, dts, ',');
        std::getline(fields, flags, ',');
        EXPECT_EQ(pts, dts) << "packet " << index;
        if (flags.find('K') != std::string::npos) {
            longestGop = std::max(longestGop, index - lastKeyframe);
            lastKeyframe = index;
        } else if (index == 0) {
            ADD_FAILURE() << "the part does not start with a keyframe";
        }
        ++index;
    }
    EXPECT_GT(index, 120);
    EXPECT_LE(std::max(longestGop, index - lastKeyframe), 60);
}

INSTANTIATE_TEST_SUITE_P(Codecs, VideoSettings,
                         ::testing::Values(CodecCase{Codec::h264, "h264", "avc1"},
                                           CodecCase{Codec::hevc, "hevc", "hvc1"}));

std::string extradata(Codec codec, PixelSize size, int fps) {
    const ff::CodecContext encoder = record::makeVideoEncoder(codec, size, fps);
    return {reinterpret_cast<const char*>(encoder->extradata),
            static_cast<std::size_t>(encoder->extradata_size)};
}

TEST(VideoEncoder, EncodersWithTheSameSettingsHaveIdenticalParameterSets) {
    for (Codec codec : allCodecs) {
        SCOPED_TRACE(std::string(rawValue(codec)));
        const std::string first = extradata(codec, {1280, 720}, 30);
        EXPECT_FALSE(first.empty());
        EXPECT_EQ(extradata(codec, {1280, 720}, 30), first);
        EXPECT_NE(extradata(codec, {1920, 1080}, 30), first);
    }
}

TEST(VideoEncoder, RefusesSizesItCannotEncodeWithAReadableMessage) {
    for (const PixelSize size : {PixelSize{321, 240}, PixelSize{0, 0}, PixelSize{20000, 2}}) {
        EXPECT_TRUE(thrownMessage<MediaError>([&] {
                        record::makeVideoEncoder(Codec::h264, size, 30);
                    }).ends_with("can’t be encoded."))
            << size.width << " x " << size.height;
    }
}

TEST(VideoEncoder, OffersTheCodecsOfTheLinkedEncoders) {
    const std::string encoders = run("ffmpeg -hide_banner -encoders");
    const std::vector<std::string> offered = availableVideoFourCCs();
    const auto offers = [&](const char* fourCC) {
        return std::find(offered.begin(), offered.end(), fourCC) != offered.end();
    };
    EXPECT_EQ(offers("avc1"), encoders.find(" libx264 ") != std::string::npos);
    EXPECT_EQ(offers("hvc1"), encoders.find(" libx265 ") != std::string::npos);
    EXPECT_EQ(resolve(Codec::hevc, offered), offers("hvc1") ? Codec::hevc : Codec::h264);
}

struct ColourCase {
    std::uint8_t blue, green, red;
    int y, u, v; // BT.601 limited range
};

TEST(FrameConverter, ConvertsWithBt601LimitedRangeAndChangedRowsOnly) {
    const std::vector<ColourCase> colours{{255, 255, 255, 235, 128, 128},
                                          {0, 0, 0, 16, 128, 128},
                                          {0, 0, 255, 82, 90, 240},
                                          {0, 255, 0, 145, 54, 34},
                                          {255, 0, 0, 41, 240, 110}};
    for (const PixelSize size : {PixelSize{64, 48}, PixelSize{2560, 1440}}) {
        record::FrameConverter converter(size);
        const ff::CodecContext encoder = record::makeVideoEncoder(Codec::h264, size, 30);
        ff::Frame frame = record::makeVideoFrame(*encoder);
        for (const ColourCase& colour : colours) {
            SCOPED_TRACE(std::to_string(size.width) + " wide, colour " + std::to_string(colour.y));
            // The top half in the colour, the bottom half in its inverse: each half must
            // be converted, whichever thread does it.
            std::vector<std::uint8_t> bgra(static_cast<std::size_t>(size.width * size.height * 4));
            for (std::int64_t y = 0; y < size.height; ++y) {
                for (std::int64_t x = 0; x < size.width; ++x) {
                    std::uint8_t* pixel = &bgra[static_cast<std::size_t>((y * size.width + x) * 4)];
                    const bool top = y < size.height / 2;
                    pixel[0] = top ? colour.blue : static_cast<std::uint8_t>(255 - colour.blue);
                    pixel[1] = top ? colour.green : static_cast<std::uint8_t>(255 - colour.green);
                    pixel[2] = top ? colour.red : static_cast<std::uint8_t>(255 - colour.red);
                    pixel[3] = 255;
                }
            }
            converter.convert(bgra.data(), size.width * 4, *frame);
            const auto at = [&](int plane, std::int64_t x, std::int64_t y) {
                return static_cast<int>(frame->data[plane][y * frame->linesize[plane] + x]);
            };
            EXPECT_NEAR(at(0, size.width / 2, 0), colour.y, 1);
            EXPECT_NEAR(at(1, size.width / 4, 0), colour.u, 1);
            EXPECT_NEAR(at(2, size.width / 4, 0), colour.v, 1);
            // The inverse colour: Y mirrors around the middle of 16 ... 235.
            EXPECT_NEAR(at(0, 0, size.height - 1), 251 - colour.y, 2);
            EXPECT_NEAR(at(1, 0, size.height / 2 - 1), 256 - colour.u, 2);
        }

        // Only the rows asked for are converted again; the rest keeps the picture before,
        // also in spans long enough to be shared with the helper thread.
        std::vector<std::uint8_t> white(static_cast<std::size_t>(size.width * size.height * 4),
                                        255);
        std::vector<std::uint8_t> red(white.size(), 255);
        for (std::size_t at = 0; at < red.size(); at += 4) {
            red[at] = red[at + 1] = 0; // B, G
        }
        converter.convert(white.data(), size.width * 4, *frame);
        const std::vector<RowSpan> rows{{2, 6}, {size.height / 2, size.height - 2}};
        converter.convert(red.data(), size.width * 4, *frame, rows);
        for (std::int64_t y = 0; y < size.height; ++y) {
            const bool changed = (y >= 2 && y < 6) || (y >= size.height / 2 && y < size.height - 2);
            const int luma = frame->data[0][y * frame->linesize[0] + size.width / 2];
            const int blue = frame->data[1][y / 2 * frame->linesize[1] + size.width / 4];
            ASSERT_NEAR(luma, changed ? 82 : 235, 1) << size.width << " wide, row " << y;
            ASSERT_NEAR(blue, changed ? 90 : 128, 1) << size.width << " wide, row " << y;
        }
    }
}

} // namespace
} // namespace lumenvale::testing
