#include "LumenvaleKit/EditDecision.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <random>

namespace lumenvale {
namespace {

using Json = nlohmann::ordered_json;

const char* const sampleEdit = R"({"sourceDuration": 12.5,
  "clips": [{"id": "e621e1f8-c36c-495a-93fc-0c247a3e6e5f", "start": 0, "end": 4.25},
            {"id": "0F6F5B3A-1C2D-4E5F-8A9B-0C1D2E3F4A5B", "start": 6, "end": 12.5}],
  "speed": 1.5, "crop": [[0.1, 0.2], [0.5, 0.25]], "volumes": {"1": 0.5, "-3": 2, "20": 0}})";

// The sample with one key replaced by `value`, or removed when `value` is null.
std::string sampleWith(const char* key, const char* value) {
    Json json = Json::parse(sampleEdit);
    if (value == nullptr) {
        json.erase(key);
    } else {
        json[key] = Json::parse(value);
    }
    return json.dump();
}

TEST(EditDecisionCoding, ReadsTheSampleAndWritesKeysInOrder) {
    const auto decoded = decodeEditDecision(sampleEdit);
    ASSERT_TRUE(decoded.ok()) << decoded.error();
    EXPECT_EQ(decoded->clips[1].start, 6);
    EXPECT_EQ(decoded->crop, (Rect{0.1, 0.2, 0.5, 0.25}));
    EXPECT_EQ(decoded->volumes, (std::map<int, double>{{-3, 2}, {1, 0.5}, {20, 0}}));

    const Json written = Json::parse(encode(*decoded));
    std::string keys;
    for (const auto& item : written.items()) {
        keys += item.key() + " ";
    }
    EXPECT_EQ(keys, "sourceDuration clips speed crop volumes ");
    EXPECT_EQ(written["clips"][0]["id"], "E621E1F8-C36C-495A-93FC-0C247A3E6E5F");
    EXPECT_EQ(written["volumes"]["-3"], 2.0);
    EXPECT_EQ(written["crop"], Json::parse("[[0.1, 0.2], [0.5, 0.25]]"));

    EditDecision uncropped = *decoded;
    uncropped.crop.reset();
    EXPECT_FALSE(Json::parse(encode(uncropped)).contains("crop"));
    EXPECT_EQ(decodeEditDecision(sampleWith("crop", "null")).value(), uncropped);
    EXPECT_EQ(decodeEditDecision(sampleWith("crop", nullptr)).value(), uncropped);
}

TEST(EditDecisionCoding, RandomEditsSurviveARoundTrip) {
    std::mt19937_64 random(20261115);
    std::uniform_real_distribution<double> unit(0, 1);
    std::uniform_int_distribution<int> small(0, 4);
    for (int iteration = 0; iteration < 200; ++iteration) {
        EditDecision edit(unit(random) * 3600);
        for (int splits = small(random); splits > 0; --splits) {
            edit.split(unit(random) * edit.outputDuration());
        }
        edit.speed = iteration % 3 == 0 ? 1 : 0.25 + unit(random) * 3.75;
        if (iteration % 2 == 0) {
            // Inside the picture, one of them with its height written negative.
            const double width = 0.01 + 0.99 * unit(random);
            const double height = 0.01 + 0.99 * unit(random);
            edit.crop = Rect{unit(random) * (1 - width), height + unit(random) * (1 - height),
                             width, -height};
        }
        for (int tracks = small(random); tracks > 0; --tracks) {
            edit.volumes[small(random) - 1] = unit(random) * 2;
        }
        const auto decoded = decodeEditDecision(encode(edit));
        ASSERT_TRUE(decoded.ok()) << decoded.error();
        EXPECT_EQ(decoded.value(), edit) << encode(edit);
    }
}

