#include "hotkeys/ShortcutRecorder.h"

#include "LumenvaleKit/KeyNames.h"
#include "desktop/KeyboardLayout.h"
#include "hotkeys/HotkeyCenter.h"

namespace lumenvale {

namespace {

// The field that records now; one at a time.
ShortcutRecorder* recordingField = nullptr;

constexpr std::int64_t deleteKey = 51;
constexpr std::int64_t forwardDeleteKey = 117;

// The modifier keys (Shift, Ctrl, Alt, Super, Caps Lock, Fn on either side): pressed
// alone they start a combination rather than make one.
bool isModifierKey(std::int64_t keyCode) {
    return keyCode >= 0x36 && keyCode <= 0x3F;
}

// X11 and Wayland report the evdev key code + 8 as Qt's native scan code.
constexpr quint32 evdevOffset = 8;

} // namespace

ShortcutRecorder::ShortcutRecorder(RecAction action, HotkeyCenter& center, QObject* parent)
    : QObject(parent), action_(action), center_(center) {
    connect(&center_, &HotkeyCenter::combosChanged, this, &ShortcutRecorder::refresh);
    connect(&center_, &HotkeyCenter::inUseChanged, this, &ShortcutRecorder::refresh);
    refresh();
}

ShortcutRecorder::~ShortcutRecorder() {
    stop();
}

void ShortcutRecorder::toggle() {
    if (recording_) {
        stop();
    } else {
        start();
    }
}

void ShortcutRecorder::start() {
    if (recordingField != nullptr && recordingField != this) {
        recordingField->stop();
    }
    recordingField = this;
    setNote(QString());
    setRecording(true);
    center_.setSuspended(true);
}

void ShortcutRecorder::stop() {
    if (recordingField == this) {
        recordingField = nullptr;
    }
    if (!recording_) {
        return;
    }
    setRecording(false);
    center_.setSuspended(false);
}

void ShortcutRecorder::clear() {
    center_.set(std::nullopt, action_);
}

void ShortcutRecorder::record(std::int64_t keyCode, Mods mods) {
    if (!recording_ || isModifierKey(keyCode)) {
        return;
    }
    // The shortcut changes while the center is still suspended, so it is grabbed once,
    // when the field stops, and the label goes straight to the new shortcut.
    if (mods.isEmpty() && (keyCode == deleteKey || keyCode == forwardDeleteKey)) {
        center_.set(std::nullopt, action_);
        stop();
        return;
    }
    if (mods.isEmpty() && keyCode == KeyNames::escape) {
        stop();
        return;
    }
    if (!mods.isShortcut() && KeyNames::functionKeys().count(keyCode) == 0) {
        setNote(QStringLiteral("Add Ctrl, Alt, or Super"));
        return;
    }
    const Combo combo{keyCode, mods};
    const std::optional<RecAction> owner = center_.owner(combo);
    if (owner && *owner != action_) {
        setNote(QStringLiteral("Used by “%1”").arg(QString::fromUtf8(title(*owner))));
        return;
    }
    center_.set(combo, action_);
    stop();
}

void ShortcutRecorder::recordKeyEvent(quint32 nativeScanCode, Qt::KeyboardModifiers modifiers) {
    const std::optional<std::int64_t> keyCode =
        nativeScanCode < evdevOffset
            ? std::nullopt
            : KeyNames::fromEvdev(static_cast<int>(nativeScanCode - evdevOffset));
    if (!keyCode) {
        return;
    }
    const std::pair<Qt::KeyboardModifier, std::int64_t> members[] = {
        {Qt::ControlModifier, Mods::control},
        {Qt::AltModifier, Mods::option},
        {Qt::ShiftModifier, Mods::shift},
        {Qt::MetaModifier, Mods::command},
    };
    Mods mods;
    for (const auto& [modifier, member] : members) {
        if (modifiers.testFlag(modifier)) {
            mods.insert(Mods(member));
        }
    }
    record(*keyCode, mods);
}

void ShortcutRecorder::setRecording(bool recording) {
    if (recording == recording_) {
        return;
    }
    recording_ = recording;
    emit recordingChanged();
    refresh();
}

void ShortcutRecorder::setNote(QString note) {
    if (note != note_) {
        note_ = std::move(note);
        refresh();
    }
}

void ShortcutRecorder::refresh() {
    const auto combo = center_.combos().find(action_);
    const bool hasCombo = combo != center_.combos().end();
    QString label;
    if (recording_) {
        label = QStringLiteral("Type Shortcut…");
    } else if (hasCombo) {
        const Combo& held = combo->second;
        label = QString::fromStdString(
            KeyNames::linuxDisplay(held.keyCode, held.mods, KeyboardLayout::label(held.keyCode)));
    } else {
        label = QStringLiteral("Record Shortcut");
    }
    if (label != label_) {
        label_ = label;
        emit labelChanged();
    }
    if (const bool clearable = hasCombo && !recording_; clearable != clearable_) {
        clearable_ = clearable;
        emit clearableChanged();
    }
    CaptionKind kind = CaptionKind::none;
    QString caption;
    if (!note_.isEmpty()) {
        kind = CaptionKind::note;
        caption = note_;
    } else if (center_.inUse().count(action_) != 0) {
        kind = CaptionKind::inUse;
        caption = QStringLiteral("In use by another app");
    }
    if (kind != captionKind_ || caption != caption_) {
        captionKind_ = kind;
        caption_ = caption;
        emit captionChanged();
    }
}

} // namespace lumenvale
