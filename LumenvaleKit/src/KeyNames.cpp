#include "LumenvaleKit/KeyNames.h"

#include <array>
#include <utility>

namespace lumenvale::KeyNames {

namespace {

struct SpecialKey {
    std::int64_t keyCode;
    const char* glyphName;
    const char* linuxName;
};

// The keys named by the application rather than by the keyboard layout.
constexpr SpecialKey specialKeys[] = {
    {36, "\u21A9", "Return"},
    {48, "\u21E5", "Tab"},
    {49, "Space", "Space"},
    {51, "\u232B", "Backspace"},
    {53, "\u238B", "Escape"},
    {76, "\u2324", "Enter"},
    {117, "\u2326", "Delete"},
    {115, "\u2196", "Home"},
    {119, "\u2198", "End"},
    {116, "\u21DE", "Page Up"},
    {121, "\u21DF", "Page Down"},
    {123, "\u2190", "Left"},
    {124, "\u2192", "Right"},
    {125, "\u2193", "Down"},
    {126, "\u2191", "Up"},
    {122, "F1", "F1"},
    {120, "F2", "F2"},
    {99, "F3", "F3"},
    {118, "F4", "F4"},
    {96, "F5", "F5"},
    {97, "F6", "F6"},
    {98, "F7", "F7"},
    {100, "F8", "F8"},
    {101, "F9", "F9"},
    {109, "F10", "F10"},
    {103, "F11", "F11"},
    {111, "F12", "F12"},
};

const SpecialKey* findSpecial(std::int64_t keyCode) {
    for (const SpecialKey& key : specialKeys) {
        if (key.keyCode == keyCode) {
            return &key;
        }
    }
    return nullptr;
}

// Physical keys: evdev code (linux/input-event-codes.h) and stored virtual key code.
// One table serves both directions, so it must stay one-to-one.
constexpr std::pair<int, std::int64_t> evdevToVirtual[] = {
    // Letters.
    {30, 0x00},
    {48, 0x0B},
    {46, 0x08},
    {32, 0x02},
    {18, 0x0E},
    {33, 0x03},
    {34, 0x05},
    {35, 0x04},
    {23, 0x22},
    {36, 0x26},
    {37, 0x28},
    {38, 0x25},
    {50, 0x2E},
    {49, 0x2D},
    {24, 0x1F},
    {25, 0x23},
    {16, 0x0C},
    {19, 0x0F},
    {31, 0x01},
    {20, 0x11},
    {22, 0x20},
    {47, 0x09},
    {17, 0x0D},
    {45, 0x07},
    {21, 0x10},
    {44, 0x06},
    // Digits 1 ... 9, 0.
    {2, 0x12},
    {3, 0x13},
    {4, 0x14},
    {5, 0x15},
    {6, 0x17},
    {7, 0x16},
    {8, 0x1A},
    {9, 0x1C},
    {10, 0x19},
    {11, 0x1D},
    // Punctuation: - = [ ] ; ' ` \ , . / and the ISO key beside left Shift.
    {12, 0x1B},
    {13, 0x18},
    {26, 0x21},
    {27, 0x1E},
    {39, 0x29},
    {40, 0x27},
    {41, 0x32},
    {43, 0x2A},
    {51, 0x2B},
    {52, 0x2F},
    {53, 0x2C},
    {86, 0x0A},
    // Return, Tab, Space, Backspace, Escape, keypad Enter, Delete, Home, End,
    // Page Up, Page Down, Left, Right, Down, Up, Insert (Help).
    {28, 36},
    {15, 48},
    {57, 49},
    {14, 51},
    {1, 53},
    {96, 76},
    {111, 117},
    {102, 115},
    {107, 119},
    {104, 116},
    {109, 121},
    {105, 123},
    {106, 124},
    {108, 125},
    {103, 126},
    {110, 114},
    // F1 ... F12.
    {59, 122},
    {60, 120},
    {61, 99},
    {62, 118},
    {63, 96},
    {64, 97},
    {65, 98},
    {66, 100},
    {67, 101},
    {68, 109},
    {87, 103},
    {88, 111},
    // F13 ... F20.
    {183, 0x69},
    {184, 0x6B},
    {185, 0x71},
    {186, 0x6A},
    {187, 0x40},
    {188, 0x4F},
    {189, 0x50},
    {190, 0x5A},
    // Keypad 0 ... 9, decimal, *, +, -, /, =, Num Lock (Clear).
    {82, 0x52},
    {79, 0x53},
    {80, 0x54},
    {81, 0x55},
    {75, 0x56},
    {76, 0x57},
    {77, 0x58},
    {71, 0x59},
    {72, 0x5B},
    {73, 0x5C},
    {83, 0x41},
    {55, 0x43},
    {78, 0x45},
    {74, 0x4E},
    {98, 0x4B},
    {117, 0x51},
    {69, 0x47},
    // Modifiers: left/right Ctrl, Shift, Alt, Super, Caps Lock, Fn.
    {29, 0x3B},
    {97, 0x3E},
    {42, 0x38},
    {54, 0x3C},
    {56, 0x3A},
    {100, 0x3D},
    {125, 0x37},
    {126, 0x36},
    {58, 0x39},
    {464, 0x3F},
    // Volume keys.
    {113, 0x4A},
    {114, 0x49},
    {115, 0x48},
    // Japanese and Korean keyboards: Yen, Ro, keypad comma, Kana (Hangeul), Eisu (Hanja).
    {124, 0x5D},
    {89, 0x5E},
    {121, 0x5F},
    {122, 0x68},
    {123, 0x66},
};

std::string keyName(std::int64_t keyCode, const std::optional<std::string>& label,
                    const char* SpecialKey::*nameOf) {
    if (const SpecialKey* key = findSpecial(keyCode)) {
        return key->*nameOf;
    }
    return label ? *label : "?";
}

} // namespace

const std::map<std::int64_t, std::string>& special() {
    static const std::map<std::int64_t, std::string> names = [] {
        std::map<std::int64_t, std::string> built;
        for (const SpecialKey& key : specialKeys) {
            built.emplace(key.keyCode, key.glyphName);
        }
        return built;
    }();
    return names;
}

const std::set<std::int64_t>& functionKeys() {
    static const std::set<std::int64_t> keys{122, 120, 99,  118, 96,  97,
                                             98,  100, 101, 109, 103, 111};
    return keys;
}

std::string display(std::int64_t keyCode, Mods mods, const std::optional<std::string>& label) {
    return mods.symbols() + keyName(keyCode, label, &SpecialKey::glyphName);
}

std::string linuxDisplay(std::int64_t keyCode, Mods mods, const std::optional<std::string>& label) {
    return mods.linuxNames() + keyName(keyCode, label, &SpecialKey::linuxName);
}

std::optional<std::int64_t> fromEvdev(int evdevCode) {
    for (const auto& [evdev, virtualCode] : evdevToVirtual) {
        if (evdev == evdevCode) {
            return virtualCode;
        }
    }
    return std::nullopt;
}

std::optional<int> toEvdev(std::int64_t keyCode) {
    for (const auto& [evdev, virtualCode] : evdevToVirtual) {
        if (virtualCode == keyCode) {
            return evdev;
        }
    }
    return std::nullopt;
}

} // namespace lumenvale::KeyNames
