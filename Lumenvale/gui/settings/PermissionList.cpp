#include "gui/settings/PermissionList.h"

#include "LumenvaleMedia/AudioDevices.h"
#include "desktop/Desktop.h"

#include <QProcess>
#include <QStandardPaths>
#include <QVariantMap>
#include <array>

namespace lumenvale {

namespace {

struct KindText {
    Permissions::Kind kind;
    const char* name;
    const char* title;
};

constexpr std::array<KindText, 3> kinds{{
    {Permissions::Kind::screen, "screen", "Screen Recording"},
    {Permissions::Kind::microphone, "microphone", "Microphone"},
    {Permissions::Kind::camera, "camera", "Camera"},
}};

} // namespace

PermissionList::PermissionList(QObject* parent) : QObject(parent) {
    connect(&Permissions::shared(), &Permissions::grantedChanged, this,
            &PermissionList::rowsChanged);
}

QVariantList PermissionList::rows() const {
    const QSet<Permissions::Kind> granted = Permissions::shared().granted();
    const bool soundSettingsKnown = !soundSettingsCommand().isEmpty();
    QVariantList list;
    for (const KindText& kind : kinds) {
        const bool held = granted.contains(kind.kind);
        QString action;
        if (!held) {
            action = kind.kind == Permissions::Kind::microphone && soundSettingsKnown
                         ? QStringLiteral("Open Sound Settings")
                         : QStringLiteral("Check Again");
        }
        list.append(QVariantMap{{QStringLiteral("kind"), QLatin1String(kind.name)},
                                {QStringLiteral("title"), QLatin1String(kind.title)},
                                {QStringLiteral("held"), held},
                                {QStringLiteral("detail"), detail(kind.kind, held)},
                                {QStringLiteral("action"), action}});
    }
    return list;
}

QString PermissionList::detail(Permissions::Kind kind, bool held) const {
    switch (kind) {
    case Permissions::Kind::screen:
        if (held) {
            return QStringLiteral("Lumenvale can record the screen.");
        }
        switch (Desktop::session()) {
        case Desktop::Session::none:
            return QStringLiteral("No display is running, so there is no screen to record.");
        case Desktop::Session::wayland:
            return QStringLiteral("The Wayland desktop shows no screen to record.");
        case Desktop::Session::x11:
            break;
        }
        return QStringLiteral("The display doesn’t offer the shared memory and compositing "
                              "extensions that recording needs.");
    case Permissions::Kind::microphone:
        if (held) {
            return QStringLiteral("Lumenvale can record from a microphone.");
        }
        return QString::fromStdString(AudioDevices::microphoneProblem(AudioDevices::query())
                                          .value_or("Lumenvale can’t record from a microphone."));
    case Permissions::Kind::camera:
        return held ? QStringLiteral("A camera is connected.")
                    : QStringLiteral("No camera that Lumenvale can open is connected.");
    }
    return {};
}

void PermissionList::help(const QString& kind) {
    const QStringList command = soundSettingsCommand();
    if (kind == QLatin1String("microphone") && !command.isEmpty()) {
        QProcess::startDetached(command.first(), command.mid(1));
    }
    Permissions::shared().refresh();
    emit rowsChanged();
}

QStringList PermissionList::soundSettingsCommand() {
    const std::array<QStringList, 3> candidates{
        QStringList{QStringLiteral("gnome-control-center"), QStringLiteral("sound")},
        QStringList{QStringLiteral("systemsettings"), QStringLiteral("kcm_pulseaudio")},
        QStringList{QStringLiteral("pavucontrol")},
    };
    for (const QStringList& candidate : candidates) {
        const QString program = QStandardPaths::findExecutable(candidate.first());
        if (!program.isEmpty()) {
            return QStringList{program} + candidate.mid(1);
        }
    }
    return {};
}

} // namespace lumenvale
