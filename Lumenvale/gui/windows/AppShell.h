#pragma once

#include <QObject>
#include <QString>
#include <QUrl>

namespace lumenvale {

class Windows;

// What the views ask of the application beyond their models: the version, whether the
// screen can be recorded (the welcome window's second step), and the small actions of
// the welcome and About windows. Exposed to every view as `app`.
//
// Threads: the GUI thread. The windows must outlive it.
class AppShell : public QObject {
    Q_OBJECT
    Q_PROPERTY(QString version READ version CONSTANT)
    Q_PROPERTY(bool screenAllowed READ screenAllowed NOTIFY screenAllowedChanged)
    Q_PROPERTY(QString makerName READ makerName CONSTANT)
    Q_PROPERTY(QUrl makerUrl READ makerUrl CONSTANT)

  public:
    explicit AppShell(Windows& windows, QObject* parent = nullptr);

    static QString version();
    bool screenAllowed() const;
    static QString makerName();
    static QUrl makerUrl();

    // The welcome window's permission button: checks again (Linux asks nobody).
    Q_INVOKABLE void requestScreen();
    Q_INVOKABLE void openSettings();
    // "Get Started": the welcome window does not come back.
    Q_INVOKABLE void finishWelcome();
    Q_INVOKABLE void openLink(const QUrl& url);

  signals:
    void screenAllowedChanged();

  private:
    Windows& windows_;
};

} // namespace lumenvale
