#include "LumenvaleKit/RecordingName.h"

#include <gtest/gtest.h>
#include <set>
#include <vector>

namespace lumenvale {
namespace {

TEST(RecordingName, BaseUsesTheFixedPattern) {
    EXPECT_EQ(RecordingName::base({2026, 3, 7, 21, 5, 3}),
              "Lumenvale Recording 2026-03-07 at 21.05.03");
    EXPECT_EQ(RecordingName::base({987, 1, 1, 0, 0, 0}),
              "Lumenvale Recording 0987-01-01 at 00.00.00");
}

TEST(RecordingName, UniqueAsksOncePerCandidateInOrder) {
    const std::filesystem::path folder = "/videos";
    const std::string base = "Lumenvale Recording 2026-11-15 at 20.43.31";
    const struct {
        std::set<std::string> taken; // suffixes after the base
        const char* expected;
        std::size_t questions;
    } cases[] = {
        {{}, ".mp4", 1},
        {{".mp4", " 2.mp4"}, " 3.mp4", 3},
        {{".mp4", " 2.mp4", " 3.mp4", " 4.mp4", " 5.mp4", " 6.mp4", " 7.mp4", " 8.mp4", " 9.mp4",
          " 10.mp4"},
         " 11.mp4",
         11},
        {{" 2.mp4"}, ".mp4", 1}, // a free plain name wins
    };
    for (const auto& c : cases) {
        std::vector<std::filesystem::path> asked;
        const auto result = RecordingName::unique(folder, base, "mp4", [&](const auto& path) {
            asked.push_back(path);
            return c.taken.count(path.filename().string().substr(base.size())) > 0;
        });
        EXPECT_EQ(result, folder / (base + c.expected));
        ASSERT_EQ(asked.size(), c.questions);
        EXPECT_EQ(asked.front(), folder / (base + ".mp4"));
        for (std::size_t i = 1; i < asked.size(); ++i) {
            EXPECT_EQ(asked[i], folder / (base + " " + std::to_string(i + 1) + ".mp4"));
        }
    }
}

TEST(RecordingName, PosterTime) {
    const std::pair<double, double> cases[] = {{0, 0}, {0.6, 0.3}, {1, 0.5}, {10, 0.5}, {0.2, 0.1}};
    for (const auto& [duration, poster] : cases) {
        EXPECT_DOUBLE_EQ(RecordingName::posterTime(duration), poster) << duration;
    }
}

} // namespace
} // namespace lumenvale
