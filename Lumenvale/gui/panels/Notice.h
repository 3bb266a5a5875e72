#pragma once

#include "LumenvaleKit/Geometry.h"

#include <QObject>
#include <QPropertyAnimation>
#include <QString>
#include <QTimer>
#include <memory>
#include <optional>

class QQuickWindow;

namespace lumenvale {

class Windows;

// A transient notice (NoticePanel.qml): 480 wide, centred on the display with the
// pointer, its bottom a fifth of the display's height above the bottom; it stays 2.5
// seconds, then fades out over 0.3 s. A new text replaces the old and starts the time
// again; the old one's fade never touches it. Where the capture records it too
// (Wayland), it keeps clear of what is being recorded, or waits hidden until the
// recording ends.
//
// Threads: the GUI thread.
class Notice : public QObject {
    Q_OBJECT
    Q_PROPERTY(QString text READ text NOTIFY textChanged)

  public:
    explicit Notice(Windows& windows, QObject* parent = nullptr);
    ~Notice() override;

    void show(const QString& text);
    // While set, the notice never shows over `recorded` (desktop coordinates): it moves
    // clear of it (PanelPlacement), else hides; a notice showing now moves at once.
    void keepClearOf(std::optional<Rect> recorded);
    QString text() const { return text_; }

  signals:
    void textChanged();

  private:
    // Places the window on the display with the pointer; false when it has no place.
    bool place();

    Windows& windows_;
    std::optional<Rect> keepClearOf_;
    std::unique_ptr<QQuickWindow> window_;
    QString text_;
    QTimer hideTimer_;
    QPropertyAnimation fade_;
};

} // namespace lumenvale
