#include "capture/portal/ScreenCastPortal.h"

#include "LumenvaleMedia/MediaError.h"

#include <QDBusArgument>
#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusReply>
#include <QDBusUnixFileDescriptor>
#include <QDBusVariant>
#include <QEventLoop>
#include <QObject>
#include <QRandomGenerator>
#include <QTimer>
#include <atomic>
#include <exception>
#include <fcntl.h>
#include <fstream>
#include <system_error>
#include <thread>

namespace lumenvale::portal {

namespace {

const QString portalService = QStringLiteral("org.freedesktop.portal.Desktop");
const QString portalPath = QStringLiteral("/org/freedesktop/portal/desktop");
const QString screenCast = QStringLiteral("org.freedesktop.portal.ScreenCast");

constexpr std::uint32_t monitorSource = 1;
constexpr std::uint32_t windowSource = 2;
constexpr std::uint32_t cursorHidden = 1;
constexpr std::uint32_t cursorEmbedded = 2;
constexpr std::uint32_t cursorMetadata = 4;
// Remembered until the user revokes it.
constexpr std::uint32_t persistUntilRevoked = 2;
// A user choosing a monitor gets this long.
constexpr int answerTimeoutMs = 5 * 60 * 1000;

const char* const refusedSentence = "The desktop did not allow recording the screen.";
const char* const windowRefusedSentence =
    "No window was picked, or the desktop did not allow recording it.";
const char* const noWindowsSentence =
    "This desktop shares only whole screens, not single windows: record the screen or an "
    "area.";
const char* const missingPortalSentence =
    "Recording the screen on this Wayland desktop needs the desktop portal: install "
    "xdg-desktop-portal and the desktop’s backend for it (xdg-desktop-portal-wlr on sway and "
    "other wlroots desktops, xdg-desktop-portal-gnome on GNOME, xdg-desktop-portal-kde on KDE "
    "Plasma).";

// How a portal request ended: 0 granted, 1 cancelled by the user, 2 refused otherwise.
enum class Answer : std::uint32_t { granted = 0, cancelled = 1, refused = 2 };

// A refusal that a remembered choice may have caused.
struct Refused : MediaError {
    explicit Refused(Answer how = Answer::refused) : MediaError(refusedSentence), answer(how) {}
    // Answer::cancelled: the user cancelled the dialog, not to be asked again at once.
    Answer answer;
};

std::optional<std::string> readToken(const std::optional<std::filesystem::path>& file) {
    if (!file) {
        return std::nullopt;
    }
    std::ifstream in(*file);
    std::string token;
    if (!std::getline(in, token) || token.empty()) {
        return std::nullopt;
    }
    return token;
}

// Written beside and renamed, so a crash never leaves half a token.
void writeToken(const std::optional<std::filesystem::path>& file, const std::string& token) {
    if (!file) {
        return;
    }
    std::error_code error;
    std::filesystem::create_directories(file->parent_path(), error);
    const std::filesystem::path partial = file->string() + ".new";
    {
        std::ofstream out(partial, std::ios::trunc);
        out << token << '\n';
        if (!out) {
            return; // not remembered: the next recording asks again
        }
    }
    std::filesystem::rename(partial, *file, error);
}

void forgetToken(const std::optional<std::filesystem::path>& file) {
    if (file) {
        std::error_code error;
        std::filesystem::remove(*file, error);
    }
}

std::int64_t readPair(const QVariant& value, bool first, bool& found) {
    found = false;
    if (!value.canConvert<QDBusArgument>()) {
        return 0;
    }
    const auto argument = value.value<QDBusArgument>();
    std::int32_t a = 0;
    std::int32_t b = 0;
    argument.beginStructure();
    argument >> a >> b;
    argument.endStructure();
    found = true;
    return first ? a : b;
}

} // namespace

// Receives one request's Response signal.
class ResponseWaiter : public QObject {
    Q_OBJECT
  public:
    std::optional<Answer> answer;
    QVariantMap results;
    QEventLoop* loop = nullptr;

  public slots:
    void onResponse(uint code, const QVariantMap& values) {
        answer = static_cast<Answer>(code);
        results = values;
        if (loop) {
            loop->quit();
        }
    }
};

// The private bus connection and the session on it. The requests run on a thread of
// their own (see open()), whose local event loop only this connection's answers feed.
class ScreenCastPortal::Conversation {
  public:
    Conversation() {
        static std::atomic<int> serial{0};
        name_ = QStringLiteral("lumenvale-screencast-%1").arg(++serial);
        bus_ = std::make_unique<QDBusConnection>(
            QDBusConnection::connectToBus(QDBusConnection::SessionBus, name_));
        if (!bus_->isConnected()) {
            throw MediaError("Lumenvale couldn’t reach the desktop’s session bus, so it can’t ask "
                             "to record the screen.");
        }
        sender_ = bus_->baseService().mid(1).replace(QLatin1Char('.'), QLatin1Char('_'));
    }