TEST(EditDecisionCoding, RejectsWhatDoesNotMatch) {
    const struct {
        std::string json;
        const char* message;
    } cases[] = {
        // clang-format off
        {sampleWith("volumes", nullptr), "The edit is not valid: \"volumes\" is missing."},
        {sampleWith("sourceDuration", nullptr), "\"sourceDuration\" is missing."},
        {sampleWith("speed", "null"), "\"speed\" is null."},
        {sampleWith("speed", "\"fast\""), "\"speed\" must be a number, not string."},
        {sampleWith("clips", "{}"), "\"clips\" must be an array."},
        {sampleWith("clips", R"([{"id": "E621E1F8-C36C-495A-93FC-0C247A3E6E5", "start": 0, "end": 1}])"),
         "\"clips[0].id\" is not a UUID."},
        {sampleWith("clips", R"([{"id": "E621E1F8-C36C-495A-93FC-0C247A3E6E5F", "end": 1}])"),
         "\"clips[0].start\" is missing."},
        {sampleWith("clips", "[3]"), "\"clips[0]\" must be an object."},
        {sampleWith("crop", "[[0, 0], [1]]"), "\"crop\" must be a rectangle"},
        {sampleWith("crop", "{\"x\": 0}"), "\"crop\" must be a rectangle"},
        {sampleWith("crop", "[[0, 0], [1, true]]"), "\"crop.height\" must be a number"},
        {sampleWith("volumes", "[1]"), "\"volumes\" must be an object."},
        {sampleWith("volumes", "{\"1\": \"loud\"}"), "\"volumes.1\" must be a number"},
        {"[]", "The edit is not valid: it is not a JSON object."},
        {"{\"sourceDuration\": 1,", "The edit is not valid: it is not well-formed JSON."},
        // clang-format on
    };
    for (const auto& c : cases) {
        const auto result = decodeEditDecision(c.json);
        ASSERT_FALSE(result.ok()) << c.json;
        EXPECT_NE(result.error().find(c.message), std::string::npos) << result.error();
    }
    for (const char* track : {"one", "01", "+1", "-0", "", " 1", "1.0", "2147483648"}) {
        const std::string volumes = "{\"" + std::string(track) + "\": 1}";
        const auto result = decodeEditDecision(sampleWith("volumes", volumes.c_str()));
        ASSERT_FALSE(result.ok()) << track;
        EXPECT_NE(result.error().find("track number"), std::string::npos) << result.error();
    }
    EXPECT_EQ(decodeEditDecision(sampleWith("volumes", R"({"-2147483648": 1, "0": 3})"))->volumes,
              (std::map<int, double>{{-2147483648, 1}, {0, 3}}));
}

// Values that JSON holds but no movie can be made of are refused with the reason,
// before anything converts them (1e300 seconds once stopped the process).
TEST(EditDecisionCoding, TakesValuesAsTheyStandAndProblemRefusesWhatCannotMakeAMovie) {
    const auto clips = [](const char* start, const char* end) {
        return std::string(R"([{"id": "E621E1F8-C36C-495A-93FC-0C247A3E6E5F", "start": )") + start +
               ", \"end\": " + end + "}]";
    };
    const struct {
        std::string json;
        const char* message;
    } cases[] = {
        // clang-format off
        {sampleWith("clips", clips("1e300", "1e308").c_str()), "\"clips[0].start\" lies beyond"},
        {sampleWith("clips", clips("0", "1e308").c_str()), "\"clips[0].end\" lies beyond"},
        {sampleWith("clips", clips("-1e300", "1").c_str()), "\"clips[0].start\" lies beyond"},
        {sampleWith("sourceDuration", "1e300"), "\"sourceDuration\" lies beyond"},
        {sampleWith("clips", clips("3", "2").c_str()), "\"clips[0]\" ends before it starts."},
        {sampleWith("clips", clips("2", "2").c_str()), "\"clips[0]\" ends before it starts."},
        {sampleWith("clips", "[]"), "the edit keeps no clip."},
        {sampleWith("speed", "0"), "\"speed\" must be above 0."},
        {sampleWith("speed", "-1"), "\"speed\" must be above 0."},
        {sampleWith("crop", "[[1.5, 0], [0.5, 0.5]]"), "\"crop\" reaches outside the picture."},
        {sampleWith("crop", "[[0.5, 0.5], [0.6, 0.2]]"), "\"crop\" reaches outside the picture."},
        {sampleWith("crop", "[[0.5, 0.1], [0.2, -0.2]]"), "\"crop\" reaches outside the picture."},
        {sampleWith("crop", "[[0, 0], [1e308, 1]]"), "\"crop\" reaches outside the picture."},
        {sampleWith("crop", "[[0.2, 0.2], [0, 0.5]]"), "\"crop\" is empty."},
        {sampleWith("volumes", R"({"1": -0.5})"), "\"volumes.1\" must be 0 or more."},
        // clang-format on
    };
    // Decoding takes the values as they stand; problem() refuses them before use.
    for (const auto& c : cases) {
        const auto result = decodeEditDecision(c.json);
        ASSERT_TRUE(result.ok()) << c.json;
        const std::optional<std::string> problem = result->problem();
        ASSERT_TRUE(problem.has_value()) << c.json;
        EXPECT_NE(problem->find(c.message), std::string::npos) << *problem;
    }
    // The edges themselves are fine: a crop of the whole picture, standardised or not.
    EXPECT_FALSE(decodeEditDecision(sampleWith("crop", "[[0, 0], [1, 1]]"))->problem());
    EXPECT_FALSE(decodeEditDecision(sampleWith("crop", "[[1, 1], [-1, -1]]"))->problem());
}

} // namespace
} // namespace lumenvale
