#pragma once

#include "LumenvaleMedia/RecordingFiles.h"

#include <QObject>
#include <QPropertyAnimation>
#include <QString>
#include <QTimer>
#include <QUrl>
#include <functional>
#include <memory>
#include <optional>

class QQuickWindow;

namespace lumenvale {

class PosterImages;
class Windows;

// The card of a finished movie (CardView.qml), 16 points in from the bottom-right
// corner of the usable part of the display with the pointer: its poster and
// duration, Edit, Copy, Share, Show in Folder and Close; the poster drags out as the
// file. It hides itself 8 seconds after it shows (fading out over 0.3 s) unless the
// pointer rests on it: leaving starts the 8 seconds again, coming back during the fade
// keeps it. A newer movie replaces the one shown, in place, with the time restarted.
//
// Threads: the GUI thread.
class RecordingCard : public QObject {
    Q_OBJECT
    Q_PROPERTY(bool hasRecording READ hasRecording NOTIFY recordingChanged)
    Q_PROPERTY(QString durationText READ durationText NOTIFY recordingChanged)
    Q_PROPERTY(QString fileName READ fileName NOTIFY recordingChanged)
    Q_PROPERTY(QUrl fileUrl READ fileUrl NOTIFY recordingChanged)
    Q_PROPERTY(QString posterSource READ posterSource NOTIFY recordingChanged)
    Q_PROPERTY(bool hovering READ hovering WRITE setHovering NOTIFY hoveringChanged)

  public:
    // `notify` shows a transient notice ("Copied"); `openEditor` opens a movie in the
    // editor.
    RecordingCard(Windows& windows, std::function<void(const QString&)> notify,
                  std::function<void(const QUrl&)> openEditor, QObject* parent = nullptr);
    ~RecordingCard() override;

    void show(const Recording& recording);

    bool hasRecording() const { return recording_.has_value(); }
    QString durationText() const;
    QString fileName() const;
    QUrl fileUrl() const;
    QString posterSource() const;
    bool hovering() const { return hovering_; }
    void setHovering(bool hovering);

    // The buttons; each does nothing without a recording.
    Q_INVOKABLE void edit();
    // The file on the clipboard as a file (text/uri-list, x-special/gnome-copied-files)
    // and as its path; then the notice "Copied".
    Q_INVOKABLE void copy();
    // The share menu at (x, y), Qt's global coordinates: Open With… (the desktop
    // portal's chooser, else the applications listed for movies), Email….
    Q_INVOKABLE void share(double x, double y);
    // Shows the movie in the file manager (org.freedesktop.FileManager1), else opens
    // its folder.
    Q_INVOKABLE void reveal();
    Q_INVOKABLE void close();

  signals:
    void recordingChanged();
    void hoveringChanged();

  private:
    void scheduleHide();
    void cancelHide();

    Windows& windows_;
    std::function<void(const QString&)> notify_;
    std::function<void(const QUrl&)> openEditor_;
    PosterImages* posters_; // owned by the views' engine
    std::unique_ptr<QQuickWindow> window_;
    std::optional<Recording> recording_;
    int generation_ = 0;
    bool hovering_ = false;
    QTimer hideTimer_;
    QPropertyAnimation fade_;
};

} // namespace lumenvale
