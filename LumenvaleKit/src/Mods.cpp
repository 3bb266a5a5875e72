#include "LumenvaleKit/Mods.h"

namespace lumenvale {

namespace {

struct Member {
    std::int64_t bit;
    const char* symbol;
    const char* linuxName;
};

// The one order in which members are ever shown.
constexpr Member members[] = {
    {Mods::control, "\u2303", "Ctrl"},
    {Mods::option, "\u2325", "Alt"},
    {Mods::shift, "\u21E7", "Shift"},
    {Mods::command, "\u2318", "Super"},
};

} // namespace

std::string Mods::symbols() const {
    std::string text;
    for (const Member& member : members) {
        if ((rawValue & member.bit) != 0) {
            text += member.symbol;
        }
    }
    return text;
}

std::string Mods::linuxNames() const {
    std::string text;
    for (const Member& member : members) {
        if ((rawValue & member.bit) != 0) {
            text += member.linuxName;
            text += '+';
        }
    }
    return text;
}

} // namespace lumenvale