    ~Conversation() {
        closeSession();
        bus_.reset();
        QDBusConnection::disconnectFromBus(name_);
    }

    Conversation(const Conversation&) = delete;
    Conversation& operator=(const Conversation&) = delete;

    // The portal's property, or nothing when there is no ScreenCast portal.
    std::optional<QVariant> property(const QString& name) {
        QDBusMessage call = QDBusMessage::createMethodCall(
            portalService, portalPath, QStringLiteral("org.freedesktop.DBus.Properties"),
            QStringLiteral("Get"));
        call << screenCast << name;
        const QDBusReply<QDBusVariant> reply = bus_->call(call);
        if (!reply.isValid()) {
            return std::nullopt;
        }
        return reply.value().variant();
    }

    // Calls `method` with `arguments` and the options, and waits for its Response.
    QVariantMap request(const QString& method, QVariantList arguments, QVariantMap options) {
        const QString token =
            QStringLiteral("lumenvale%1").arg(QRandomGenerator::global()->generate());
        const QString path =
            QStringLiteral("/org/freedesktop/portal/desktop/request/%1/%2").arg(sender_, token);
        options.insert(QStringLiteral("handle_token"), token);
        ResponseWaiter waiter;
        const QString requestInterface = QStringLiteral("org.freedesktop.portal.Request");
        // Listening before asking: the answer may come before the call returns.
        bus_->connect(portalService, path, requestInterface, QStringLiteral("Response"), &waiter,
                      SLOT(onResponse(uint, QVariantMap)));
        QDBusMessage call =
            QDBusMessage::createMethodCall(portalService, portalPath, screenCast, method);
        arguments.append(options);
        call.setArguments(arguments);
        const QDBusMessage reply = bus_->call(call, QDBus::Block, answerTimeoutMs);
        if (reply.type() == QDBusMessage::ErrorMessage) {
            bus_->disconnect(portalService, path, requestInterface, QStringLiteral("Response"),
                             &waiter, SLOT(onResponse(uint, QVariantMap)));
            throw Refused();
        }
        if (!waiter.answer) {
            QEventLoop loop;
            waiter.loop = &loop;
            QTimer::singleShot(answerTimeoutMs, &loop, &QEventLoop::quit);
            loop.exec();
        }
        bus_->disconnect(portalService, path, requestInterface, QStringLiteral("Response"), &waiter,
                         SLOT(onResponse(uint, QVariantMap)));
        if (!waiter.answer || *waiter.answer != Answer::granted) {
            throw Refused(waiter.answer.value_or(Answer::refused));
        }
        return waiter.results;
    }

    void createSession() {
        QVariantMap options;
        options.insert(QStringLiteral("session_handle_token"),
                       QStringLiteral("lumenvale%1").arg(QRandomGenerator::global()->generate()));
        const QVariantMap results = request(QStringLiteral("CreateSession"), {}, options);
        session_ = results.value(QStringLiteral("session_handle")).toString();
        if (session_.isEmpty()) {
            throw Refused();
        }
    }

    QVariantMap selectAndStart(std::uint32_t source, QVariantMap options) {
        options.insert(QStringLiteral("types"), QVariant::fromValue(source));
        options.insert(QStringLiteral("multiple"), false);
        const QVariant handle = QVariant::fromValue(QDBusObjectPath(session_));
        request(QStringLiteral("SelectSources"), {handle}, options);
        return request(QStringLiteral("Start"), {handle, QString()}, {});
    }

    OwnedFd openPipeWire() {
        QDBusMessage call = QDBusMessage::createMethodCall(portalService, portalPath, screenCast,
                                                           QStringLiteral("OpenPipeWireRemote"));
        call << QVariant::fromValue(QDBusObjectPath(session_)) << QVariantMap();
        const QDBusReply<QDBusUnixFileDescriptor> reply = bus_->call(call);
        if (!reply.isValid() || !reply.value().isValid()) {
            throw MediaError("Lumenvale couldn’t connect to PipeWire, which carries the screen’s "
                             "picture on this desktop.");
        }
        return OwnedFd(::fcntl(reply.value().fileDescriptor(), F_DUPFD_CLOEXEC, 0));
    }

    void closeSession() {
        if (session_.isEmpty()) {
            return;
        }
        bus_->call(QDBusMessage::createMethodCall(portalService, session_,
                                                  QStringLiteral("org.freedesktop.portal.Session"),
                                                  QStringLiteral("Close")),
                   QDBus::NoBlock);
        session_.clear();
    }

