#include "LumenvaleKit/KeyNames.h"

#include <gtest/gtest.h>
#include <linux/input-event-codes.h>
#include <set>

namespace lumenvale {
namespace {

TEST(KeyNames, Display) {
    const Mods none, command(Mods::command);
    const std::optional<std::string> nothing;
    const struct {
        std::int64_t keyCode;
        Mods mods;
        std::optional<std::string> character;
        const char *glyphs, *linux;
    } cases[] = {
        // clang-format off
        {49, command, " ", "⌘Space", "Super+Space"},
        {0, Mods(Mods::control | Mods::option), "A", "⌃⌥A", "Ctrl+Alt+A"},
        {0, command, nothing, "⌘?", "Super+?"},
        {15, Mods(Mods::control | Mods::shift), "R", "⌃⇧R", "Ctrl+Shift+R"},
        {96, command, "x", "⌘F5", "Super+F5"},
        {96, none, nothing, "F5", "F5"},
        {36, Mods(15), "\r", "⌃⌥⇧⌘↩", "Ctrl+Alt+Shift+Super+Return"},
        {51, none, nothing, "⌫", "Backspace"},     {117, none, nothing, "⌦", "Delete"},
        {76, none, nothing, "⌤", "Enter"},         {116, none, nothing, "⇞", "Page Up"},
        {125, none, nothing, "↓", "Down"},         {27, command, "-", "⌘-", "Super+-"},
        // The label is the application's (upper-cased there), shown byte for byte.
        {41, command, "Ö", "⌘Ö", "Super+Ö"},      {1, command, "ß", "⌘ß", "Super+ß"},
        {8, command, "\xff", "⌘\xff", "Super+\xff"},
        // clang-format on
    };
    for (const auto& c : cases) {
        EXPECT_EQ(KeyNames::display(c.keyCode, c.mods, c.character), c.glyphs) << c.keyCode;
        EXPECT_EQ(KeyNames::linuxDisplay(c.keyCode, c.mods, c.character), c.linux) << c.keyCode;
    }
}

TEST(KeyNames, EvdevTableIsOneToOneAndCoversTheNamedKeys) {
    const std::pair<int, std::int64_t> samples[] = {
        // clang-format off
        {KEY_A, 0}, {KEY_R, 15}, {KEY_5, 23}, {KEY_0, 29}, {KEY_GRAVE, 50}, {KEY_102ND, 10},
        {KEY_ESC, 53}, {KEY_KPENTER, 76}, {KEY_DELETE, 117}, {KEY_F1, 122}, {KEY_F12, 111},
        {KEY_UP, 126}, {KEY_KP8, 91}, {KEY_KPDOT, 65}, {KEY_LEFTMETA, 55}, {KEY_F20, 90},
        // clang-format on
    };
    for (const auto& [evdev, keyCode] : samples) {
        EXPECT_EQ(KeyNames::fromEvdev(evdev), keyCode) << evdev;
        EXPECT_EQ(KeyNames::toEvdev(keyCode), evdev) << keyCode;
    }
    std::set<std::int64_t> keyCodes;
    for (int evdev = 0; evdev < 768; ++evdev) {
        if (const auto keyCode = KeyNames::fromEvdev(evdev)) {
            EXPECT_TRUE(keyCodes.insert(*keyCode).second) << "key code " << *keyCode << " twice";
            EXPECT_EQ(KeyNames::toEvdev(*keyCode), evdev);
        }
    }
    EXPECT_GT(keyCodes.size(), 100u);
    for (const auto& [keyCode, name] : KeyNames::special()) {
        EXPECT_TRUE(KeyNames::toEvdev(keyCode)) << name;
    }
    EXPECT_FALSE(KeyNames::fromEvdev(KEY_RESERVED));
    EXPECT_FALSE(KeyNames::toEvdev(-1));
    EXPECT_FALSE(KeyNames::toEvdev(127));
}

} // namespace
} // namespace lumenvale
