#include "gui/tray/MenuModel.h"

#include "LumenvaleKit/KeyNames.h"
#include "desktop/KeyboardLayout.h"
#include "desktop/Updates.h"
#include "hotkeys/HotkeyCenter.h"
#include "recorder/ScreenRecorder.h"

#include <QVariantMap>
#include <chrono>

namespace lumenvale {

namespace {

constexpr std::chrono::milliseconds headerInterval{500};

std::string shortcutText(const HotkeyCenter& hotkeys, RecAction action) {
    const auto found = hotkeys.combos().find(action);
    if (found == hotkeys.combos().end()) {
        return {};
    }
    const Combo& combo = found->second;
    return KeyNames::linuxDisplay(combo.keyCode, combo.mods, KeyboardLayout::label(combo.keyCode));
}

QVariantMap lineMap(const TrayMenu::Line& line) {
    if (!line) {
        return {{QStringLiteral("divider"), true}};
    }
    return {
        {QStringLiteral("divider"), false},
        {QStringLiteral("row"), QString::fromStdString(TrayMenu::name(line->row))},
        {QStringLiteral("title"), QString::fromStdString(line->title)},
        {QStringLiteral("iconName"), QString::fromStdString(line->iconName)},
        {QStringLiteral("shortcut"), QString::fromStdString(line->shortcut)},
        {QStringLiteral("enabled"), line->enabled},
    };
}

} // namespace

MenuModel::MenuModel(ScreenRecorder& recorder, HotkeyCenter& hotkeys, Updates& updates,
                     QObject* parent)
    : QObject(parent), recorder_(recorder), hotkeys_(hotkeys), updates_(updates) {
    headerTimer_.setInterval(headerInterval);
    connect(&headerTimer_, &QTimer::timeout, this, &MenuModel::refreshHeader);
    connect(&recorder_, &ScreenRecorder::phaseChanged, this, &MenuModel::refresh);
    connect(&recorder_, &ScreenRecorder::lastChanged, this, &MenuModel::refresh);
    connect(&recorder_, &ScreenRecorder::elapsedChanged, this, &MenuModel::refreshHeader);
    connect(&hotkeys_, &HotkeyCenter::combosChanged, this, &MenuModel::refresh);
    connect(&updates_, &Updates::pendingChanged, this, &MenuModel::refresh);
    connect(&updates_, &Updates::canCheckChanged, this, &MenuModel::refresh);
    refresh();
}

bool MenuModel::choose(const QString& row) {
    const std::optional<TrayMenu::Row> named = TrayMenu::rowNamed(row.toStdString());
    for (const TrayMenu::Line& line : layout_) {
        if (line && named && line->row == *named && line->enabled) {
            emit chosen(*named);
            return true;
        }
    }
    return false;
}

void MenuModel::refresh() {
    TrayMenu::State state;
    state.phase = recorder_.phase();
    state.hasLast = recorder_.last().has_value();
    state.canCheck = updates_.canCheck();
    state.pending = updates_.pending().toStdString();
    state.elapsedSeconds = recorder_.elapsedSeconds();
    state.screenShortcut = shortcutText(hotkeys_, RecAction::screen);
    state.areaShortcut = shortcutText(hotkeys_, RecAction::area);
    state.windowShortcut = shortcutText(hotkeys_, RecAction::window);
    std::vector<TrayMenu::Line> layout = TrayMenu::layout(state);
    state_ = std::move(state);
    if (TrayMenu::showsHeader(state_.phase)) {
        headerTimer_.start();
    } else {
        headerTimer_.stop();
    }
    refreshHeader();

    QVariantList lines;
    for (const TrayMenu::Line& line : layout) {
        lines.append(lineMap(line));
    }
    layout_ = std::move(layout);
    if (lines != lines_) {
        lines_ = std::move(lines);
        emit linesChanged();
    }
}

void MenuModel::refreshHeader() {
    state_.elapsedSeconds = recorder_.elapsedSeconds();
    const QString text = QString::fromStdString(TrayMenu::headerText(state_));
    if (text != headerText_) {
        headerText_ = text;
        emit headerTextChanged();
    }
}

} // namespace lumenvale
