#include "LumenvaleKit/ShortcutText.h"

#include <algorithm>
#include <cctype>
#include <utility>

namespace lumenvale::ShortcutText {

namespace {

std::string lowerAscii(std::string_view text) {
    std::string lower(text);
    std::transform(lower.begin(), lower.end(), lower.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return lower;
}

// The member of Mods a modifier name stands for; 0 for a name the application cannot
// hold, nothing for a name that is no modifier.
std::optional<std::int64_t> gnomeModifier(std::string_view name) {
    static const std::pair<const char*, std::int64_t> names[] = {
        {"primary", Mods::control},
        {"control", Mods::control},
        {"ctrl", Mods::control},
        {"ctl", Mods::control},
        {"shift", Mods::shift},
        {"shft", Mods::shift},
        {"alt", Mods::option},
        {"mod1", Mods::option},
        {"super", Mods::command},
        {"mod4", Mods::command},
        {"meta", 0},
        {"hyper", 0},
        {"release", 0},
        {"mod2", 0},
        {"mod3", 0},
        {"mod5", 0},
    };
    const std::string lower = lowerAscii(name);
    for (const auto& [modifier, member] : names) {
        if (lower == modifier) {
            return member;
        }
    }
    return std::nullopt;
}

std::optional<std::int64_t> kdeModifier(std::string_view name) {
    static const std::pair<const char*, std::int64_t> names[] = {
        {"Ctrl", Mods::control},
        {"Alt", Mods::option},
        {"Shift", Mods::shift},
        {"Meta", Mods::command},
        {"Num", 0},
    };
    for (const auto& [modifier, member] : names) {
        if (name == modifier) {
            return member;
        }
    }
    return std::nullopt;
}

// Qt's names of keys (QKeySequence's portable text) whose keysym name differs.
std::string keysymOfQtName(std::string_view name) {
    static const std::pair<const char*, const char*> names[] = {
        {"Esc", "Escape"},
        {"Backspace", "BackSpace"},
        {"Enter", "KP_Enter"},
        {"Ins", "Insert"},
        {"Del", "Delete"},
        {"PgUp", "Prior"},
        {"PgDown", "Next"},
        {"Space", "space"},
        {"SysReq", "Sys_Req"},
        {"CapsLock", "Caps_Lock"},
        {"NumLock", "Num_Lock"},
        {"ScrollLock", "Scroll_Lock"},
        {"Backtab", "ISO_Left_Tab"},
        {"Volume Up", "XF86AudioRaiseVolume"},
        {"Volume Down", "XF86AudioLowerVolume"},
        {"Volume Mute", "XF86AudioMute"},
        {"Media Play", "XF86AudioPlay"},
        {"Media Stop", "XF86AudioStop"},
        {"Media Previous", "XF86AudioPrev"},
        {"Media Next", "XF86AudioNext"},
        {"Screensaver", "XF86ScreenSaver"},
        {"Launch Mail", "XF86Mail"},
        {"Calculator", "XF86Calculator"},
    };
    for (const auto& [qt, keysym] : names) {
        if (name == qt) {
            return keysym;
        }
    }
    if (name.size() == 1 && std::isalpha(static_cast<unsigned char>(name[0]))) {
        return lowerAscii(name);
    }
    return std::string(name);
}

// The quoted strings of a GVariant text ('a', "it's", with backslash escapes).
std::vector<std::string> quotedStrings(std::string_view value) {
    std::vector<std::string> strings;
    std::size_t index = 0;
    while (index < value.size()) {
        const char quote = value[index++];
        if (quote != '\'' && quote != '"') {
            continue;
        }
        std::string text;
        bool closed = false;
        while (index < value.size()) {
            const char c = value[index++];
            if (c == '\\' && index < value.size()) {
                text += value[index++];
            } else if (c == quote) {
                closed = true;
                break;
            } else {
                text += c;
            }
        }
        if (closed) {
            strings.push_back(std::move(text));
        }
    }
    return strings;
}

std::vector<std::string_view> lines(std::string_view text) {
    std::vector<std::string_view> result;
    while (!text.empty()) {
        const std::size_t end = text.find('\n');
        std::string_view line = text.substr(0, end);
        if (!line.empty() && line.back() == '\r') {
            line.remove_suffix(1);
        }
        result.push_back(line);
        if (end == std::string_view::npos) {
            break;
        }
        text.remove_prefix(end + 1);
    }
    return result;
}

// The active field of "active,default,title": up to the first comma that is not the
// key of a shortcut ("Meta+," holds one).
std::string_view activeField(std::string_view value) {
    for (std::size_t i = 0; i < value.size(); ++i) {
        if (value[i] == ',' && (i == 0 || value[i - 1] != '+')) {
            return value.substr(0, i);
        }
    }
    return value;
}

} // namespace

std::optional<Binding> fromGnome(std::string_view accelerator) {
    Binding binding;
    while (!accelerator.empty() && accelerator.front() == '<') {
        const std::size_t close = accelerator.find('>');
        if (close == std::string_view::npos) {
            return std::nullopt;
        }
        const std::optional<std::int64_t> member = gnomeModifier(accelerator.substr(1, close - 1));
        if (!member || *member == 0) {
            return std::nullopt;
        }
        binding.mods.insert(Mods(*member));
        accelerator.remove_prefix(close + 1);
    }
    if (accelerator.empty() || accelerator == "disabled") {
        return std::nullopt;
    }
    binding.key = accelerator == "Above_Tab" ? "grave" : std::string(accelerator);
    return binding;
}

std::vector<Binding> fromGsettingsListing(std::string_view listing) {
    std::vector<Binding> bindings;
    for (std::string_view line : lines(listing)) {
        // "schema key value": the value starts after the second space.
        const std::size_t first = line.find(' ');
        const std::size_t second =
            first == std::string_view::npos ? first : line.find(' ', first + 1);
        if (second == std::string_view::npos) {
            continue;
        }
        const std::string_view value = line.substr(second + 1);
        if (value.empty() || (value.front() != '\'' && value.front() != '"' &&
                              value.front() != '[' && value.rfind("@as", 0) != 0)) {
            continue;
        }
        for (const std::string& accelerator : quotedStrings(value)) {
            if (auto binding = fromGnome(accelerator)) {
                bindings.push_back(std::move(*binding));
            }
        }
    }
    return bindings;
}

std::optional<Binding> fromKde(std::string_view sequence) {
    if (sequence.empty() || sequence == "none") {
        return std::nullopt;
    }
    Binding binding;
    // Every "+" that follows a character separates; a "+" at the start or after a
    // separator is the key itself ("Ctrl++").
    std::size_t start = 0;
    for (std::size_t i = 1; i < sequence.size(); ++i) {
        if (sequence[i] != '+' || i == start) {
            continue;
        }
        const std::optional<std::int64_t> member = kdeModifier(sequence.substr(start, i - start));
        if (!member || *member == 0) {
            return std::nullopt;
        }
        binding.mods.insert(Mods(*member));
        start = i + 1;
    }
    const std::string_view key = sequence.substr(start);
    if (key.empty()) {
        return std::nullopt;
    }
    binding.key = keysymOfQtName(key);
    return binding;
}

std::vector<Binding> fromKdeGlobalShortcuts(std::string_view file) {
    std::vector<Binding> bindings;
    for (std::string_view line : lines(file)) {
        const std::size_t equals = line.find('=');
        if (line.empty() || line.front() == '[' || line.front() == '#' ||
            equals == std::string_view::npos ||
            line.substr(0, equals).rfind("_k_friendly_name", 0) == 0) {
            continue;
        }
        std::string_view active = activeField(line.substr(equals + 1));
        // Several shortcuts are separated by a tab, which the file writes as "\t".
        while (!active.empty()) {
            std::size_t end = active.find("\\t");
            std::size_t skip = 2;
            if (const std::size_t tab = active.find('\t'); tab < end) {
                end = tab;
                skip = 1;
            }
            if (auto binding = fromKde(active.substr(0, end))) {
                bindings.push_back(std::move(*binding));
            }
            if (end == std::string_view::npos) {
                break;
            }
            active.remove_prefix(end + skip);
        }
    }
    return bindings;
}

} // namespace lumenvale::ShortcutText
