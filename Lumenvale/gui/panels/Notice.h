#pragma once

#include <QObject>
#include <QPropertyAnimation>
#include <QString>
#include <QTimer>
#include <memory>

class QQuickWindow;

namespace lumenvale {

class Windows;

// A transient notice (NoticePanel.qml): 480 wide, centred on the display with the
// pointer, its bottom a fifth of the display's height above the bottom; it stays 2.5
// seconds, then fades out over 0.3 s. A new text replaces the old and starts the time
// again; the old one's fade never touches it.
//
// Threads: the GUI thread.
class Notice : public QObject {
    Q_OBJECT
    Q_PROPERTY(QString text READ text NOTIFY textChanged)

  public:
    explicit Notice(Windows& windows, QObject* parent = nullptr);
    ~Notice() override;

    void show(const QString& text);
    QString text() const { return text_; }

  signals:
    void textChanged();

  private:
    Windows& windows_;
    std::unique_ptr<QQuickWindow> window_;
    QString text_;
    QTimer hideTimer_;
    QPropertyAnimation fade_;
};

} // namespace lumenvale
