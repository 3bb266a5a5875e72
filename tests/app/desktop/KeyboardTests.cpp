// The session's keyboard as xkbcommon reads it from the X server: what keys type in
// the current layout, and which key types a symbol, both through the one table of
// stored key codes; and the labels keys show, upper-cased by Unicode's rules.

#include "desktop/Desktop.h"
#include "desktop/KeyboardLayout.h"

#include <QProcess>
#include <gtest/gtest.h>

namespace lumenvale {
namespace {

void setLayout(const QString& layout) {
    ASSERT_EQ(QProcess::execute(QStringLiteral("setxkbmap"), {layout}), 0);
}

TEST(Keyboard, WhatKeysTypeInTheCurrentLayout) {
    ASSERT_NO_FATAL_FAILURE(setLayout(QStringLiteral("us")));
    const std::unique_ptr<Keyboard> keyboard = Desktop::makeKeyboard();
    EXPECT_EQ(KeyboardLayout::label(15), "R");
    EXPECT_EQ(keyboard->character(0x10), "y");
    EXPECT_EQ(keyboard->character(0x2B), ",");
    EXPECT_EQ(keyboard->character(53), std::nullopt) << "Escape types no printable character";
    EXPECT_EQ(keyboard->character(122), std::nullopt) << "F1";
    EXPECT_EQ(keyboard->character(127), std::nullopt) << "no such key code";
    EXPECT_EQ(
        keyboard->keysTyping({"l", "Page_Up", ",", "plus", "XF86AudioMute", "F5", "nokey"}),
        (std::vector<std::optional<std::int64_t>>{0x25, 116, 0x2B, 0x18, 0x4A, 96, std::nullopt}));

    // Every key of the main block that types a character (the keypad's types keypad
    // symbols): the key typing that character is that key.
    int printable = 0;
    for (std::int64_t keyCode = 0; keyCode < 0x41; ++keyCode) {
        if (const auto character = keyboard->character(keyCode)) {
            ++printable;
            const auto key = keyboard->keysTyping({*character}).front();
            EXPECT_EQ(key, keyCode) << *character;
        }
    }
    EXPECT_GE(printable, 47) << "letters, digits and punctuation of a US keyboard";

    // A German layout swaps Y and Z; the next call reads it.
    ASSERT_NO_FATAL_FAILURE(setLayout(QStringLiteral("de")));
    EXPECT_EQ(keyboard->character(0x10), "z");
    EXPECT_EQ(KeyboardLayout::label(0x10), "Z");
    EXPECT_EQ(KeyboardLayout::label(0x1B), "ß") << "the key right of 0 keeps its one letter";
    EXPECT_EQ(keyboard->keysTyping({"y"}).front(), 0x06);
    ASSERT_NO_FATAL_FAILURE(setLayout(QStringLiteral("us")));
}

TEST(Keyboard, LabelsAreUpperCasedByUnicode) {
    const std::pair<const char*, const char*> cases[] = {
        // clang-format off
        {"r", "R"}, {",", ","}, {"ö", "Ö"}, {"ÿ", "Ÿ"}, {"ж", "Ж"}, {"ς", "Σ"},
        {"ș", "Ș"}, {"ơ", "Ơ"}, {"ə", "Ə"}, {"ґ", "Ґ"}, {"ա", "Ա"},
        // More than one letter in upper case: kept as typed (KeyboardLayout.h says why).
        {"ß", "ß"}, {"ŉ", "ŉ"},
        // clang-format on
    };
    for (const auto& [typed, shown] : cases) {
        EXPECT_EQ(KeyboardLayout::labelOf(typed), shown) << typed;
    }
}

} // namespace
} // namespace lumenvale
