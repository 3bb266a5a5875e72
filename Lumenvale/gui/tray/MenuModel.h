#pragma once

#include "gui/tray/TrayMenu.h"

#include <QObject>
#include <QString>
#include <QTimer>
#include <QVariantList>

namespace lumenvale {

class HotkeyCenter;
class ScreenRecorder;
class Updates;

// The menu's live state for its two views, the popup (MenuView.qml) and the tray icon's
// context menu: TrayMenu::layout() of the recorder's phase and last recording, the
// hotkeys' combinations and the updater, recomputed whenever one of them changes, and
// the header's elapsed time every half second while it shows (no timer runs otherwise).
//
// `lines`: one map per line, top to bottom: {"divider": true} or {"row": name, "title",
// "iconName", "shortcut", "enabled"}. Choosing a row emits `chosen`; what it does is
// the application's business (TrayApp), so the model stays testable without windows.
//
// Threads: the GUI thread. The recorder, center and updater must outlive the model.
class MenuModel : public QObject {
    Q_OBJECT
    Q_PROPERTY(QVariantList lines READ lines NOTIFY linesChanged)
    Q_PROPERTY(bool headerVisible READ headerVisible NOTIFY linesChanged)
    Q_PROPERTY(QString headerText READ headerText NOTIFY headerTextChanged)
    Q_PROPERTY(bool recording READ recording NOTIFY linesChanged)

  public:
    MenuModel(ScreenRecorder& recorder, HotkeyCenter& hotkeys, Updates& updates,
              QObject* parent = nullptr);

    const TrayMenu::State& state() const { return state_; }
    const std::vector<TrayMenu::Line>& layout() const { return layout_; }
    QVariantList lines() const { return lines_; }
    bool headerVisible() const { return TrayMenu::showsHeader(state_.phase); }
    QString headerText() const { return headerText_; }
    // The tray icon shows a recording.
    bool recording() const { return TrayMenu::showsRecording(state_.phase); }

    // Chooses the row named `row` when it is in the menu and enabled; false otherwise.
    Q_INVOKABLE bool choose(const QString& row);

  signals:
    void linesChanged();
    void headerTextChanged();
    void chosen(lumenvale::TrayMenu::Row row);

  private:
    void refresh();
    void refreshHeader();

    ScreenRecorder& recorder_;
    HotkeyCenter& hotkeys_;
    Updates& updates_;
    TrayMenu::State state_;
    std::vector<TrayMenu::Line> layout_;
    QVariantList lines_;
    QString headerText_;
    QTimer headerTimer_;
};

} // namespace lumenvale
