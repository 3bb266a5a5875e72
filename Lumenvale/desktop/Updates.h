#pragma once

#include <QNetworkAccessManager>
#include <QObject>
#include <QPointer>
#include <QString>
#include <QTimer>
#include <QUrl>
#include <chrono>
#include <optional>

class QNetworkReply;

namespace lumenvale {

// Whether a newer Lumenvale has been published. It reads the update feed (a Sparkle
// appcast, Appcast.h) at <host>/api/v1/products/lumenvale/appcast.xml, with
// "?channel=beta" while beta versions are wanted. It never downloads or installs a
// release: a check by hand hands the release's download page to the caller to open.
//
// The host is the build setting LUMENVALE_UPDATE_HOST (scheme, host and optional port);
// the environment variable of the same name overrides it, so tests can point it at a
// server of their own.
//
// Checks:
//   scheduled  while automaticallyChecks is on: once a day, a day after the last check
//              of any kind (the time is kept in the settings, so a restart does not
//              check again early). One single-shot timer; nothing wakes up in between.
//              A newer release sets `pending` (the menu's "Update to …" row); a feed
//              without one clears it.
//   by hand    checkByHand(): emits checkedByHand with a sentence for the user and the
//              page to open. The user has now seen the update, so `pending` is cleared.
// A check that fails (no connection, no answer within the transfer timeout, an HTTP
// error, a feed that cannot be read) never sets `pending` and leaves it as it was.
//
// Settings, all in the standard file, also during a test run (Store.h):
//   "updates.beta"       whether beta versions are wanted (default off)
//   "updates.automatic"  whether checks run by themselves (default off)
//   "updates.lastCheck"  when the last check started (UTC, ISO 8601)
//
// Threads: the GUI thread; every signal is emitted there. Destroying an updater drops
// a check still running (its network manager deletes the reply without a signal).
class Updates : public QObject {
    Q_OBJECT
    Q_PROPERTY(QString pending READ pending NOTIFY pendingChanged)
    Q_PROPERTY(bool canCheck READ canCheck NOTIFY canCheckChanged)
    Q_PROPERTY(bool automaticallyChecks READ automaticallyChecks WRITE setAutomaticallyChecks NOTIFY
                   automaticallyChecksChanged)
    Q_PROPERTY(bool beta READ beta WRITE setBeta NOTIFY betaChanged)
    Q_PROPERTY(QString currentVersion READ currentVersion CONSTANT)

  public:
    static constexpr std::chrono::milliseconds defaultTransferTimeout{10'000};
    static constexpr std::chrono::hours checkInterval{24};

    // `transferTimeout`: a check fails when the server sends nothing for this long.
    explicit Updates(std::chrono::milliseconds transferTimeout = defaultTransferTimeout);

    // Created on first use, never destroyed.
    static Updates& shared();

    // The display version of a release waiting for the user's attention; empty when
    // there is none.
    QString pending() const { return pending_; }
    // Whether a check may start now: after start() and while no check is running.
    bool canCheck() const { return canCheck_; }
    // Reads false before start(); a change before start() is dropped.
    bool automaticallyChecks() const;
    void setAutomaticallyChecks(bool on);
    // Takes effect at the next check.
    bool beta() const;
    void setBeta(bool on);
    // LUMENVALE_VERSION.
    static QString currentVersion();

    // The feed address the next check reads.
    QUrl feedUrl() const;

    // Starts the updater: checks become possible and the schedule runs. A second call
    // does nothing.
    void start();
    // Checks now and reports the result through checkedByHand. Before start() it does
    // nothing; while a scheduled check runs, that check's result is reported instead.
    void checkByHand();

    // How long until the next scheduled check; nothing while none is scheduled.
    std::optional<std::chrono::milliseconds> nextCheckIn() const;

  signals:
    void pendingChanged();
    void canCheckChanged();
    void automaticallyChecksChanged();
    void betaChanged();
    // A check by hand has finished. `text` is one of "Lumenvale 1.2 is available.",
    // "You’re up to date." or what went wrong, in a sentence; `downloadPage` is the page
    // to open, empty when there is nothing to download.
    void checkedByHand(const QString& text, const QUrl& downloadPage);

  private:
    enum class Trigger { schedule, hand };
    struct Outcome;

    void check(Trigger trigger);
    void finish();
    Outcome read(QNetworkReply& reply) const;
    // Keeps the one timer at the next due check, or stopped when none is due.
    void schedule();
    void setPending(const QString& version);
    void setCanCheck(bool can);

    std::chrono::milliseconds transferTimeout_;
    QNetworkAccessManager network_;
    QTimer timer_;
    QPointer<QNetworkReply> reply_;
    Trigger replyTrigger_ = Trigger::schedule;
    QString pending_;
    bool started_ = false;
    bool canCheck_ = false;
};

} // namespace lumenvale
