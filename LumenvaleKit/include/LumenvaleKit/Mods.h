#pragma once

#include <cstdint>
#include <functional>
#include <initializer_list>
#include <string>

namespace lumenvale {

// The modifier keys held with a shortcut: a set over one signed integer.
// control = Ctrl, option = Alt, shift = Shift, command = Super on Linux.
struct Mods {
    std::int64_t rawValue = 0;

    static constexpr std::int64_t control = 1;
    static constexpr std::int64_t option = 2;
    static constexpr std::int64_t shift = 4;
    static constexpr std::int64_t command = 8;

    constexpr Mods() = default;
    constexpr explicit Mods(std::int64_t raw) : rawValue(raw) {}
    static constexpr Mods of(std::initializer_list<std::int64_t> members) {
        std::int64_t raw = 0;
        for (auto member : members) {
            raw |= member;
        }
        return Mods(raw);
    }

    constexpr bool isEmpty() const { return rawValue == 0; }
    constexpr bool contains(Mods other) const {
        return (rawValue & other.rawValue) == other.rawValue;
    }
    constexpr bool isSubset(Mods of) const { return of.contains(*this); }
    constexpr bool isSuperset(Mods of) const { return contains(of); }
    constexpr bool isDisjoint(Mods with) const { return (rawValue & with.rawValue) == 0; }
    constexpr Mods unionWith(Mods other) const { return Mods(rawValue | other.rawValue); }
    constexpr Mods intersection(Mods other) const { return Mods(rawValue & other.rawValue); }
    constexpr Mods symmetricDifference(Mods other) const { return Mods(rawValue ^ other.rawValue); }
    constexpr Mods subtracting(Mods other) const { return Mods(rawValue & ~other.rawValue); }
    constexpr void insert(Mods other) { rawValue |= other.rawValue; }
    constexpr void remove(Mods other) { rawValue &= ~other.rawValue; }

    // The glyphs of the members present, always in the order control, option,
    // shift, command: "⌃⌥⇧⌘".
    std::string symbols() const;
    // The Linux names of the members present, each followed by "+", in the order
    // Ctrl, Alt, Shift, Super: "Ctrl+Alt+Shift+Super+".
    std::string linuxNames() const;
    // Holds control, option or command (shift alone is ordinary typing).
    constexpr bool isShortcut() const { return (rawValue & 11) != 0; }

    friend constexpr bool operator==(Mods, Mods) = default;
};

} // namespace lumenvale

template <> struct std::hash<lumenvale::Mods> {
    std::size_t operator()(lumenvale::Mods mods) const noexcept {
        return std::hash<std::int64_t>{}(mods.rawValue);
    }
};
