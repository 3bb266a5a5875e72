#pragma once

#include "LumenvaleKit/Shortcuts.h"

#include <QObject>
#include <QString>
#include <cstdint>

namespace lumenvale {

class HotkeyCenter;

// The model of the settings field that picks one action's global shortcut. Clicked, it
// records: the center is suspended (so pressing an existing shortcut records it rather
// than starting a recording) and the next key press of the focused settings window
// becomes the candidate:
//   - Delete (Backspace) or Forward Delete without modifiers: stop and clear the
//     shortcut; Escape without modifiers: stop, the shortcut stays.
//   - Acceptable is a press with Ctrl, Alt or Super, or F1 to F12 with or without
//     modifiers; anything else shows "Add Ctrl, Alt, or Super" and records on (so Shift
//     + a letter, a bare letter or Shift + Delete are refused).
//   - An acceptable combination that another action holds shows "Used by “Record Area”"
//     and records on; else the field stops and the center stores it (a combination the
//     desktop or another application holds is stored and then shows as in use).
// Pressing a modifier on its own records nothing: it is part of the combination being
// built. One field records at a time: starting one stops any other.
//
// What a view shows: the button's `label` ("Type Shortcut…" while recording, else the
// shortcut as "Ctrl+Alt+Shift+Super+R", else "Record Shortcut"); a Clear button when
// `clearable`; the `caption` line under them: the note (secondary colour), else "In use
// by another app" (red), else nothing, as `captionKind` says.
//
// Threads: the GUI thread. The center must outlive the field.
class ShortcutRecorder : public QObject {
    Q_OBJECT
    Q_PROPERTY(bool recording READ recording NOTIFY recordingChanged)
    Q_PROPERTY(QString label READ label NOTIFY labelChanged)
    Q_PROPERTY(bool clearable READ clearable NOTIFY clearableChanged)
    Q_PROPERTY(QString caption READ caption NOTIFY captionChanged)
    Q_PROPERTY(
        lumenvale::ShortcutRecorder::CaptionKind captionKind READ captionKind NOTIFY captionChanged)

  public:
    enum class CaptionKind { none, note, inUse };
    Q_ENUM(CaptionKind)

    ShortcutRecorder(RecAction action, HotkeyCenter& center, QObject* parent = nullptr);
    // A field that goes away stops recording.
    ~ShortcutRecorder() override;

    RecAction action() const { return action_; }
    bool recording() const { return recording_; }
    QString label() const { return label_; }
    bool clearable() const { return clearable_; }
    QString caption() const { return caption_; }
    CaptionKind captionKind() const { return captionKind_; }
    QString note() const { return note_; }

    // The button: starts recording, or stops when recording.
    Q_INVOKABLE void toggle();
    // Clears the note and records.
    Q_INVOKABLE void start();
    // Ends recording, when recording, and lets the center hold the shortcuts again. The
    // note stays until the next start. Also for a view that leaves the screen.
    Q_INVOKABLE void stop();
    // The Clear button: the action has no shortcut any more.
    Q_INVOKABLE void clear();

    // One key press while recording (ignored otherwise): a stored key code and the
    // modifiers held.
    void record(std::int64_t keyCode, Mods mods);
    // One key press as Qt reports it on Linux (the X11/evdev key code + 8 as the native
    // scan code; Ctrl, Alt, Shift and Meta as Ctrl, Alt, Shift and Super). A key that
    // has no stored code is ignored.
    Q_INVOKABLE void recordKeyEvent(quint32 nativeScanCode, Qt::KeyboardModifiers modifiers);

  signals:
    void recordingChanged();
    void labelChanged();
    void clearableChanged();
    void captionChanged();

  private:
    void setRecording(bool recording);
    void setNote(QString note);
    // Recomputes what the view shows from the state and the center.
    void refresh();

    RecAction action_;
    HotkeyCenter& center_;
    bool recording_ = false;
    QString note_;
    QString label_;
    bool clearable_ = false;
    QString caption_;
    CaptionKind captionKind_ = CaptionKind::none;
};

} // namespace lumenvale
