#include "gui/instance/AppInstance.h"

#include "base/AppIdentity.h"

#include <QCoreApplication>
#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDBusContext>
#include <QDBusError>
#include <QDBusMessage>
#include <QDBusReply>
#include <QObject>
#include <QUrl>
#include <QVariantList>
#include <QVariantMap>
#include <string>
#include <utility>
#include <variant>

namespace lumenvale::AppInstance {

namespace {

constexpr char interfaceName[] = "org.freedesktop.Application";

QString busName() {
    return QString::fromLatin1(applicationID);
}

// The object path the freedesktop interface expects: the id with '/' for '.'.
QString objectPath() {
    return QLatin1Char('/') + busName().replace(QLatin1Char('.'), QLatin1Char('/'));
}

// The application's object on the bus. Its public slots are the interface's methods,
// named as the interface names them.
class ApplicationService final : public QObject, protected QDBusContext {
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.freedesktop.Application")

  public:
    ApplicationService(std::function<void(const LaunchRequest&)> perform, QObject* parent)
        : QObject(parent), perform_(std::move(perform)) {}

  public slots:
    void Activate(const QVariantMap& platformData) {
        Q_UNUSED(platformData)
        later(ActivateRequest{});
    }

    void Open(const QStringList& uris, const QVariantMap& platformData) {
        Q_UNUSED(platformData)
        OpenRequest open;
        for (const QString& uri : uris) {
            open.files.append(QUrl(uri));
        }
        later(open);
    }

    void ActivateAction(const QString& name, const QVariantList& parameter,
                        const QVariantMap& platformData) {
        Q_UNUSED(platformData)
        const std::optional<RecAction> action = recActionFromRawValue(name.toStdString());
        if (!action) {
            sendErrorReply(QDBusError::InvalidArgs,
                           QStringLiteral("Lumenvale has no action “%1”.").arg(name));
            return;
        }
        if (!parameter.isEmpty()) {
            sendErrorReply(QDBusError::InvalidArgs,
                           QStringLiteral("The action “%1” takes no parameter.").arg(name));
            return;
        }
        later(ActionRequest{*action});
    }

  private:
    // After the answer has gone out: the caller never waits for a recording to start
    // or a movie to load.
    void later(LaunchRequest request) {
        QMetaObject::invokeMethod(
            this, [this, request = std::move(request)] { perform_(request); },
            Qt::QueuedConnection);
    }

    std::function<void(const LaunchRequest&)> perform_;
};

QDBusMessage callFor(const LaunchRequest& request) {
    const auto call = [](const char* method) {
        return QDBusMessage::createMethodCall(busName(), objectPath(),
                                              QString::fromLatin1(interfaceName),
                                              QString::fromLatin1(method));
    };
    const QVariant noPlatformData = QVariant::fromValue(QVariantMap());
    if (const auto* action = std::get_if<ActionRequest>(&request)) {
        QDBusMessage message = call("ActivateAction");
        message << QString::fromStdString(std::string(rawValue(action->action)))
                << QVariant::fromValue(QVariantList()) << noPlatformData;
        return message;
    }
    if (const auto* open = std::get_if<OpenRequest>(&request)) {
        QStringList uris;
        for (const QUrl& file : open->files) {
            uris << file.toString(QUrl::FullyEncoded);
        }
        QDBusMessage message = call("Open");
        message << uris << noPlatformData;
        return message;
    }
    QDBusMessage message = call("Activate");
    message << noPlatformData;
    return message;
}

} // namespace

Claim claim(std::function<void(const LaunchRequest&)> perform) {
    QDBusConnection bus = QDBusConnection::sessionBus();
    if (!bus.isConnected()) {
        return {Claim::Outcome::unavailable,
                QStringLiteral("There is no D-Bus session bus (%1), so later launches of "
                               "lumenvale cannot reach this one.")
                    .arg(bus.lastError().message())};
    }
    auto* service = new ApplicationService(std::move(perform), QCoreApplication::instance());
    if (!bus.registerObject(objectPath(), service, QDBusConnection::ExportAllSlots)) {
        delete service;
        return {Claim::Outcome::unavailable,
                QStringLiteral("The session bus refused the object %1, so later launches of "
                               "lumenvale cannot reach this one.")
                    .arg(objectPath())};
    }
    const QDBusReply<QDBusConnectionInterface::RegisterServiceReply> reply =
        bus.interface()->registerService(busName(), QDBusConnectionInterface::DontQueueService,
                                         QDBusConnectionInterface::DontAllowReplacement);
    if (reply.isValid() && reply.value() == QDBusConnectionInterface::ServiceRegistered) {
        return {Claim::Outcome::claimed, {}};
    }
    bus.unregisterObject(objectPath());
    delete service;
    if (reply.isValid()) {
        return {Claim::Outcome::heldElsewhere, {}};
    }
    return {Claim::Outcome::unavailable,
            QStringLiteral("The session bus refused the name %1 (%2), so later launches of "
                           "lumenvale cannot reach this one.")
                .arg(busName(), reply.error().message())};
}

std::optional<QString> forward(const LaunchRequest& request) {
    QDBusConnection bus = QDBusConnection::sessionBus();
    if (!bus.isConnected()) {
        return QStringLiteral("There is no D-Bus session bus to reach the running Lumenvale: %1")
            .arg(bus.lastError().message());
    }
    const QDBusMessage reply = bus.call(callFor(request), QDBus::Block, answerTimeoutMs);
    if (reply.type() != QDBusMessage::ErrorMessage) {
        return std::nullopt;
    }
    switch (QDBusError(reply).type()) {
    case QDBusError::NoReply:
    case QDBusError::Timeout:
    case QDBusError::TimedOut:
        return QStringLiteral("Lumenvale is running but did not answer within %1 seconds.")
            .arg(answerTimeoutMs / 1000);
    case QDBusError::ServiceUnknown:
    case QDBusError::Disconnected:
        return QStringLiteral("Lumenvale quit before it could take the request.");
    default:
        return QStringLiteral("Lumenvale refused the request: %1").arg(reply.errorMessage());
    }
}

} // namespace lumenvale::AppInstance

#include "AppInstance.moc"
