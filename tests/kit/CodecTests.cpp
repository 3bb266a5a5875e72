#include "LumenvaleKit/Codec.h"

#include <gtest/gtest.h>

namespace lumenvale {
namespace {

TEST(Codec, RawValuesAndResolve) {
    EXPECT_EQ(codecFromRawValue("h264"), Codec::h264);
    EXPECT_EQ(codecFromRawValue("hevc"), Codec::hevc);
    for (const char* other : {"H264", "HEVC", "avc1", "", "h264 "}) {
        EXPECT_FALSE(codecFromRawValue(other)) << other;
    }
    EXPECT_EQ(resolve(Codec::hevc, {"avc1"}), Codec::h264);
    EXPECT_EQ(resolve(Codec::hevc, {"avc1", "hvc1"}), Codec::hevc);
    EXPECT_EQ(resolve(Codec::hevc, {"hev1", "HVC1"}), Codec::h264);
    EXPECT_EQ(resolve(Codec::hevc, {}), Codec::h264);
    EXPECT_EQ(resolve(Codec::h264, {}), Codec::h264);
}

} // namespace
} // namespace lumenvale
