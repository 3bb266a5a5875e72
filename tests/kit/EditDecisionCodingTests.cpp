#include "LumenvaleKit/EditDecision.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <random>

namespace lumenvale {
namespace {

const char* const sampleEdit = R"({"sourceDuration": 12.5,
  "clips": [{"id": "e621e1f8-c36c-495a-93fc-0c247a3e6e5f", "start": 0, "end": 4.25},
            {"id": "0F6F5B3A-1C2D-4E5F-8A9B-0C1D2E3F4A5B", "start": 6, "end": 12.5}],
  "speed": 1.5, "crop": [[0.1, 0.2], [0.5, 0.25]], "volumes": {"1": 0.5, "-3": 2, "20": 0}})";

TEST(EditDecisionCoding, WritesKeysInOrderAndOmitsAbsentCrop) {
    const auto decoded = decodeEditDecision(sampleEdit);
    ASSERT_TRUE(decoded.ok()) << decoded.error();
    const EditDecision& edit = *decoded;
    EXPECT_EQ(edit.clips[0].id.text(), "E621E1F8-C36C-495A-93FC-0C247A3E6E5F");
    EXPECT_EQ(edit.clips[1].start, 6);
    EXPECT_EQ(edit.crop, (Rect{0.1, 0.2, 0.5, 0.25}));
    EXPECT_EQ(edit.volumes, (std::map<int, double>{{-3, 2}, {1, 0.5}, {20, 0}}));

    const auto written = nlohmann::ordered_json::parse(encode(edit));
    std::vector<std::string> keys;
    for (const auto& item : written.items()) {
        keys.push_back(item.key());
    }
    EXPECT_EQ(keys,
              (std::vector<std::string>{"sourceDuration", "clips", "speed", "crop", "volumes"}));
    EXPECT_EQ(written["clips"][0]["id"], "E621E1F8-C36C-495A-93FC-0C247A3E6E5F");
    EXPECT_EQ(written["volumes"]["-3"], 2.0);
    EXPECT_EQ(written["crop"], nlohmann::ordered_json::parse("[[0.1, 0.2], [0.5, 0.25]]"));

    EditDecision uncropped = edit;
    uncropped.crop.reset();
    EXPECT_FALSE(nlohmann::json::parse(encode(uncropped)).contains("crop"));
    std::string nullCrop = sampleEdit;
    nullCrop.replace(nullCrop.find("[[0.1"), std::string("[[0.1, 0.2], [0.5, 0.25]]").size(),
                     "null");
    EXPECT_EQ(decodeEditDecision(nullCrop).value(), uncropped);
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
            edit.crop = Rect{unit(random), unit(random), unit(random), -unit(random)};
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
    const auto edited = [](const char* key, const char* value) {
        auto json = nlohmann::ordered_json::parse(sampleEdit);
        if (value == nullptr) {
            json.erase(key);
        } else {
            json[key] = nlohmann::ordered_json::parse(value);
        }
        return json.dump();
    };
    const struct {
        std::string json;
        const char* message;
    } cases[] = {
        {edited("volumes", nullptr), "The edit is not valid: \"volumes\" is missing."},
        {edited("sourceDuration", nullptr), "\"sourceDuration\" is missing."},
        {edited("clips", nullptr), "\"clips\" is missing."},
        {edited("speed", "null"), "\"speed\" is null."},
        {edited("speed", "\"fast\""), "\"speed\" must be a number"},
        {edited("clips", "{}"), "\"clips\" must be an array."},
        {edited("clips",
                "[{\"id\": \"E621E1F8-C36C-495A-93FC-0C247A3E6E5\", \"start\": 0, \"end\": 1}]"),
         "\"clips[0].id\" is not a UUID."},
        {edited("clips", "[{\"id\": \"E621E1F8-C36C-495A-93FC-0C247A3E6E5F\", \"end\": 1}]"),
         "\"clips[0].start\" is missing."},
        {edited("clips", "[3]"), "\"clips[0]\" must be an object."},
        {edited("crop", "[[0, 0], [1]]"), "\"crop\" must be a rectangle"},
        {edited("crop", "[[0, 0], [1, 1], [2, 2]]"), "\"crop\" must be a rectangle"},
        {edited("crop", "[[0, 0], [1, true]]"), "\"crop.height\" must be a number"},
        {edited("crop", "{\"x\": 0}"), "\"crop\" must be a rectangle"},
        {edited("volumes", "[1]"), "\"volumes\" must be an object."},
        {edited("volumes", "{\"1\": \"loud\"}"), "\"volumes.1\" must be a number"},
        {edited("volumes", "{\"one\": 1}"), "track number \"one\""},
        {edited("volumes", "{\"01\": 1}"), "track number \"01\""},
        {edited("volumes", "{\"+1\": 1}"), "track number \"+1\""},
        {edited("volumes", "{\"-0\": 1}"), "track number \"-0\""},
        {edited("volumes", "{\"\": 1}"), "track number \"\""},
        {edited("volumes", "{\"2147483648\": 1}"), "track number \"2147483648\""},
        {"[]", "The edit is not valid: it is not a JSON object."},
        {"{\"sourceDuration\": 1,", "The edit is not valid: it is not well-formed JSON."},
        {"", "it is not well-formed JSON."},
    };
    for (const auto& c : cases) {
        const auto result = decodeEditDecision(c.json);
        ASSERT_FALSE(result.ok()) << c.json;
        EXPECT_NE(result.error().find(c.message), std::string::npos) << result.error();
    }
    EXPECT_EQ(decodeEditDecision(edited("volumes", "{\"-2147483648\": 1, \"0\": 3}"))->volumes,
              (std::map<int, double>{{-2147483648, 1}, {0, 3}}));
}

} // namespace
} // namespace lumenvale
