#include "LumenvaleKit/Codec.h"
#include "LumenvaleKit/RecError.h"

#include <gtest/gtest.h>

namespace lumenvale {
namespace {

TEST(Codec, PropertiesRawValuesAndResolve) {
    EXPECT_EQ(codecFromRawValue("h264"), Codec::h264);
    EXPECT_EQ(codecFromRawValue("hevc"), Codec::hevc);
    for (const char* other : {"H264", "HEVC", "avc1", "", "h264 "}) {
        EXPECT_FALSE(codecFromRawValue(other)) << other;
    }
    EXPECT_EQ(title(Codec::h264), "H.264");
    EXPECT_EQ(title(Codec::hevc), "HEVC");
    EXPECT_EQ(maxLongSide(Codec::hevc), 8192);
    EXPECT_EQ(maxPixels(Codec::h264), 9437184);
    EXPECT_EQ(maxPixels(Codec::hevc), 35389440);

    EXPECT_EQ(resolve(Codec::hevc, {"avc1"}), Codec::h264);
    EXPECT_EQ(resolve(Codec::hevc, {"avc1", "hvc1"}), Codec::hevc);
    EXPECT_EQ(resolve(Codec::hevc, {"hev1", "HVC1"}), Codec::h264);
    EXPECT_EQ(resolve(Codec::hevc, {}), Codec::h264);
    EXPECT_EQ(resolve(Codec::h264, {}), Codec::h264);
}

TEST(RecError, Messages) {
    EXPECT_EQ(message(RecError::windowGone), "The window closed.");
    EXPECT_EQ(message(RecError::displayGone), "The display is gone.");
    EXPECT_EQ(message(RecError::nothingRecorded), "Nothing was recorded.");
}

} // namespace
} // namespace lumenvale
