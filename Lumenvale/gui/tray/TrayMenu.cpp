#include "gui/tray/TrayMenu.h"

#include "LumenvaleKit/Clock.h"

#include <array>
#include <utility>

namespace lumenvale::TrayMenu {

using Phase = RecorderPhase::Phase;

namespace {

constexpr std::array<std::pair<Row, const char*>, 11> rowNames{{
    {Row::stop, "stop"},
    {Row::recordScreen, "recordScreen"},
    {Row::recordArea, "recordArea"},
    {Row::recordWindow, "recordWindow"},
    {Row::editLast, "editLast"},
    {Row::openRecording, "openRecording"},
    {Row::update, "update"},
    {Row::checkForUpdates, "checkForUpdates"},
    {Row::about, "about"},
    {Row::settings, "settings"},
    {Row::quit, "quit"},
}};

Entry entry(Row row, std::string title, std::string iconName, bool enabled = true,
            std::string shortcut = {}) {
    return Entry{row, std::move(title), std::move(iconName), std::move(shortcut), enabled};
}

} // namespace

bool showsHeader(Phase phase) {
    return phase == Phase::recording || phase == Phase::paused;
}

bool showsRecording(Phase phase) {
    return showsHeader(phase);
}

std::string headerText(const State& state) {
    const double elapsed = showsHeader(state.phase) ? state.elapsedSeconds : 0.0;
    return std::string(state.phase == Phase::paused ? "Paused " : "Recording ") +
           Clock::text(elapsed);
}

std::vector<Line> layout(const State& state) {
    std::vector<Line> lines;
    if (showsHeader(state.phase)) {
        lines.emplace_back(entry(Row::stop, "Stop", "media-playback-stop"));
        lines.emplace_back(std::nullopt);
    }
    const bool idle = state.phase == Phase::idle;
    lines.emplace_back(
        entry(Row::recordScreen, "Record Screen", "video-display", idle, state.screenShortcut));
    lines.emplace_back(
        entry(Row::recordArea, "Record Area", "edit-select-all", idle, state.areaShortcut));
    lines.emplace_back(
        entry(Row::recordWindow, "Record Window", "window-new", idle, state.windowShortcut));
    lines.emplace_back(std::nullopt);
    lines.emplace_back(
        entry(Row::editLast, "Edit Last Recording…", "document-edit", state.hasLast));
    lines.emplace_back(entry(Row::openRecording, "Open Recording…", "document-open"));
    lines.emplace_back(std::nullopt);
    if (!state.pending.empty()) {
        lines.emplace_back(
            entry(Row::update, "Update to " + state.pending, "software-update-available"));
    }
    lines.emplace_back(
        entry(Row::checkForUpdates, "Check for Updates…", "view-refresh", state.canCheck));
    lines.emplace_back(entry(Row::about, "About Lumenvale", "help-about"));
    lines.emplace_back(entry(Row::settings, "Settings…", "preferences-system", true, "Ctrl+,"));
    lines.emplace_back(entry(Row::quit, "Quit Lumenvale", "application-exit", true, "Ctrl+Q"));
    return lines;
}

std::optional<RecAction> recordAction(Row row) {
    switch (row) {
    case Row::recordScreen:
        return RecAction::screen;
    case Row::recordArea:
        return RecAction::area;
    case Row::recordWindow:
        return RecAction::window;
    default:
        return std::nullopt;
    }
}

std::string name(Row row) {
    for (const auto& [candidate, text] : rowNames) {
        if (candidate == row) {
            return text;
        }
    }
    return {};
}

std::optional<Row> rowNamed(const std::string& name) {
    for (const auto& [row, text] : rowNames) {
        if (name == text) {
            return row;
        }
    }
    return std::nullopt;
}

} // namespace lumenvale::TrayMenu
