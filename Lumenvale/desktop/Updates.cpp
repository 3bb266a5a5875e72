#include "desktop/Updates.h"

#include "base/Store.h"
#include "desktop/Appcast.h"

#include <QDateTime>
#include <QNetworkReply>
#include <QNetworkRequest>
#include <algorithm>

namespace lumenvale {

namespace {

constexpr char automaticKey[] = "updates.automatic";
constexpr char lastCheckKey[] = "updates.lastCheck";

QSettings& settings() {
    return Store::standardDefaults();
}

void store(const char* key, const QVariant& value) {
    settings().setValue(QLatin1String(key), value);
    settings().sync();
}

QString seconds(std::chrono::milliseconds duration) {
    return QString::number(static_cast<double>(duration.count()) / 1000.0);
}

// Qt's own error texts are not always sentences.
QString sentence(QString text) {
    text = text.trimmed();
    return text.endsWith(QLatin1Char('.')) ? text : text + QLatin1Char('.');
}

} // namespace

struct Updates::Outcome {
    QString text;
    QUrl downloadPage;
    // The display version of a newer release; nothing when there is none or the check
    // failed.
    std::optional<QString> newer;
    bool failed = false;
};

Updates::Updates(std::chrono::milliseconds transferTimeout) : transferTimeout_(transferTimeout) {
    timer_.setSingleShot(true);
    timer_.setTimerType(Qt::VeryCoarseTimer);
    connect(&timer_, &QTimer::timeout, this, [this] {
        check(Trigger::schedule);
        schedule();
    });
}

Updates& Updates::shared() {
    static Updates* const instance = new Updates();
    return *instance;
}

bool Updates::automaticallyChecks() const {
    return started_ && settings().value(QLatin1String(automaticKey), false).toBool();
}

void Updates::setAutomaticallyChecks(bool on) {
    if (!started_ || on == automaticallyChecks()) {
        return;
    }
    store(automaticKey, on);
    emit automaticallyChecksChanged();
    schedule();
}

bool Updates::beta() const {
    return settings().value(QLatin1String(Store::updatesBetaKey), false).toBool();
}

void Updates::setBeta(bool on) {
    if (on == beta()) {
        return;
    }
    store(Store::updatesBetaKey, on);
    emit betaChanged();
}

QString Updates::currentVersion() {
    return QStringLiteral(LUMENVALE_VERSION);
}

QUrl Updates::feedUrl() const {
    QString host = qEnvironmentVariable("LUMENVALE_UPDATE_HOST");
    if (host.isEmpty()) {
        host = QStringLiteral(LUMENVALE_UPDATE_HOST);
    }
    while (host.endsWith(QLatin1Char('/'))) {
        host.chop(1);
    }
    const QString query = beta() ? QStringLiteral("?channel=beta") : QString();
    return QUrl(host + QStringLiteral("/api/v1/products/lumenvale/appcast.xml") + query);
}

void Updates::start() {
    if (started_) {
        return;
    }
    started_ = true;
    setCanCheck(true);
    if (automaticallyChecks()) {
        emit automaticallyChecksChanged();
    }
    schedule();
}

void Updates::checkByHand() {
    check(Trigger::hand);
}

std::optional<std::chrono::milliseconds> Updates::nextCheckIn() const {
    if (!timer_.isActive()) {
        return std::nullopt;
    }
    return timer_.remainingTimeAsDuration();
}

void Updates::check(Trigger trigger) {
    if (!started_) {
        return;
    }
    if (reply_) {
        if (trigger == Trigger::hand) {
            replyTrigger_ = Trigger::hand;
        }
        return;
    }
    store(lastCheckKey, QDateTime::currentDateTimeUtc().toString(Qt::ISODateWithMs));
    QNetworkRequest request(feedUrl());
    request.setTransferTimeout(static_cast<int>(transferTimeout_.count()));
    request.setHeader(QNetworkRequest::UserAgentHeader,
                      QStringLiteral("Lumenvale/") + currentVersion());
    replyTrigger_ = trigger;
    reply_ = network_.get(request);
    connect(reply_, &QNetworkReply::finished, this, &Updates::finish);
    setCanCheck(false);
    // Any check counts as the day's check.
    schedule();
}

void Updates::finish() {
    QNetworkReply* reply = reply_;
    reply_ = nullptr;
    if (reply == nullptr) {
        return;
    }
    reply->deleteLater();
    const Outcome outcome = read(*reply);
    if (outcome.newer && replyTrigger_ == Trigger::schedule) {
        setPending(*outcome.newer);
    } else if (!outcome.failed) {
        setPending(QString());
    }
    setCanCheck(true);
    if (replyTrigger_ == Trigger::hand) {
        emit checkedByHand(outcome.text, outcome.downloadPage);
    }
}

Updates::Outcome Updates::read(QNetworkReply& reply) const {
    const auto failure = [](const QString& text) {
        return Outcome{text, QUrl(), {}, true};
    };
    const int status = reply.attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt();
    switch (reply.error()) {
    case QNetworkReply::NoError:
        break;
    case QNetworkReply::OperationCanceledError: // how a transfer timeout ends
    case QNetworkReply::TimeoutError:
        return failure(QStringLiteral("The update server did not answer within %1 seconds. "
                                      "Try again later.")
                           .arg(seconds(transferTimeout_)));
    case QNetworkReply::ConnectionRefusedError:
    case QNetworkReply::RemoteHostClosedError:
    case QNetworkReply::HostNotFoundError:
    case QNetworkReply::TemporaryNetworkFailureError:
    case QNetworkReply::NetworkSessionFailedError:
    case QNetworkReply::UnknownNetworkError:
    case QNetworkReply::ProxyConnectionRefusedError:
    case QNetworkReply::ProxyNotFoundError:
        return failure(QStringLiteral("Lumenvale could not reach the update server. "
                                      "Check the network connection and try again."));
    case QNetworkReply::SslHandshakeFailedError:
        return failure(QStringLiteral("Lumenvale could not verify the update server’s "
                                      "identity, so it did not use the server’s answer."));
    default:
        if (status >= 400) {
            return failure(QStringLiteral("The update server answered with an error (HTTP %1). "
                                          "Try again later.")
                               .arg(status));
        }
        return failure(QStringLiteral("Lumenvale could not check for updates: %1")
                           .arg(sentence(reply.errorString())));
    }

    const Result<Appcast> appcast = AppcastReading::parse(reply.readAll());
    if (!appcast) {
        return failure(QString::fromStdString(appcast.error()));
    }
    const std::optional<AppcastItem> release = AppcastReading::newerRelease(
        *appcast, currentVersion(), beta() ? UpdateChannel::beta : UpdateChannel::release);
    if (!release) {
        return Outcome{QStringLiteral("You’re up to date."), QUrl(), {}, false};
    }
    return Outcome{QStringLiteral("Lumenvale %1 is available.").arg(release->displayVersion),
                   release->downloadPage, release->displayVersion, false};
}

void Updates::schedule() {
    if (!automaticallyChecks()) {
        timer_.stop();
        return;
    }
    const std::chrono::milliseconds day = checkInterval;
    const QDateTime last = QDateTime::fromString(
        settings().value(QLatin1String(lastCheckKey)).toString(), Qt::ISODateWithMs);
    qint64 dueInMs = 0;
    if (last.isValid()) {
        // A clock set back never postpones the check by more than a day.
        dueInMs = std::clamp<qint64>(
            QDateTime::currentDateTimeUtc().msecsTo(last.addMSecs(day.count())), 0, day.count());
    }
    timer_.start(static_cast<int>(dueInMs));
}

void Updates::setPending(const QString& version) {
    if (version == pending_) {
        return;
    }
    pending_ = version;
    emit pendingChanged();
}

void Updates::setCanCheck(bool can) {
    if (can == canCheck_) {
        return;
    }
    canCheck_ = can;
    emit canCheckChanged();
}

} // namespace lumenvale
