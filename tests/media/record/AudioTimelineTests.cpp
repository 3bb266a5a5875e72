// Placing a source's chunks on the steady clock: contiguous sound stays contiguous
// whatever its time stamps' jitter, a clock that drifts is followed, lost sound
// becomes silence at its place.

#include "record/AudioTimeline.h"

#include <gtest/gtest.h>
#include <numeric>
#include <vector>

namespace lumenvale::testing {
namespace {

using record::audioPosition;
using record::AudioTimeline;

constexpr std::int64_t chunkFrames = 960; // 20 ms
const std::chrono::steady_clock::duration origin = std::chrono::seconds(1000);

std::chrono::steady_clock::duration at(std::int64_t position) {
    return origin + std::chrono::nanoseconds(position * 1'000'000'000 / 48000);
}

struct TimelineCase {
    const char* name;
    // Time stamp error of each chunk, in samples (chunk n really starts at n x 960).
    std::vector<std::int64_t> stampErrors;
    // How far the end of the sound is moved against contiguous placement by silence
    // put in where sound was lost.
    std::int64_t expectedShift;
};

class Timeline : public ::testing::TestWithParam<TimelineCase> {};

TEST_P(Timeline, PlacesChunksContiguouslyUnlessTheClockReallyMoved) {
    const TimelineCase& test = GetParam();
    AudioTimeline timeline(1, 10);
    // Sample i of the source has the value i + 1, so where each sample landed shows.
    std::vector<float> samples(chunkFrames);
    for (std::size_t n = 0; n < test.stampErrors.size(); ++n) {
        const auto first = static_cast<std::int64_t>(n) * chunkFrames;
        std::iota(samples.begin(), samples.end(), static_cast<float>(first + 1));
        timeline.append(AudioChunk{samples, 1, 48000, at(first + test.stampErrors[n])});
    }
    const std::int64_t start = audioPosition(at(test.stampErrors[0]));
    const auto total = static_cast<std::int64_t>(test.stampErrors.size()) * chunkFrames;
    EXPECT_EQ(timeline.availableUntil(), start + total + test.expectedShift);

    std::vector<float> read(static_cast<std::size_t>(total + test.expectedShift));
    timeline.read(start, static_cast<std::int64_t>(read.size()), read.data());
    EXPECT_EQ(read.front(), 1.0f) << "the first sample is where its chunk said";
    EXPECT_EQ(read.back(), static_cast<float>(total)) << "nothing of the sound was lost";
    // Samples out of order, and stretches of silence: contiguous sound has neither.
    int jumps = 0;
    int silences = 0;
    for (std::size_t i = 1; i < read.size(); ++i) {
        jumps += read[i] != 0 && read[i - 1] != 0 && read[i] != read[i - 1] + 1 ? 1 : 0;
        silences += read[i] == 0 && read[i - 1] != 0 ? 1 : 0;
    }
    EXPECT_EQ(jumps, 0);
    EXPECT_EQ(silences, test.expectedShift > 0 ? 1 : 0);
}

std::vector<std::int64_t> jitter(int chunks, std::int64_t amplitude) {
    std::vector<std::int64_t> errors;
    for (int n = 0; n < chunks; ++n) {
        errors.push_back((n * 7919 % 13 - 6) * amplitude / 6);
    }
    return errors;
}

std::vector<std::int64_t> withOne(std::vector<std::int64_t> errors, std::size_t index,
                                  std::int64_t error) {
    errors[index] = error;
    return errors;
}

std::vector<std::int64_t> jumpAt(int chunks, std::size_t from, std::int64_t by) {
    std::vector<std::int64_t> errors(static_cast<std::size_t>(chunks), 0);
    for (std::size_t n = from; n < errors.size(); ++n) {
        errors[n] = by;
    }
    return errors;
}

INSTANTIATE_TEST_SUITE_P(
    Stamps, Timeline,
    ::testing::Values(TimelineCase{"exact", std::vector<std::int64_t>(50, 0), 0},
                      TimelineCase{"jitter of 5 ms", jitter(100, 240), 0},
                      TimelineCase{"one stamp 40 ms late", withOne(jitter(100, 96), 50, 1920), 0},
                      TimelineCase{"one stamp 40 ms early", withOne(jitter(100, 96), 50, -1920), 0},
                      TimelineCase{"sound lost: 200 ms later on", jumpAt(60, 30, 9600), 9600}),
    [](const auto& parameter) {
        std::string name = parameter.param.name;
        for (char& c : name) {
            c = std::isalnum(static_cast<unsigned char>(c)) ? c : '_';
        }
        return name;
    });

TEST(Timeline, FollowsADriftingClockInSmallSteps) {
    // The stamps run 1 % ahead of the samples (a slow sound card: silence is put in),
    // then 1 % behind (a fast one: samples are dropped). Over 3 seconds that is 30 ms,
    // followed in a few steps of about 10 ms, not chunk by chunk.
    for (const std::int64_t percent : {1, -1}) {
        SCOPED_TRACE(percent);
        AudioTimeline timeline(1, 10);
        std::vector<float> samples(chunkFrames);
        const int chunks = 150;
        for (int n = 0; n < chunks; ++n) {
            const std::int64_t first = n * chunkFrames;
            std::iota(samples.begin(), samples.end(), static_cast<float>(first + 1));
            timeline.append(AudioChunk{samples, 1, 48000, at(first + first * percent / 100)});
        }
        const std::int64_t start = audioPosition(at(0));
        const std::int64_t lastStamp = (chunks - 1) * chunkFrames * (100 + percent) / 100;
        EXPECT_NEAR(static_cast<double>(timeline.availableUntil() - start),
                    static_cast<double>(lastStamp + chunkFrames), 1.5 * AudioTimeline::driftLimit);
        std::vector<float> read(static_cast<std::size_t>(timeline.availableUntil() - start));
        timeline.read(start, static_cast<std::int64_t>(read.size()), read.data());
        int steps = 0;
        for (std::size_t i = 1; i < read.size(); ++i) {
            steps += read[i] != read[i - 1] + 1 && read[i - 1] != 0 ? 1 : 0;
        }
        EXPECT_GE(steps, 2);
        EXPECT_LE(steps, 4);
    }
}

TEST(Timeline, ReadsSilenceOutsideWhatArrivedAndEverythingAfterTheSourceEnded) {
    AudioTimeline timeline(2, 1);
    std::vector<float> samples(2 * 480, 0.5f);
    timeline.append(AudioChunk{samples, 2, 48000, at(0)});
    const std::int64_t start = audioPosition(at(0));
    EXPECT_EQ(timeline.availableUntil(), start + 480);
    std::vector<float> read(2 * 1000, 9.0f);
    timeline.read(start - 100, 1000, read.data());
    EXPECT_EQ(read[0], 0.0f);
    EXPECT_EQ(read[2 * 100], 0.5f);
    EXPECT_EQ(read[2 * 579 + 1], 0.5f);
    EXPECT_EQ(read[2 * 580], 0.0f);
    timeline.append(AudioChunk{samples, 1, 48000, at(480)}); // wrong channel count: ignored
    EXPECT_EQ(timeline.availableUntil(), start + 480);
    timeline.markEnded();
    EXPECT_EQ(timeline.availableUntil(), record::endOfTime);
    timeline.read(start, 1, read.data());
    EXPECT_EQ(read[0], 0.5f) << "what arrived before the end stays";
}

} // namespace
} // namespace lumenvale::testing
