#include "LumenvaleKit/Mods.h"

#include <gtest/gtest.h>
#include <unordered_set>

namespace lumenvale {
namespace {

TEST(Mods, SymbolsNamesAndShortcutRule) {
    const struct {
        std::int64_t raw;
        const char *symbols, *linuxNames;
        bool isShortcut;
    } cases[] = {
        // clang-format off
        {0, "", "", false},         {1, "⌃", "Ctrl+", true},   {2, "⌥", "Alt+", true},
        {4, "⇧", "Shift+", false},  {8, "⌘", "Super+", true},  {12, "⇧⌘", "Shift+Super+", true},
        {5, "⌃⇧", "Ctrl+Shift+", true}, {15, "⌃⌥⇧⌘", "Ctrl+Alt+Shift+Super+", true},
        {16, "", "", false},        {20, "⇧", "Shift+", false}, // unknown bits are never shown
        // clang-format on
    };
    for (const auto& c : cases) {
        EXPECT_EQ(Mods(c.raw).symbols(), c.symbols) << c.raw;
        EXPECT_EQ(Mods(c.raw).linuxNames(), c.linuxNames) << c.raw;
        EXPECT_EQ(Mods(c.raw).isShortcut(), c.isShortcut) << c.raw;
    }
    // The order of building does not matter.
    EXPECT_EQ(Mods::of({Mods::command, Mods::control}).symbols(), "⌃⌘");
    const Mods a(Mods::control | Mods::shift), b(Mods::shift | Mods::command);
    EXPECT_EQ(a.subtracting(b), Mods(Mods::control));
    EXPECT_EQ(a.symmetricDifference(b), Mods(9));
    EXPECT_FALSE(a.isSubset(b));
    EXPECT_EQ((std::unordered_set<Mods>{Mods(1), Mods::of({Mods::control}), Mods(2)}).size(), 2u);
}

} // namespace
} // namespace lumenvale
