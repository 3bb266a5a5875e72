#include "LumenvaleKit/RecordingOptions.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <random>

namespace lumenvale {
namespace {

TEST(RecordingOptions, DefaultsAndTheirCoding) {
    const RecordingOptions defaults;
    EXPECT_EQ(decodeRecordingOptions("{}").value(), defaults);
    const auto written = nlohmann::ordered_json::parse(encode(defaults));
    EXPECT_EQ(written, nlohmann::ordered_json::parse(
                           R"({"fps": 30, "codec": "h264", "showsPointer": true,
                               "showsClicks": false, "countdown": true, "systemAudio": true,
                               "microphone": false, "camera": false, "bubbleDiameter": 200.0})"));
    EXPECT_TRUE(written["fps"].is_number_integer());
    EXPECT_TRUE(written["bubbleDiameter"].is_number_float());
}

TEST(RecordingOptions, FullRecordInFieldOrder) {
    RecordingOptions options;
    options.fps = 60;
    options.codec = Codec::hevc;
    options.microphoneID = "alsa_input.usb-mic";
    options.bubbleFrame = Rect{10.5, -20, 200, 200};
    options.folderPath = "/home/me/Videos/Räume \"quoted\"";
    const auto written = nlohmann::ordered_json::parse(encode(options));
    std::vector<std::string> keys;
    for (const auto& item : written.items()) {
        keys.push_back(item.key());
    }
    EXPECT_EQ(keys,
              (std::vector<std::string>{"fps", "codec", "showsPointer", "showsClicks", "countdown",
                                        "systemAudio", "microphone", "microphoneID", "camera",
                                        "bubbleDiameter", "bubbleFrame", "folderPath"}));
    EXPECT_EQ(written["codec"], "hevc");
    EXPECT_EQ(written["bubbleFrame"], nlohmann::ordered_json::parse("[[10.5, -20], [200, 200]]"));
    EXPECT_EQ(decodeRecordingOptions(encode(options)).value(), options);
}

TEST(RecordingOptions, MissingOrNullKeepsTheDefaultAndValuesAreNotChecked) {
    const auto decoded = decodeRecordingOptions(
        R"({"fps": 0, "codec": null, "countdown": false, "microphoneID": null,
            "bubbleDiameter": -5, "bubbleFrame": null, "unknown": [1, 2]})");
    ASSERT_TRUE(decoded.ok()) << decoded.error();
    RecordingOptions expected;
    expected.fps = 0;
    expected.countdown = false;
    expected.bubbleDiameter = -5;
    EXPECT_EQ(decoded.value(), expected);
    EXPECT_EQ(decodeRecordingOptions(R"({"fps": 24.0, "bubbleDiameter": 150})")->fps, 24);
}

TEST(RecordingOptions, WrongTypesFailTheWholeRecord) {
    const struct {
        const char* json;
        const char* message;
    } cases[] = {
        {R"({"fps": "30"})", "\"fps\" must be an integer"},
        {R"({"fps": 29.97})", "\"fps\" must be a whole number."},
        {R"({"fps": 1e19})", "\"fps\" must be a whole number."},
        {R"({"fps": 9223372036854775808})", "\"fps\" is too large."},
        {R"({"codec": "H264"})", "\"codec\" must be \"h264\" or \"hevc\""},
        {R"({"codec": 1})", "\"codec\" must be a string"},
        {R"({"showsPointer": 1})", "\"showsPointer\" must be true or false"},
        {R"({"camera": "true"})", "\"camera\" must be true or false"},
        {R"({"microphoneID": 7})", "\"microphoneID\" must be a string"},
        {R"({"bubbleDiameter": "big"})", "\"bubbleDiameter\" must be a number"},
        {R"({"bubbleFrame": [1, 2, 3, 4]})", "\"bubbleFrame\" must be a rectangle"},
        {R"({"bubbleFrame": [[1, 2], ["3", 4]]})", "\"bubbleFrame.width\" must be a number"},
        {R"({"folderPath": ["/tmp"]})", "\"folderPath\" must be a string"},
        {R"("options")", "it is not a JSON object."},
        {R"({"fps": 30,})", "it is not well-formed JSON."},
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
    std::uniform_int_distribution<std::int64_t> anyInteger(
        std::numeric_limits<std::int64_t>::min(), std::numeric_limits<std::int64_t>::max());
    for (int iteration = 0; iteration < 200; ++iteration) {
        RecordingOptions options;
        options.fps = iteration % 4 == 0 ? anyInteger(random) : 1 + iteration % 120;
        options.codec = allCodecs[static_cast<std::size_t>(coin(random))];
        options.showsPointer = coin(random) != 0;
        options.showsClicks = coin(random) != 0;
        options.countdown = coin(random) != 0;
        options.systemAudio = coin(random) != 0;
        options.microphone = coin(random) != 0;
        if (coin(random) != 0) {
            options.microphoneID = "source-" + std::to_string(random()) + "\n\"ü\u2318";
        }
        options.camera = coin(random) != 0;
        options.bubbleDiameter = points(random);
        if (coin(random) != 0) {
            options.bubbleFrame = Rect{points(random), points(random), points(random), 1e-300};
        }
        if (coin(random) != 0) {
            options.folderPath = "/home/user/" + std::to_string(random());
        }
        const auto decoded = decodeRecordingOptions(encode(options));
        ASSERT_TRUE(decoded.ok()) << decoded.error();
        EXPECT_EQ(decoded.value(), options) << encode(options);
    }
}

} // namespace
} // namespace lumenvale
