#include "desktop/SystemShortcuts.h"

#include "LumenvaleKit/ShortcutText.h"

#include <QDir>
#include <QFile>
#include <QProcess>
#include <QStandardPaths>
#include <QString>
#include <algorithm>

namespace lumenvale::SystemShortcuts {

namespace {

// Where GNOME keeps the shortcuts of the window manager, the shell and the media keys.
constexpr const char* gnomeSchemas[] = {
    "org.gnome.desktop.wm.keybindings",
    "org.gnome.mutter.keybindings",
    "org.gnome.mutter.wayland.keybindings",
    "org.gnome.shell.keybindings",
    "org.gnome.settings-daemon.plugins.media-keys",
};

constexpr int gsettingsTimeoutMs = 2000;

std::vector<ShortcutText::Binding> readGnome() {
    const QString gsettings = QStandardPaths::findExecutable(QStringLiteral("gsettings"));
    if (gsettings.isEmpty()) {
        return {};
    }
    std::vector<ShortcutText::Binding> bindings;
    for (const char* schema : gnomeSchemas) {
        QProcess process;
        process.setStandardErrorFile(QProcess::nullDevice());
        process.start(gsettings, {QStringLiteral("list-recursively"), QString::fromLatin1(schema)});
        if (!process.waitForFinished(gsettingsTimeoutMs)) {
            process.kill();
            process.waitForFinished();
            continue;
        }
        if (process.exitStatus() != QProcess::NormalExit || process.exitCode() != 0) {
            continue; // a schema this GNOME does not have
        }
        const QByteArray listing = process.readAllStandardOutput();
        for (auto& binding : ShortcutText::fromGsettingsListing(
                 std::string_view(listing.constData(), std::size_t(listing.size())))) {
            bindings.push_back(std::move(binding));
        }
    }
    return bindings;
}

std::vector<ShortcutText::Binding> readKde() {
    QFile file(QDir(QStandardPaths::writableLocation(QStandardPaths::GenericConfigLocation))
                   .filePath(QStringLiteral("kglobalshortcutsrc")));
    if (!file.open(QIODevice::ReadOnly)) {
        return {};
    }
    const QByteArray text = file.readAll();
    return ShortcutText::fromKdeGlobalShortcuts(
        std::string_view(text.constData(), std::size_t(text.size())));
}

} // namespace

DesktopKind current() {
    const QStringList desktops =
        qEnvironmentVariable("XDG_CURRENT_DESKTOP").split(QLatin1Char(':'), Qt::SkipEmptyParts);
    for (const QString& desktop : desktops) {
        if (desktop.compare(QLatin1String("GNOME"), Qt::CaseInsensitive) == 0) {
            return DesktopKind::gnome;
        }
        if (desktop.compare(QLatin1String("KDE"), Qt::CaseInsensitive) == 0) {
            return DesktopKind::kde;
        }
    }
    return DesktopKind::other;
}

std::vector<Combo> enabled(Keyboard& keyboard) {
    std::vector<ShortcutText::Binding> bindings;
    switch (current()) {
    case DesktopKind::gnome:
        bindings = readGnome();
        break;
    case DesktopKind::kde:
        bindings = readKde();
        break;
    case DesktopKind::other:
        return {};
    }
    std::vector<std::string> symbols;
    for (const ShortcutText::Binding& binding : bindings) {
        symbols.push_back(binding.key);
    }
    const std::vector<std::optional<std::int64_t>> keys = keyboard.keysTyping(symbols);
    std::vector<Combo> combos;
    for (std::size_t i = 0; i < bindings.size() && i < keys.size(); ++i) {
        if (!keys[i]) {
            continue;
        }
        const Combo combo{*keys[i], bindings[i].mods};
        if (std::find(combos.begin(), combos.end(), combo) == combos.end()) {
            combos.push_back(combo);
        }
    }
    return combos;
}

} // namespace lumenvale::SystemShortcuts
