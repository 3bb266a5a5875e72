#include "gui/card/ShareMenu.h"

#include "desktop/OpenWith.h"

#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDBusMessage>
#include <QDBusMetaType>
#include <QDBusReply>
#include <QDBusUnixFileDescriptor>
#include <QFile>
#include <QMenu>
#include <QMimeDatabase>
#include <QProcess>
#include <QStandardPaths>
#include <fcntl.h>
#include <unistd.h>
#include <vector>

namespace lumenvale::ShareMenu {
namespace {

using Notify = std::function<void(const QString&)>;

const QString portalService = QStringLiteral("org.freedesktop.portal.Desktop");
const QString portalPath = QStringLiteral("/org/freedesktop/portal/desktop");
constexpr int portalTimeoutMilliseconds = 10000;

bool serviceAvailable(const QString& name) {
    QDBusConnectionInterface* bus = QDBusConnection::sessionBus().interface();
    if (bus == nullptr) {
        return false;
    }
    if (bus->isServiceRegistered(name).value()) {
        return true;
    }
    const QDBusReply<QStringList> activatable =
        QDBusConnection::sessionBus().call(QDBusMessage::createMethodCall(
            QStringLiteral("org.freedesktop.DBus"), QStringLiteral("/org/freedesktop/DBus"),
            QStringLiteral("org.freedesktop.DBus"), QStringLiteral("ListActivatableNames")));
    return activatable.isValid() && activatable.value().contains(name);
}

// A read-only descriptor of `path` for a portal; invalid when it cannot be opened.
QDBusUnixFileDescriptor openForPortal(const QString& path) {
    const int fd = ::open(QFile::encodeName(path).constData(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) {
        return {};
    }
    QDBusUnixFileDescriptor descriptor(fd); // duplicates it
    ::close(fd);
    return descriptor;
}

void chooseApplication(const QString& path, const Notify& notify);

// The applications whose desktop entries list the file's type; where the desktop portal
// runs, its own chooser after them.
void addApplications(QMenu& menu, const QString& path, const Notify& notify) {
    const QString type = QMimeDatabase().mimeTypeForFile(path).name();
    const std::vector<OpenWith::Application> applications = OpenWith::applicationsFor(type);
    for (const OpenWith::Application& application : applications) {
        menu.addAction(application.name, &menu, [application, path, notify] {
            if (!OpenWith::open(application, path)) {
                notify(QStringLiteral("Couldn’t open the movie with ") + application.name +
                       QStringLiteral("."));
            }
        });
    }
    const bool portal = serviceAvailable(portalService);
    if (applications.empty() && !portal) {
        menu.addAction(QStringLiteral("No Applications for Movies"))->setEnabled(false);
    }
    if (portal) {
        if (!applications.empty()) {
            menu.addSeparator();
        }
        menu.addAction(QStringLiteral("Other Application…"), &menu,
                       [path, notify] { chooseApplication(path, notify); });
    }
}

void chooseApplication(const QString& path, const Notify& notify) {
    QDBusMessage call = QDBusMessage::createMethodCall(
        portalService, portalPath, QStringLiteral("org.freedesktop.portal.OpenURI"),
        QStringLiteral("OpenFile"));
    call << QString() << QVariant::fromValue(openForPortal(path))
         << QVariantMap{{QStringLiteral("ask"), true}};
    if (QDBusConnection::sessionBus().call(call, QDBus::Block, portalTimeoutMilliseconds).type() ==
        QDBusMessage::ErrorMessage) {
        notify(QStringLiteral("Couldn’t open the movie: the desktop offered no applications."));
    }
}

void email(const QString& path, const Notify& notify) {
    if (serviceAvailable(portalService)) {
        qDBusRegisterMetaType<QList<QDBusUnixFileDescriptor>>();
        QDBusMessage call = QDBusMessage::createMethodCall(
            portalService, portalPath, QStringLiteral("org.freedesktop.portal.Email"),
            QStringLiteral("ComposeEmail"));
        const QList<QDBusUnixFileDescriptor> attachments{openForPortal(path)};
        call << QString()
             << QVariantMap{{QStringLiteral("attachment_fds"), QVariant::fromValue(attachments)}};
        if (QDBusConnection::sessionBus()
                .call(call, QDBus::Block, portalTimeoutMilliseconds)
                .type() != QDBusMessage::ErrorMessage) {
            return;
        }
    }
    if (QStandardPaths::findExecutable(QStringLiteral("xdg-email")).isEmpty() ||
        !QProcess::startDetached(QStringLiteral("xdg-email"), {QStringLiteral("--attach"), path})) {
        notify(QStringLiteral("Couldn’t start an email: no mail application was found."));
    }
}

} // namespace

void popup(const QString& path, QPoint at, std::function<void(const QString&)> notify,
           std::function<void()> closed) {
    auto* menu = new QMenu;
    menu->setAttribute(Qt::WA_DeleteOnClose);
    menu->setAccessibleName(QStringLiteral("Share"));
    addApplications(*menu->addMenu(QStringLiteral("Open With…")), path, notify);
    menu->addAction(QStringLiteral("Email…"), menu, [path, notify] { email(path, notify); });
    if (closed) {
        QObject::connect(menu, &QMenu::aboutToHide, menu, std::move(closed));
    }
    menu->popup(at);
}

} // namespace lumenvale::ShareMenu
