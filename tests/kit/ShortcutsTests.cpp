#include "LumenvaleKit/Shortcuts.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

namespace lumenvale {
namespace {

TEST(Combo, Coding) {
    const Combo combo{15, Mods(Mods::control | Mods::shift)};
    EXPECT_EQ(nlohmann::json::parse(encode(combo)),
              nlohmann::json::parse(R"({"keyCode": 15, "mods": 5})"));
    const Combo extreme{std::numeric_limits<std::int64_t>::min(), Mods(-1)};
    EXPECT_EQ(decodeCombo(encode(extreme)).value(), extreme);
    EXPECT_EQ(decodeCombo(R"({"keyCode": 53, "mods": 0})").value(), (Combo{53, Mods()}));
    EXPECT_EQ(decodeCombo(R"({"mods": 1e1, "keyCode": 2.0, "x": 1})").value(),
              (Combo{2, Mods(10)}));
    // clang-format off
    for (const char* bad : {R"({"mods": 0})", R"({"keyCode": null, "mods": 0})",
             R"({"keyCode": "53", "mods": 0})", R"({"keyCode": 53, "mods": 1.5})",
             R"({"keyCode": true, "mods": 0})", R"({"keyCode": 53, "mods": [1]})",
             R"({"keyCode": 9223372036854775808, "mods": 0})", "[53, 0]", "53", "", "{",
             R"({"keyCode": 53, "mods": 0} x)"}) {
        // clang-format on
        const auto result = decodeCombo(bad);
        ASSERT_FALSE(result.ok()) << bad;
        EXPECT_EQ(result.error().rfind("The shortcut is not valid: ", 0), 0u) << result.error();
    }
    EXPECT_EQ(decodeCombo(R"({"keyCode": 53})").error(),
              "The shortcut is not valid: \"mods\" is missing.");
}

TEST(RecAction, RawValuesStorageKeysAndIds) {
    const struct {
        RecAction action;
        const char* raw;
    } cases[] = {{RecAction::screen, "screen"},
                 {RecAction::area, "area"},
                 {RecAction::window, "window"},
                 {RecAction::stop, "stop"}};
    for (int id = 0; id < 4; ++id) {
        const auto& c = cases[id];
        EXPECT_EQ(allRecActions[static_cast<std::size_t>(id)], c.action);
        EXPECT_EQ(hotkeyID(c.action), id);
        EXPECT_EQ(rawValue(c.action), c.raw);
        EXPECT_EQ(storageKey(c.action), std::string("hotkey.") + c.raw);
        EXPECT_EQ(recActionFromRawValue(c.raw), c.action);
        EXPECT_EQ(recActionFromHotkeyID(id), c.action);
    }
    EXPECT_FALSE(recActionFromHotkeyID(4));
    for (const char* other : {"Screen", "STOP", "", "screen "}) {
        EXPECT_FALSE(recActionFromRawValue(other)) << other;
    }
}

} // namespace
} // namespace lumenvale
