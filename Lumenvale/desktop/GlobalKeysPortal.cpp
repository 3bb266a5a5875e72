#include "desktop/GlobalKeysPortal.h"

#include "LumenvaleKit/KeyNames.h"

#include <QDBusArgument>
#include <QDBusConnection>
#include <QDBusMetaType>
#include <QDBusObjectPath>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>
#include <QDBusVariant>
#include <algorithm>
#include <cstdio>

namespace {

// One entry of BindShortcuts' a(sa{sv}): the shortcut's id and its properties.
struct PortalShortcut {
    QString id;
    QVariantMap properties;
};

QDBusArgument& operator<<(QDBusArgument& argument, const PortalShortcut& shortcut) {
    argument.beginStructure();
    argument << shortcut.id << shortcut.properties;
    argument.endStructure();
    return argument;
}

const QDBusArgument& operator>>(const QDBusArgument& argument, PortalShortcut& shortcut) {
    argument.beginStructure();
    argument >> shortcut.id >> shortcut.properties;
    argument.endStructure();
    return argument;
}

} // namespace

Q_DECLARE_METATYPE(PortalShortcut)

namespace lumenvale {

namespace {

const QString portalService = QStringLiteral("org.freedesktop.portal.Desktop");
const QString portalPath = QStringLiteral("/org/freedesktop/portal/desktop");
const QString shortcutsInterface = QStringLiteral("org.freedesktop.portal.GlobalShortcuts");
const QString requestInterface = QStringLiteral("org.freedesktop.portal.Request");

// The shortcut id the portal knows an id by: the action's raw value for the four
// actions ("screen", ...), else the number.
QString shortcutID(std::uint32_t id) {
    const std::optional<RecAction> action = recActionFromHotkeyID(id);
    return action ? QString::fromLatin1(rawValue(*action)) : QString::number(id);
}

QString descriptionOf(std::uint32_t id) {
    const std::optional<RecAction> action = recActionFromHotkeyID(id);
    return action ? QString::fromLatin1(title(*action))
                  : QStringLiteral("Lumenvale shortcut %1").arg(id);
}

// Where the portal puts the request of `token` for this connection
// (/org/freedesktop/portal/desktop/request/SENDER/TOKEN, SENDER the unique name
// without its colon and with underscores for dots).
QString requestPath(const QString& token) {
    QString sender = QDBusConnection::sessionBus().baseService().mid(1);
    sender.replace(QLatin1Char('.'), QLatin1Char('_'));
    return portalPath + QStringLiteral("/request/") + sender + QLatin1Char('/') + token;
}

} // namespace

bool GlobalKeysPortal::offered() {
    QDBusMessage get = QDBusMessage::createMethodCall(
        portalService, portalPath, QStringLiteral("org.freedesktop.DBus.Properties"),
        QStringLiteral("Get"));
    get << shortcutsInterface << QStringLiteral("version");
    const QDBusMessage reply = QDBusConnection::sessionBus().call(get, QDBus::Block, 2000);
    return reply.type() == QDBusMessage::ReplyMessage;
}

GlobalKeysPortal::GlobalKeysPortal(std::unique_ptr<Keyboard> keyboard, QObject* parent)
    : GlobalKeys(parent), keyboard_(std::move(keyboard)) {
    qDBusRegisterMetaType<PortalShortcut>();
    qDBusRegisterMetaType<QList<PortalShortcut>>();
    rebindTimer_.setSingleShot(true);
    rebindTimer_.setInterval(0);
    connect(&rebindTimer_, &QTimer::timeout, this, &GlobalKeysPortal::rebind);
    QDBusConnection::sessionBus().connect(portalService, portalPath, shortcutsInterface,
                                          QStringLiteral("Activated"), this,
                                          SLOT(onActivated(QDBusMessage)));
}

GlobalKeysPortal::~GlobalKeysPortal() {
    closeSession();
}

GlobalKeys::Grab GlobalKeysPortal::grab(std::uint32_t id, Combo combo) {
    const bool taken = std::any_of(wanted_.begin(), wanted_.end(), [&](const auto& entry) {
        return entry.first != id && entry.second == combo;
    });
    if (combo.mods.isEmpty() || taken) {
        release(id);
        return Grab::inUse;
    }
    wanted_[id] = combo;
    rebindTimer_.start();
    return Grab::ok;
}

void GlobalKeysPortal::release(std::uint32_t id) {
    if (wanted_.erase(id) > 0) {
        rebindTimer_.start();
    }
}

std::optional<QString> GlobalKeysPortal::triggerOf(Combo combo,
                                                   const std::optional<std::string>& character) {
    QString trigger;
    const std::pair<std::int64_t, const char*> modifiers[] = {{Mods::control, "CTRL+"},
                                                              {Mods::option, "ALT+"},
                                                              {Mods::shift, "SHIFT+"},
                                                              {Mods::command, "LOGO+"}};
    for (const auto& [mod, name] : modifiers) {
        if (combo.mods.contains(Mods(mod))) {
            trigger += QLatin1String(name);
        }
    }
    QString key = QString::fromStdString(KeyNames::linuxDisplay(combo.keyCode, Mods(), character));
    if (key == QLatin1String("?") || key.isEmpty()) {
        return std::nullopt;
    }
    // xkbcommon names the keys that type a character by the character's lower case.
    if (key.size() == 1 || key == QLatin1String("Space")) {
        key = key.toLower();
    }
    return trigger + key;
}

void GlobalKeysPortal::rebind() {
    if (wanted_ == bound_) {
        return; // bound, or being bound
    }
    closeSession();
    bound_ = wanted_;
    ++generation_;
    if (bound_.empty()) {
        return;
    }
    const std::uint64_t generation = generation_;
    const QString token = QStringLiteral("lumenvale%1").arg(++tokens_);
    request(QStringLiteral("CreateSession"), {}, {{QStringLiteral("session_handle_token"), token}},
            [this, generation](uint response, const QVariantMap& results) {
                if (generation != generation_) {
                    return;
                }
                const QVariant handle = results.value(QStringLiteral("session_handle"));
                session_ = handle.canConvert<QDBusObjectPath>()
                               ? handle.value<QDBusObjectPath>().path()
                               : handle.toString();
                if (response != 0 || session_.isEmpty()) {
                    session_.clear();
                    bound_.clear(); // the next change tries again
                    report(QStringLiteral("The desktop didn’t let Lumenvale hold its shortcuts."));
                    return;
                }
                bind();
            });
}

void GlobalKeysPortal::bind() {
    QList<PortalShortcut> shortcuts;
    for (const auto& [id, combo] : bound_) {
        QVariantMap properties{{QStringLiteral("description"), descriptionOf(id)}};
        if (const std::optional<QString> trigger =
                triggerOf(combo, keyboard_->character(combo.keyCode))) {
            properties.insert(QStringLiteral("preferred_trigger"), *trigger);
        }
        shortcuts.append(PortalShortcut{shortcutID(id), properties});
    }
    const std::uint64_t generation = generation_;
    request(
        QStringLiteral("BindShortcuts"),
        {QVariant::fromValue(QDBusObjectPath(session_)), QVariant::fromValue(shortcuts), QString()},
        {}, [this, generation](uint response, const QVariantMap&) {
            if (generation == generation_ && response != 0) {
                bound_.clear();
                report(QStringLiteral("The desktop didn’t take Lumenvale’s shortcuts. "
                                      "Set them again in Settings, or bind the commands "
                                      "in the desktop’s keyboard settings."));
            }
        });
}

void GlobalKeysPortal::closeSession() {
    if (session_.isEmpty()) {
        return;
    }
    QDBusConnection::sessionBus().asyncCall(QDBusMessage::createMethodCall(
        portalService, session_, QStringLiteral("org.freedesktop.portal.Session"),
        QStringLiteral("Close")));
    session_.clear();
}

void GlobalKeysPortal::request(const QString& method, QList<QVariant> arguments,
                               QVariantMap options, Answer answer) {
    const QString token = QStringLiteral("lumenvale%1").arg(++tokens_);
    const QString path = requestPath(token);
    options.insert(QStringLiteral("handle_token"), token);
    // Listening before asking: the answer may come before the call returns.
    pending_[path] = std::move(answer);
    QDBusConnection::sessionBus().connect(portalService, path, requestInterface,
                                          QStringLiteral("Response"), this,
                                          SLOT(onResponse(QDBusMessage)));
    QDBusMessage call =
        QDBusMessage::createMethodCall(portalService, portalPath, shortcutsInterface, method);
    arguments.append(options);
    call.setArguments(arguments);
    auto* watcher =
        new QDBusPendingCallWatcher(QDBusConnection::sessionBus().asyncCall(call), this);
    connect(watcher, &QDBusPendingCallWatcher::finished, this,
            [this, path, method](QDBusPendingCallWatcher* done) {
                done->deleteLater();
                const auto found = pending_.find(path);
                if (!done->isError() || found == pending_.end()) {
                    return;
                }
                // As a refusal, after saying what the bus said.
                const Answer refused = std::move(found->second);
                pending_.erase(found);
                report(QStringLiteral("The desktop portal’s %1 failed: %2")
                           .arg(method, done->error().message()));
                refused(2, {});
            });
}

void GlobalKeysPortal::onResponse(const QDBusMessage& message) {
    const QString path = message.path();
    QDBusConnection::sessionBus().disconnect(portalService, path, requestInterface,
                                             QStringLiteral("Response"), this,
                                             SLOT(onResponse(QDBusMessage)));
    const auto found = pending_.find(path);
    if (found == pending_.end() || message.arguments().size() < 2) {
        return;
    }
    const Answer answer = std::move(found->second);
    pending_.erase(found);
    const QVariantMap results = qdbus_cast<QVariantMap>(message.arguments().at(1));
    answer(message.arguments().at(0).toUInt(), results);
}

void GlobalKeysPortal::onActivated(const QDBusMessage& message) {
    const QList<QVariant> arguments = message.arguments();
    if (arguments.size() < 2 || session_.isEmpty() ||
        arguments.at(0).value<QDBusObjectPath>().path() != session_) {
        return;
    }
    const QString shortcut = arguments.at(1).toString();
    for (const auto& [id, combo] : bound_) {
        if (shortcutID(id) == shortcut) {
            emit pressed(id);
            return;
        }
    }
}

void GlobalKeysPortal::report(const QString& problem) const {
    std::fputs((problem + QLatin1Char('\n')).toLocal8Bit().constData(), stderr);
    std::fflush(stderr);
}

} // namespace lumenvale