  private:
    QString name_;
    std::unique_ptr<QDBusConnection> bus_;
    QString sender_;
    QString session_;
};

ScreenCastPortal::ScreenCastPortal(std::optional<std::filesystem::path> tokenFile)
    : tokenFile_(std::move(tokenFile)) {}

ScreenCastPortal::~ScreenCastPortal() = default;

// The conversation runs on a thread of its own, so waiting for the portal never runs
// the caller's event loop (on the GUI thread that would let other work in meanwhile).
ScreenCastGrant ScreenCastPortal::open(SourceKind kind, PointerMode pointer) {
    ScreenCastGrant grant;
    std::exception_ptr failure;
    std::thread worker([&] {
        try {
            grant = openHere(kind, pointer);
        } catch (const Refused&) {
            failure = kind == SourceKind::window
                          ? std::make_exception_ptr(MediaError(windowRefusedSentence))
                          : std::current_exception();
        } catch (...) {
            failure = std::current_exception();
        }
    });
    worker.join();
    if (failure) {
        std::rethrow_exception(failure);
    }
    return grant;
}

ScreenCastGrant ScreenCastPortal::openHere(SourceKind kind, PointerMode pointer) {
    conversation_ = std::make_unique<Conversation>();
    Conversation& portal = *conversation_;
    const std::optional<QVariant> sources = portal.property(QStringLiteral("AvailableSourceTypes"));
    if (!sources || (sources->toUInt() & monitorSource) == 0) {
        throw MediaError(missingPortalSentence);
    }
    const std::uint32_t source = kind == SourceKind::window ? windowSource : monitorSource;
    if ((sources->toUInt() & source) == 0) {
        throw MediaError(noWindowsSentence);
    }
    const std::uint32_t version = portal.property(QStringLiteral("version")).value_or(0).toUInt();
    const std::uint32_t cursors =
        portal.property(QStringLiteral("AvailableCursorModes")).value_or(0).toUInt();

    QVariantMap options;
    // Drawn by the compositor where it can; else described beside the pictures, and
    // drawn by Lumenvale.
    const bool wanted = pointer == PointerMode::drawn;
    const bool embedded = wanted && (cursors & cursorEmbedded) != 0;
    const bool described = wanted && !embedded && (cursors & cursorMetadata) != 0;
    if (cursors != 0) {
        options.insert(QStringLiteral("cursor_mode"),
                       QVariant::fromValue(embedded    ? cursorEmbedded
                                           : described ? cursorMetadata
                                                       : cursorHidden));
    }
    const bool persists = version >= 4;
    std::optional<std::string> token = persists ? readToken(tokenFile_) : std::nullopt;
    if (persists) {
        options.insert(QStringLiteral("persist_mode"), QVariant::fromValue(persistUntilRevoked));
    }

    QVariantMap started;
    portal.createSession();
    try {
        QVariantMap withToken = options;
        if (token) {
            withToken.insert(QStringLiteral("restore_token"), QString::fromStdString(*token));
        }
        started = portal.selectAndStart(source, withToken);
    } catch (const Refused& refusal) {
        if (!token || refusal.answer == Answer::cancelled) {
            throw;
        }
        // The remembered choice may be what was refused: forget it and ask afresh.
        forgetToken(tokenFile_);
        portal.closeSession();
        portal.createSession();
        started = portal.selectAndStart(source, options);
    }
    if (const QString fresh = started.value(QStringLiteral("restore_token")).toString();
        !fresh.isEmpty()) {
        writeToken(tokenFile_, fresh.toStdString());
    }

    ScreenCastGrant grant;
    grant.pointerDescribed = described;
    const auto streams = started.value(QStringLiteral("streams")).value<QDBusArgument>();
    bool found = false;
    streams.beginArray();
    while (!streams.atEnd() && !found) {
        std::uint32_t node = 0;
        QVariantMap properties;
        streams.beginStructure();
        streams >> node >> properties;
        streams.endStructure();
        grant.node = node;
        found = true;
        bool known = false;
        const QVariant position = properties.value(QStringLiteral("position"));
        const std::int64_t x = readPair(position, true, known);
        if (known) {
            grant.x = x;
            grant.y = readPair(position, false, known);
        }
        const QVariant size = properties.value(QStringLiteral("size"));
        const std::int64_t width = readPair(size, true, known);
        if (known) {
            grant.width = width;
            grant.height = readPair(size, false, known);
        }
    }
    streams.endArray();
    if (!found) {
        throw Refused(); // started, but nothing to show
    }
    grant.pipeWire = portal.openPipeWire();
    return grant;
}

} // namespace lumenvale::portal

#include "ScreenCastPortal.moc"
