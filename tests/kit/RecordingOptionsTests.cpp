#include "LumenvaleKit/RecordingOptions.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <random>

namespace lumenvale {
namespace {

using Json = nlohmann::ordered_json;

TEST(RecordingOptions, DefaultsMissingKeysAndKeyOrder) {
    EXPECT_EQ(decodeRecordingOptions("{}").value(), RecordingOptions());
    EXPECT_EQ(Json::parse(encode(RecordingOptions())),
              Json::parse(R"({"fps": 30, "codec": "h264", "showsPointer": true,
        "showsClicks": false, "countdown": true, "systemAudio": true, "microphone": false,
        "camera": false, "bubbleDiameter": 200.0})"));

    // Missing or null keeps the default; values are taken as they stand.
    const auto decoded = decodeRecordingOptions(
        R"({"fps": 24.0, "codec": null, "countdown": false, "microphoneID": null,
            "bubbleDiameter": -5, "bubbleFrame": null, "unknown": [1, 2]})");
    RecordingOptions expected;
    expected.fps = 24;
    expected.countdown = false;
    expected.bubbleDiameter = -5;
    EXPECT_EQ(decoded.value(), expected);

    expected.microphoneID = "alsa_input.usb-mic";
    expected.bubbleFrame = Rect{10.5, -20, 200, 200};
    expected.folderPath = "/home/me/Videos";
    const Json written = Json::parse(encode(expected));
    std::string keys;
    for (const auto& item : written.items()) {
        keys += item.key() + " ";
    }
    EXPECT_EQ(keys, "fps codec showsPointer showsClicks countdown systemAudio microphone "
                    "microphoneID camera bubbleDiameter bubbleFrame folderPath ");
    EXPECT_EQ(written["bubbleFrame"], Json::parse("[[10.5, -20], [200, 200]]"));
}

TEST(RecordingOptions, WrongTypesFailTheWholeRecord) {
    const struct {
        const char *json, *message;
    } cases[] = {
        // clang-format off
        {R"({"fps": "30"})", "\"fps\" must be an integer, not string."},
        {R"({"fps": 29.97})", "\"fps\" must be a whole number."},
        {R"({"fps": 1e19})", "\"fps\" must be a whole number."},
        {R"({"fps": 9223372036854775808})", "\"fps\" is too large."},
        {R"({"codec": "H264"})", "\"codec\" must be \"h264\" or \"hevc\", not \"H264\"."},
        {R"({"codec": 1})", "\"codec\" must be a string"},
        {R"({"showsPointer": 1})", "\"showsPointer\" must be true or false, not number."},
        {R"({"microphoneID": 7})", "\"microphoneID\" must be a string"},
        {R"({"bubbleDiameter": "big"})", "\"bubbleDiameter\" must be a number"},
        {R"({"bubbleFrame": [1, 2, 3, 4]})", "\"bubbleFrame\" must be a rectangle"},
        {R"({"bubbleFrame": [[1, 2], ["3", 4]]})", "\"bubbleFrame.width\" must be a number"},
        {R"("options")", "it is not a JSON object."},
        {R"({"fps": 30,})", "it is not well-formed JSON."},
        // clang-format on
    };
    for (const auto& c : cases) {
        const auto result = decodeRecordingOptions(c.json);
        ASSERT_FALSE(result.ok()) << c.json;
        EXPECT_EQ(result.error().rfind("The recording options are not valid: ", 0), 0u);
        EXPECT_NE(result.error().find(c.message), std::string::npos) << result.error();
    }
}

TEST(RecordingOptions, RandomRecordsSurviveARoundTrip) {
    std::mt19937_64 random(42);
    std::uniform_int_distribution<int> coin(0, 1);
    std::uniform_real_distribution<double> points(-5000, 5000);
    for (int iteration = 0; iteration < 200; ++iteration) {
        RecordingOptions options;
        options.fps = iteration % 4 == 0 ? static_cast<std::int64_t>(random()) : iteration % 120;
        options.codec = allCodecs[static_cast<std::size_t>(coin(random))];
        for (bool* flag : {&options.showsPointer, &options.showsClicks, &options.countdown,
                           &options.systemAudio, &options.microphone, &options.camera}) {
            *flag = coin(random) != 0;
        }
        if (coin(random) != 0) {
            options.microphoneID = "source-" + std::to_string(random()) + "\n\"ü\u2318";
        }
        options.bubbleDiameter = points(random);
        if (coin(random) != 0) {
            options.bubbleFrame = Rect{points(random), points(random), points(random), 1e-300};
        }
        if (coin(random) != 0) {
            options.folderPath = "/home/user/Räume/" + std::to_string(random());
        }
        const auto decoded = decodeRecordingOptions(encode(options));
        ASSERT_TRUE(decoded.ok()) << decoded.error();
        EXPECT_EQ(decoded.value(), options) << encode(options);
    }
}

} // namespace
} // namespace lumenvale
