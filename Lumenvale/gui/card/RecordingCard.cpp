#include "gui/card/RecordingCard.h"

#include "LumenvaleKit/Clock.h"
#include "desktop/Screens.h"
#include "editor/QtImage.h"
#include "gui/card/ShareMenu.h"
#include "gui/panels/OverlayPanel.h"
#include "gui/windows/Windows.h"

#include <QClipboard>
#include <QCursor>
#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>
#include <QDesktopServices>
#include <QGuiApplication>
#include <QImage>
#include <QMimeData>
#include <QMutex>
#include <QQuickImageProvider>
#include <QQuickWindow>

namespace lumenvale {

// "image://cardposter/N": the poster of the movie the card shows.
class PosterImages : public QQuickImageProvider {
  public:
    PosterImages() : QQuickImageProvider(QQuickImageProvider::Image) {}

    void set(QImage poster) {
        QMutexLocker lock(&mutex_);
        poster_ = std::move(poster);
    }

    QImage requestImage(const QString&, QSize* size, const QSize&) override {
        QMutexLocker lock(&mutex_);
        if (size != nullptr) {
            *size = poster_.size();
        }
        return poster_;
    }

  private:
    QMutex mutex_; // the engine may ask from its loader thread
    QImage poster_;
};

namespace {

constexpr int hideAfterMilliseconds = 8000;
constexpr double edgeDistance = 16; // points from the right and bottom of the usable area

} // namespace

RecordingCard::RecordingCard(Windows& windows, std::function<void(const QString&)> notify,
                             std::function<void(const QUrl&)> openEditor, QObject* parent)
    : QObject(parent), windows_(windows), notify_(std::move(notify)),
      openEditor_(std::move(openEditor)), posters_(new PosterImages) {
    windows_.addImageProvider(QStringLiteral("cardposter"), posters_);
    hideTimer_.setSingleShot(true);
    hideTimer_.setInterval(hideAfterMilliseconds);
    fade_.setPropertyName("opacity");
    fade_.setDuration(300);
    fade_.setStartValue(1.0);
    fade_.setEndValue(0.0);
    connect(&hideTimer_, &QTimer::timeout, this, [this] {
        if (window_) {
            fade_.setTargetObject(window_.get());
            fade_.start();
        }
    });
    connect(&fade_, &QPropertyAnimation::finished, this, [this] {
        if (window_) {
            window_->hide();
        }
    });
}

RecordingCard::~RecordingCard() = default;

QString RecordingCard::durationText() const {
    return recording_ ? QString::fromStdString(Clock::text(recording_->durationSeconds))
                      : QString();
}

QString RecordingCard::fileName() const {
    return recording_ ? QString::fromStdString(recording_->path.filename().string()) : QString();
}

QUrl RecordingCard::fileUrl() const {
    return recording_ ? QUrl::fromLocalFile(QString::fromStdString(recording_->path.string()))
                      : QUrl();
}

QString RecordingCard::posterSource() const {
    return recording_ && recording_->poster
               ? QStringLiteral("image://cardposter/%1").arg(generation_)
               : QString();
}

void RecordingCard::show(const Recording& recording) {
    recording_ = recording;
    ++generation_;
    posters_->set(recording.poster ? toQImage(*recording.poster) : QImage());
    emit recordingChanged();
    if (!window_) {
        window_ = OverlayPanel::create(windows_, QStringLiteral("CardView"),
                                       {{QStringLiteral("card"), QVariant::fromValue(this)}},
                                       OverlayPanel::Mouse::accepted);
        if (!window_) {
            return;
        }
    }
    if (const std::optional<Screen> screen = Screens::withMouse()) {
        const Rect& visible = screen->visibleFrame;
        const double width = window_->width();
        const double height = window_->height();
        OverlayPanel::place(*window_, Rect{visible.maxX() - width - edgeDistance,
                                           visible.minY() + edgeDistance, width, height});
    }
    OverlayPanel::clip(*window_, OverlayPanel::rounded(window_->size(), 20));
    fade_.stop();
    window_->setOpacity(1);
    window_->show();
    window_->raise();
    scheduleHide();
}

void RecordingCard::setHovering(bool hovering) {
    if (hovering == hovering_) {
        return;
    }
    hovering_ = hovering;
    emit hoveringChanged();
    if (hovering) {
        cancelHide();
    } else {
        scheduleHide();
    }
}

void RecordingCard::scheduleHide() {
    cancelHide();
    if (window_ && window_->isVisible()) {
        hideTimer_.start();
    }
}

void RecordingCard::cancelHide() {
    hideTimer_.stop();
    if (fade_.state() == QAbstractAnimation::Running) {
        fade_.stop();
        if (window_) {
            window_->setOpacity(1); // the pointer came back during the fade
        }
    }
}

void RecordingCard::close() {
    cancelHide();
    if (window_) {
        window_->hide();
    }
}

void RecordingCard::edit() {
    if (!recording_) {
        return;
    }
    close();
    openEditor_(fileUrl());
}

void RecordingCard::copy() {
    if (!recording_) {
        return;
    }
    const QUrl url = fileUrl();
    auto* data = new QMimeData;
    data->setUrls({url});
    data->setData(QStringLiteral("x-special/gnome-copied-files"),
                  QByteArray("copy\n") + url.toEncoded());
    data->setText(url.toLocalFile());
    QGuiApplication::clipboard()->setMimeData(data);
    notify_(QStringLiteral("Copied"));
}

void RecordingCard::reveal() {
    if (!recording_) {
        return;
    }
    const QUrl url = fileUrl();
    const QUrl folder =
        QUrl::fromLocalFile(QString::fromStdString(recording_->path.parent_path().string()));
    QDBusMessage call = QDBusMessage::createMethodCall(
        QStringLiteral("org.freedesktop.FileManager1"),
        QStringLiteral("/org/freedesktop/FileManager1"),
        QStringLiteral("org.freedesktop.FileManager1"), QStringLiteral("ShowItems"));
    call << QStringList{QString::fromUtf8(url.toEncoded())} << QString();
    auto* watcher =
        new QDBusPendingCallWatcher(QDBusConnection::sessionBus().asyncCall(call, 5000), this);
    connect(watcher, &QDBusPendingCallWatcher::finished, this,
            [this, folder](QDBusPendingCallWatcher* finished) {
                finished->deleteLater();
                // No file manager that selects files: the folder opens instead.
                if (finished->isError() && !QDesktopServices::openUrl(folder)) {
                    notify_(QStringLiteral("Couldn’t show the movie: no file manager was found."));
                }
            });
}

void RecordingCard::share(double x, double y) {
    if (!recording_) {
        return;
    }
    cancelHide(); // the card stays while the user chooses
    ShareMenu::popup(fileUrl().toLocalFile(), QPoint(static_cast<int>(x), static_cast<int>(y)),
                     notify_);
}

} // namespace lumenvale
