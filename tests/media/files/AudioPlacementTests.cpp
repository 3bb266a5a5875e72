// Where a part's first audio packet lands, for each way a part writer may time it.

#include "files/AudioPlacement.h"

#include <algorithm>
#include <gtest/gtest.h>

namespace lumenvale::files {
namespace {

constexpr std::int64_t packet = 1024;
constexpr std::int64_t previousEnd = 96256; // where the first part's audio ends

struct Case {
    const char* name;
    std::int64_t firstClaim;
    std::optional<std::int64_t> secondClaim;
    std::int64_t videoAlignedFirst;
    std::int64_t expectedFirst;  // movie time of the first packet
    std::int64_t expectedSecond; // and of the one after it
};

class AudioPlacementTest : public ::testing::TestWithParam<Case> {};

TEST_P(AudioPlacementTest, PlacesTheFirstPacketsOfTheNextPart) {
    const Case& c = GetParam();
    AudioPlacement placement(packet);
    placement.beginPart(-1024, 0, -1024, 0);
    ASSERT_EQ(placement.place(-1024, packet), -1024) << "the priming keeps its negative start";
    ASSERT_EQ(placement.place(previousEnd - packet, packet), previousEnd - packet);

    placement.beginPart(c.firstClaim, c.secondClaim, c.videoAlignedFirst, 96000);
    EXPECT_EQ(placement.place(c.firstClaim, packet), c.expectedFirst);
    if (c.secondClaim) {
        EXPECT_EQ(placement.place(*c.secondClaim, packet), c.expectedSecond);
    }
}

INSTANTIATE_TEST_SUITE_P(
    Parts, AudioPlacementTest,
    ::testing::Values(
        // The recording's clock, exactly continued: copied as it is.
        Case{"continuous", previousEnd, previousEnd + packet, 0, previousEnd, previousEnd + packet},
        // An edit list rounded to milliseconds moved the start by 16 samples.
        Case{"jitter", previousEnd - 16, previousEnd - 16 + packet, 0, previousEnd,
             previousEnd + packet},
        // A real hole in the sound (a source that stalled) stays a hole.
        Case{"gap", previousEnd + 4800, previousEnd + 4800 + packet, 0, previousEnd + 4800,
             previousEnd + 4800 + packet},
        // A muxer pinned the fragment's first sample to zero; the rest is continuous.
        Case{"stretched first", 0, previousEnd + packet, 0, previousEnd, previousEnd + packet},
        // Restarting clock, landing within the encoder's delay of the previous end.
        Case{"restart near", -1792, -768, previousEnd - 300, previousEnd, previousEnd + packet},
        // Restarting clock after audio that stopped early: it stays with its video.
        Case{"restart far", 0, packet, previousEnd + 48000, previousEnd + 48000,
             previousEnd + 48000 + packet},
        // Restarting clock that would overlap the previous audio: it follows it.
        Case{"restart overlap", 0, packet, previousEnd - 10000, previousEnd, previousEnd + packet},
        // A part with a single packet decides on that one.
        Case{"single packet restart", 0, std::nullopt, previousEnd + 20, previousEnd, 0}),
    [](const ::testing::TestParamInfo<Case>& param) {
        std::string name = param.param.name;
        std::replace(name.begin(), name.end(), ' ', '_');
        return name;
    });

TEST(AudioPlacement, NeverGoesBackwardsWithinAPart) {
    AudioPlacement placement(packet);
    placement.beginPart(0, packet, 0, 0);
    EXPECT_EQ(placement.place(0, packet), 0);
    EXPECT_EQ(placement.place(packet, packet), packet);
    EXPECT_EQ(placement.place(100, packet), 2 * packet) << "an overlapping packet follows on";
    EXPECT_EQ(placement.end(), 3 * packet);
}

} // namespace
} // namespace lumenvale::files
