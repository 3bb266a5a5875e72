#include "desktop/KeyboardX11.h"

#include "LumenvaleKit/KeyNames.h"

#include <QList>
#include <QString>
#include <algorithm>
#include <xkbcommon/xkbcommon-x11.h>

namespace lumenvale {

namespace {

// X11 key codes are the kernel's evdev codes shifted by 8.
constexpr int evdevOffset = 8;

std::optional<std::int64_t> storedCode(xkb_keycode_t key) {
    return KeyNames::fromEvdev(static_cast<int>(key) - evdevOffset);
}

xkb_keysym_t keysymOf(std::string_view symbol) {
    const std::string name(symbol);
    xkb_keysym_t keysym = xkb_keysym_from_name(name.c_str(), XKB_KEYSYM_NO_FLAGS);
    if (keysym == XKB_KEY_NoSymbol) {
        const QList<uint> points = QString::fromUtf8(name.data(), qsizetype(name.size())).toUcs4();
        if (points.size() == 1) {
            keysym = xkb_utf32_to_keysym(points.front());
        }
    }
    if (keysym == XKB_KEY_NoSymbol) {
        keysym = xkb_keysym_from_name(name.c_str(), XKB_KEYSYM_CASE_INSENSITIVE);
    }
    return keysym;
}

// The first key, in key code order, that types `wanted` at its first level in the
// group the key is in now, else at any level.
std::optional<std::int64_t> keyTyping(xkb_keymap* keymap, xkb_state* state, xkb_keysym_t wanted) {
    if (wanted == XKB_KEY_NoSymbol) {
        return std::nullopt;
    }
    const auto types = [&](xkb_keycode_t key, xkb_layout_index_t group, xkb_level_index_t level) {
        const xkb_keysym_t* keysyms = nullptr;
        const int count = xkb_keymap_key_get_syms_by_level(keymap, key, group, level, &keysyms);
        return std::find(keysyms, keysyms + std::max(count, 0), wanted) !=
               keysyms + std::max(count, 0);
    };
    enum class Levels { first, all };
    for (const Levels levels : {Levels::first, Levels::all}) {
        for (xkb_keycode_t key = xkb_keymap_min_keycode(keymap);
             key <= xkb_keymap_max_keycode(keymap); ++key) {
            const xkb_layout_index_t group = xkb_state_key_get_layout(state, key);
            if (group == XKB_LAYOUT_INVALID) {
                continue;
            }
            const xkb_level_index_t count =
                levels == Levels::first ? 1 : xkb_keymap_num_levels_for_key(keymap, key, group);
            for (xkb_level_index_t level = 0; level < count; ++level) {
                if (types(key, group, level)) {
                    if (const auto code = storedCode(key)) {
                        return code;
                    }
                }
            }
        }
    }
    return std::nullopt;
}

} // namespace

std::optional<KeyboardX11::Layout> KeyboardX11::current() {
    if (!connection_) {
        connection_.reset(xcb_connect(nullptr, nullptr));
        if (xcb_connection_has_error(connection_.get()) == 0 &&
            xkb_x11_setup_xkb_extension(
                connection_.get(), XKB_X11_MIN_MAJOR_XKB_VERSION, XKB_X11_MIN_MINOR_XKB_VERSION,
                XKB_X11_SETUP_XKB_EXTENSION_NO_FLAGS, nullptr, nullptr, nullptr, nullptr) != 0) {
            device_ = xkb_x11_get_core_keyboard_device_id(connection_.get());
            context_.reset(xkb_context_new(XKB_CONTEXT_NO_DEFAULT_INCLUDES));
        }
    }
    if (device_ < 0 || !context_ || xcb_connection_has_error(connection_.get()) != 0) {
        return std::nullopt;
    }
    x11::XkbKeymap keymap(xkb_x11_keymap_new_from_device(context_.get(), connection_.get(), device_,
                                                         XKB_KEYMAP_COMPILE_NO_FLAGS));
    if (!keymap) {
        return std::nullopt;
    }
    x11::XkbState state(xkb_x11_state_new_from_device(keymap.get(), connection_.get(), device_));
    if (!state) {
        return std::nullopt;
    }
    return Layout{std::move(keymap), std::move(state)};
}

std::optional<std::string> KeyboardX11::character(std::int64_t keyCode) {
    const std::optional<int> evdev = KeyNames::toEvdev(keyCode);
    if (!evdev) {
        return std::nullopt;
    }
    const std::optional<Layout> layout = current();
    if (!layout) {
        return std::nullopt;
    }
    const auto key = static_cast<xkb_keycode_t>(*evdev + evdevOffset);
    const xkb_layout_index_t group = xkb_state_key_get_layout(layout->state.get(), key);
    if (group == XKB_LAYOUT_INVALID) {
        return std::nullopt;
    }
    const xkb_keysym_t* keysyms = nullptr;
    if (xkb_keymap_key_get_syms_by_level(layout->keymap.get(), key, group, 0, &keysyms) < 1) {
        return std::nullopt;
    }
    char text[8] = {};
    const int size = xkb_keysym_to_utf8(keysyms[0], text, sizeof text); // counts the NUL
    const auto first = static_cast<unsigned char>(text[0]);
    if (size <= 1 || (size == 2 && (first < 0x20 || first == 0x7F))) {
        return std::nullopt; // no character, or a control character (Escape, Delete)
    }
    return std::string(text, static_cast<std::size_t>(size - 1));
}

std::vector<std::optional<std::int64_t>>
KeyboardX11::keysTyping(const std::vector<std::string>& symbols) {
    std::vector<std::optional<std::int64_t>> keys(symbols.size());
    const std::optional<Layout> layout = current();
    if (!layout) {
        return keys;
    }
    for (std::size_t i = 0; i < symbols.size(); ++i) {
        keys[i] = keyTyping(layout->keymap.get(), layout->state.get(), keysymOf(symbols[i]));
    }
    return keys;
}

} // namespace lumenvale
