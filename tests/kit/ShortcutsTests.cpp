#include "LumenvaleKit/Shortcuts.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

namespace lumenvale {
namespace {

TEST(Combo, EncodesAsKeyCodeAndBareMods) {
    const Combo combo{15, Mods(Mods::control | Mods::shift)};
    const auto json = nlohmann::json::parse(encode(combo));
    EXPECT_EQ(json, nlohmann::json::parse(R"({"keyCode": 15, "mods": 5})"));
    EXPECT_EQ(decodeCombo(encode(combo)).value(), combo);
    const Combo extreme{-9223372036854775807 - 1, Mods(9223372036854775807)};
    EXPECT_EQ(decodeCombo(encode(extreme)).value(), extreme);
}

TEST(Combo, Decoding) {
    EXPECT_EQ(decodeCombo(R"({"keyCode": 53, "mods": 0})").value(), (Combo{53, Mods()}));
    EXPECT_EQ(decodeCombo(R"({"mods": 8, "keyCode": 0, "other": [1]})").value(),
              (Combo{0, Mods(8)}));
    EXPECT_EQ(decodeCombo(R"({"keyCode": 2.0, "mods": 1e1})").value(), (Combo{2, Mods(10)}));
    for (const char* bad : {
             R"({"keyCode": 53})",
             R"({"mods": 0})",
             R"({"keyCode": null, "mods": 0})",
             R"({"keyCode": "53", "mods": 0})",
             R"({"keyCode": 53, "mods": 1.5})",
             R"({"keyCode": true, "mods": 0})",
             R"({"keyCode": 53, "mods": [1]})",
             R"({"keyCode": 9223372036854775808, "mods": 0})",
             R"([53, 0])",
             "53",
             "",
             "{",
             R"({"keyCode": 53, "mods": 0} x)",
         }) {
        const auto result = decodeCombo(bad);
        ASSERT_FALSE(result.ok()) << bad;
        EXPECT_EQ(result.error().rfind("The shortcut is not valid: ", 0), 0u) << result.error();
    }
    EXPECT_EQ(decodeCombo(R"({"keyCode": 53})").error(),
              "The shortcut is not valid: \"mods\" is missing.");
}

TEST(RecAction, RawValuesTitlesAndIds) {
    const struct {
        RecAction action;
        const char* raw;
        const char* title;
        const char* key;
    } cases[] = {
        {RecAction::screen, "screen", "Record Screen", "hotkey.screen"},
        {RecAction::area, "area", "Record Area", "hotkey.area"},
        {RecAction::window, "window", "Record Window", "hotkey.window"},
        {RecAction::stop, "stop", "Stop Recording", "hotkey.stop"},
    };
    int id = 0;
    for (const auto& c : cases) {
        EXPECT_EQ(allRecActions[static_cast<std::size_t>(id)], c.action);
        EXPECT_EQ(hotkeyID(c.action), id++);
        EXPECT_EQ(rawValue(c.action), c.raw);
        EXPECT_EQ(title(c.action), c.title);
        EXPECT_EQ(storageKey(c.action), c.key);
        EXPECT_EQ(recActionFromRawValue(c.raw), c.action);
    }
    for (const char* other : {"Screen", "STOP", "", "screen ", "record"}) {
        EXPECT_FALSE(recActionFromRawValue(other)) << other;
    }
}

} // namespace
} // namespace lumenvale
