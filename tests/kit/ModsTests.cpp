#include "LumenvaleKit/Mods.h"

#include <gtest/gtest.h>
#include <unordered_set>

namespace lumenvale {
namespace {

TEST(Mods, SymbolsNamesAndShortcutRule) {
    const struct {
        std::int64_t raw;
        const char* symbols;
        const char* linuxNames;
        bool isShortcut;
    } cases[] = {
        {0, "", "", false},
        {1, "⌃", "Ctrl+", true},
        {2, "⌥", "Alt+", true},
        {4, "⇧", "Shift+", false},
        {8, "⌘", "Super+", true},
        {12, "⇧⌘", "Shift+Super+", true},
        {5, "⌃⇧", "Ctrl+Shift+", true},
        {15, "⌃⌥⇧⌘", "Ctrl+Alt+Shift+Super+", true},
        // Bits beyond the four members are carried but never shown.
        {16, "", "", false},
        {20, "⇧", "Shift+", false},
    };
    for (const auto& c : cases) {
        const Mods mods(c.raw);
        EXPECT_EQ(mods.symbols(), c.symbols) << c.raw;
        EXPECT_EQ(mods.linuxNames(), c.linuxNames) << c.raw;
        EXPECT_EQ(mods.isShortcut(), c.isShortcut) << c.raw;
    }
}

TEST(Mods, SetAlgebra) {
    const Mods commandThenControl = Mods::of({Mods::command, Mods::control});
    EXPECT_EQ(commandThenControl.symbols(), "⌃⌘");
    EXPECT_EQ(commandThenControl, Mods(9));

    Mods mods;
    EXPECT_TRUE(mods.isEmpty());
    mods.insert(Mods(Mods::shift));
    mods.insert(Mods(Mods::option));
    EXPECT_EQ(mods.rawValue, 6);
    mods.remove(Mods(Mods::shift));
    EXPECT_EQ(mods, Mods(Mods::option));

    const Mods a(Mods::control | Mods::shift), b(Mods::shift | Mods::command);
    EXPECT_EQ(a.unionWith(b), Mods(13));
    EXPECT_EQ(a.intersection(b), Mods(4));
    EXPECT_EQ(a.symmetricDifference(b), Mods(9));
    EXPECT_EQ(a.subtracting(b), Mods(1));
    EXPECT_TRUE(Mods(15).isSuperset(a));
    EXPECT_TRUE(a.isSubset(Mods(15)));
    EXPECT_FALSE(a.isSubset(b));
    EXPECT_TRUE(a.contains(Mods(Mods::control)));
    EXPECT_FALSE(a.contains(b));
    EXPECT_TRUE(Mods(1).isDisjoint(Mods(2)));
    EXPECT_FALSE(a.isDisjoint(b));

    const std::unordered_set<Mods> set{Mods(1), Mods::of({Mods::control}), Mods(2)};
    EXPECT_EQ(set.size(), 2u);
}

} // namespace
} // namespace lumenvale
