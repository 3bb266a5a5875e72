#include "desktop/GlobalKeysX11.h"

#include "LumenvaleKit/KeyNames.h"
#include "desktop/SystemShortcuts.h"

#include <algorithm>
#include <xkbcommon/xkbcommon-x11.h>

// xcb's XKB header names a member "explicit", which C++ reserves.
#define explicit xkb_explicit
#include <xcb/xkb.h>
#undef explicit
#include <xcb/xtest.h>

namespace lumenvale {

namespace {

// X11 key codes are the kernel's evdev codes shifted by 8.
constexpr int evdevOffset = 8;

// The modifiers a combination is made of; the others (locks, Mod2, Mod3, Mod5,
// buttons) do not change what a press means.
constexpr std::uint16_t comboModifiers =
    XCB_MOD_MASK_CONTROL | XCB_MOD_MASK_1 | XCB_MOD_MASK_SHIFT | XCB_MOD_MASK_4;

std::uint16_t modifiersOf(Mods mods) {
    const std::pair<std::int64_t, unsigned> members[] = {
        {Mods::control, XCB_MOD_MASK_CONTROL},
        {Mods::option, XCB_MOD_MASK_1},
        {Mods::shift, XCB_MOD_MASK_SHIFT},
        {Mods::command, XCB_MOD_MASK_4},
    };
    unsigned modifiers = 0;
    for (const auto& [member, mask] : members) {
        if (mods.contains(Mods(member))) {
            modifiers |= mask;
        }
    }
    return static_cast<std::uint16_t>(modifiers);
}

// Repeats of a held key arrive as presses without releases in between, so that a key
// held down can be told from one pressed again.
void askForDetectableRepeat(xcb_connection_t* connection) {
    if (xkb_x11_setup_xkb_extension(
            connection, XKB_X11_MIN_MAJOR_XKB_VERSION, XKB_X11_MIN_MINOR_XKB_VERSION,
            XKB_X11_SETUP_XKB_EXTENSION_NO_FLAGS, nullptr, nullptr, nullptr, nullptr) == 0) {
        return;
    }
    const auto cookie = xcb_xkb_per_client_flags(
        connection, XCB_XKB_ID_USE_CORE_KBD, XCB_XKB_PER_CLIENT_FLAG_DETECTABLE_AUTO_REPEAT,
        XCB_XKB_PER_CLIENT_FLAG_DETECTABLE_AUTO_REPEAT, 0, 0, 0);
    x11::Reply<xcb_xkb_per_client_flags_reply_t>(
        xcb_xkb_per_client_flags_reply(connection, cookie, nullptr));
}

} // namespace

GlobalKeysX11::GlobalKeysX11(std::unique_ptr<Keyboard> keyboard, QObject* parent)
    : GlobalKeys(parent), keyboard_(std::move(keyboard)) {
    int screenNumber = 0;
    connection_.reset(xcb_connect(nullptr, &screenNumber));
    if (!connected()) {
        return;
    }
    xcb_screen_iterator_t screens = xcb_setup_roots_iterator(xcb_get_setup(connection_.get()));
    for (int i = 0; i < screenNumber && screens.rem > 0; ++i) {
        xcb_screen_next(&screens);
    }
    if (screens.rem == 0) {
        connection_.reset();
        return;
    }
    root_ = screens.data->root;
    askForDetectableRepeat(connection_.get());
    notifier_ = std::make_unique<QSocketNotifier>(xcb_get_file_descriptor(connection_.get()),
                                                  QSocketNotifier::Read);
    connect(notifier_.get(), &QSocketNotifier::activated, this, [this] { drain(); });
    xcb_flush(connection_.get());
}

GlobalKeysX11::~GlobalKeysX11() {
    if (connected()) {
        for (const auto& [id, held] : held_) {
            ungrabVariants(held);
        }
    }
}

bool GlobalKeysX11::connected() const {
    return connection_ && xcb_connection_has_error(connection_.get()) == 0;
}

GlobalKeys::Grab GlobalKeysX11::grab(std::uint32_t id, Combo combo) {
    release(id);
    const std::optional<int> evdev = KeyNames::toEvdev(combo.keyCode);
    if (!connected() || !evdev) {
        return Grab::inUse;
    }
    const xcb_setup_t* setup = xcb_get_setup(connection_.get());
    const int key = *evdev + evdevOffset;
    if (key < setup->min_keycode || key > setup->max_keycode) {
        return Grab::inUse;
    }
    Held held{static_cast<xcb_keycode_t>(key), modifiersOf(combo.mods), {}};
    for (const auto& [other, already] : held_) {
        if (already.key == held.key && already.modifiers == held.modifiers) {
            return Grab::inUse;
        }
    }
    const std::uint16_t numLock = numLockMask();
    for (const std::uint16_t lock : {std::uint16_t(0), std::uint16_t(XCB_MOD_MASK_LOCK), numLock,
                                     std::uint16_t(XCB_MOD_MASK_LOCK | numLock)}) {
        const auto variant = static_cast<std::uint16_t>(held.modifiers | lock);
        if (std::find(held.variants.begin(), held.variants.end(), variant) == held.variants.end()) {
            held.variants.push_back(variant);
        }
    }
    const bool grabbed = grabVariants(held);
    scheduleDrain();
    if (!grabbed) {
        return Grab::inUse;
    }
    held_.emplace(id, std::move(held));
    return Grab::ok;
}

void GlobalKeysX11::release(std::uint32_t id) {
    const auto found = held_.find(id);
    if (found == held_.end()) {
        return;
    }
    const Held held = std::move(found->second);
    held_.erase(found);
    down_.erase(held.key);
    if (connected()) {
        ungrabVariants(held);
        scheduleDrain();
    }
}

std::vector<Combo> GlobalKeysX11::systemShortcuts() {
    return SystemShortcuts::enabled(*keyboard_);
}

std::uint16_t GlobalKeysX11::numLockMask() {
    xcb_connection_t* connection = connection_.get();
    const xcb_setup_t* setup = xcb_get_setup(connection);
    const auto modifierCookie = xcb_get_modifier_mapping(connection);
    const auto keyboardCookie = xcb_get_keyboard_mapping(
        connection, setup->min_keycode,
        static_cast<std::uint8_t>(setup->max_keycode - setup->min_keycode + 1));
    const x11::Reply<xcb_get_modifier_mapping_reply_t> modifiers(
        xcb_get_modifier_mapping_reply(connection, modifierCookie, nullptr));
    const x11::Reply<xcb_get_keyboard_mapping_reply_t> keyboard(
        xcb_get_keyboard_mapping_reply(connection, keyboardCookie, nullptr));
    if (!modifiers || !keyboard) {
        return 0;
    }
    const xcb_keycode_t* keys = xcb_get_modifier_mapping_keycodes(modifiers.get());
    const int perModifier = modifiers->keycodes_per_modifier;
    const xcb_keysym_t* keysyms = xcb_get_keyboard_mapping_keysyms(keyboard.get());
    const int keysymCount = xcb_get_keyboard_mapping_keysyms_length(keyboard.get());
    const int perKey = keyboard->keysyms_per_keycode;
    for (int modifier = 0; modifier < 8; ++modifier) {
        for (int i = 0; i < perModifier; ++i) {
            const int key = keys[modifier * perModifier + i];
            if (key < setup->min_keycode) {
                continue; // an unused slot
            }
            for (int level = 0; level < perKey; ++level) {
                const int index = (key - setup->min_keycode) * perKey + level;
                if (index < keysymCount && keysyms[index] == XKB_KEY_Num_Lock) {
                    return static_cast<std::uint16_t>(1U << modifier);
                }
            }
        }
    }
    return 0;
}

bool GlobalKeysX11::press(Combo combo) {
    const std::optional<int> evdev = KeyNames::toEvdev(combo.keyCode);
    if (!connected() || !evdev) {
        return false;
    }
    xcb_connection_t* connection = connection_.get();
    const x11::Reply<xcb_get_modifier_mapping_reply_t> mapping(
        xcb_get_modifier_mapping_reply(connection, xcb_get_modifier_mapping(connection), nullptr));
    if (!mapping) {
        return false;
    }
    // For each modifier bit of the combination, the first key that sets it.
    const xcb_keycode_t* keys = xcb_get_modifier_mapping_keycodes(mapping.get());
    const int perModifier = mapping->keycodes_per_modifier;
    const std::uint16_t modifiers = modifiersOf(combo.mods);
    std::vector<xcb_keycode_t> modifierKeys;
    for (int modifier = 0; modifier < 8; ++modifier) {
        if ((modifiers & (1U << modifier)) == 0) {
            continue;
        }
        const xcb_keycode_t* first = keys + modifier * perModifier;
        const xcb_keycode_t* found =
            std::find_if(first, first + perModifier, [](xcb_keycode_t key) { return key != 0; });
        if (found == first + perModifier) {
            return false;
        }
        modifierKeys.push_back(*found);
    }
    const auto fake = [&](std::uint8_t type, xcb_keycode_t key) {
        xcb_test_fake_input(connection, type, key, XCB_CURRENT_TIME, XCB_NONE, 0, 0, 0);
    };
    for (const xcb_keycode_t key : modifierKeys) {
        fake(XCB_KEY_PRESS, key);
    }
    const auto key = static_cast<xcb_keycode_t>(*evdev + evdevOffset);
    fake(XCB_KEY_PRESS, key);
    fake(XCB_KEY_RELEASE, key);
    for (auto it = modifierKeys.rbegin(); it != modifierKeys.rend(); ++it) {
        fake(XCB_KEY_RELEASE, *it);
    }
    // A round trip: the presses have reached the server when this returns. The grabbed
    // press may arrive with the reply, so the events read meanwhile are handled next.
    x11::Reply<xcb_get_input_focus_reply_t>(
        xcb_get_input_focus_reply(connection, xcb_get_input_focus(connection), nullptr));
    scheduleDrain();
    return true;
}

bool GlobalKeysX11::grabVariants(const Held& held) {
    std::vector<xcb_void_cookie_t> cookies;
    for (const std::uint16_t variant : held.variants) {
        cookies.push_back(xcb_grab_key_checked(connection_.get(), 0, root_, variant, held.key,
                                               XCB_GRAB_MODE_ASYNC, XCB_GRAB_MODE_ASYNC));
    }
    bool refused = false;
    for (const xcb_void_cookie_t cookie : cookies) {
        // BadAccess: another client holds this variant. Every cookie is checked, so no
        // error is left to arrive as an event.
        refused |= x11::Error(xcb_request_check(connection_.get(), cookie)) != nullptr;
    }
    if (refused) {
        ungrabVariants(held); // a variant this client did not grab stays untouched
    }
    return !refused;
}

void GlobalKeysX11::ungrabVariants(const Held& held) {
    for (const std::uint16_t variant : held.variants) {
        xcb_ungrab_key(connection_.get(), held.key, root_, variant);
    }
    // A round trip: once this returns, the server has let go, and another application
    // may take the combination.
    x11::Reply<xcb_get_input_focus_reply_t>(xcb_get_input_focus_reply(
        connection_.get(), xcb_get_input_focus(connection_.get()), nullptr));
}

void GlobalKeysX11::scheduleDrain() {
    if (drainScheduled_) {
        return;
    }
    drainScheduled_ = true;
    QMetaObject::invokeMethod(
        this,
        [this] {
            drainScheduled_ = false;
            drain();
        },
        Qt::QueuedConnection);
}

void GlobalKeysX11::drain() {
    if (!connected()) {
        if (notifier_) {
            notifier_->setEnabled(false);
        }
        return;
    }
    while (x11::Event event{xcb_poll_for_event(connection_.get())}) {
        handle(*event);
    }
}

void GlobalKeysX11::handle(const xcb_generic_event_t& event) {
    switch (event.response_type & 0x7F) {
    case XCB_KEY_PRESS: {
        const auto& press = reinterpret_cast<const xcb_key_press_event_t&>(event);
        if (down_.count(press.detail) != 0) {
            return; // the keyboard repeats a key held down
        }
        const std::uint16_t modifiers = press.state & comboModifiers;
        for (const auto& [id, held] : held_) {
            if (held.key == press.detail && held.modifiers == modifiers) {
                down_.insert(press.detail);
                emit pressed(id);
                return;
            }
        }
        return;
    }
    case XCB_KEY_RELEASE:
        down_.erase(reinterpret_cast<const xcb_key_release_event_t&>(event).detail);
        return;
    default:
        return;
    }
}

} // namespace lumenvale
