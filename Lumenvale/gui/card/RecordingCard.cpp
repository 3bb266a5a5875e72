#include "gui/card/RecordingCard.h"

#include "LumenvaleKit/Clock.h"
#include "desktop/OpenWith.h"
#include "desktop/Screens.h"
#include "editor/QtImage.h"
#include "gui/panels/OverlayPanel.h"
#include "gui/windows/Windows.h"

#include <QClipboard>
#include <QCursor>
#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDBusMessage>
#include <QDBusMetaType>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>
#include <QDBusUnixFileDescriptor>
#include <QDesktopServices>
#include <QFile>
#include <QGuiApplication>
#include <QImage>
#include <QMenu>
#include <QMimeData>
#include <QMimeDatabase>
#include <QMutex>
#include <QProcess>
#include <QQuickImageProvider>
#include <QQuickWindow>
#include <QStandardPaths>
#include <fcntl.h>
#include <unistd.h>

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

const QString portalService = QStringLiteral("org.freedesktop.portal.Desktop");
const QString portalPath = QStringLiteral("/org/freedesktop/portal/desktop");

bool serviceAvailable(const QString& name) {
    QDBusConnectionInterface* bus = QDBusConnection::sessionBus().interface();
    if (bus == nullptr) {
        return false;
    }
    if (bus->isServiceRegistered(name).value()) {
        return true;
    }
    const QDBusReply<QStringList> activatable =
        QDBusConnection::sessionBus().call(QDBusMessage::createMethodCall(
            QStringLiteral("org.freedesktop.DBus"), QStringLiteral("/org/freedesktop/DBus"),
            QStringLiteral("org.freedesktop.DBus"), QStringLiteral("ListActivatableNames")));
    return activatable.isValid() && activatable.value().contains(name);
}

// A read-only descriptor of `path` for a portal; invalid when it cannot be opened.
QDBusUnixFileDescriptor openForPortal(const QString& path) {
    const int fd = ::open(QFile::encodeName(path).constData(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) {
        return {};
    }
    QDBusUnixFileDescriptor descriptor(fd); // duplicates it
    ::close(fd);
    return descriptor;
}

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
    auto* menu = new QMenu;
    menu->setAttribute(Qt::WA_DeleteOnClose);
    menu->setAccessibleName(QStringLiteral("Share"));
    const QString openWith = QStringLiteral("Open With…");
    if (serviceAvailable(portalService)) {
        menu->addAction(openWith, this, &RecordingCard::chooseApplication);
    } else {
        addApplications(*menu->addMenu(openWith));
    }
    menu->addAction(QStringLiteral("Email…"), this, &RecordingCard::email);
    menu->popup(QPoint(static_cast<int>(x), static_cast<int>(y)));
}

void RecordingCard::addApplications(QMenu& menu) {
    const QString path = fileUrl().toLocalFile();
    const QString type = QMimeDatabase().mimeTypeForFile(path).name();
    const std::vector<OpenWith::Application> applications = OpenWith::applicationsFor(type);
    if (applications.empty()) {
        menu.addAction(QStringLiteral("No Applications for Movies"))->setEnabled(false);
        return;
    }
    for (const OpenWith::Application& application : applications) {
        menu.addAction(application.name, this, [this, application, path] {
            if (!OpenWith::open(application, path)) {
                notify_(QStringLiteral("Couldn’t open the movie with ") + application.name +
                        QStringLiteral("."));
            }
        });
    }
}

void RecordingCard::chooseApplication() {
    if (!recording_) {
        return;
    }
    // The desktop's own chooser of the applications for the file's type.
    QDBusMessage call = QDBusMessage::createMethodCall(
        portalService, portalPath, QStringLiteral("org.freedesktop.portal.OpenURI"),
        QStringLiteral("OpenFile"));
    call << QString() << QVariant::fromValue(openForPortal(fileUrl().toLocalFile()))
         << QVariantMap{{QStringLiteral("ask"), true}};
    if (QDBusConnection::sessionBus().call(call, QDBus::Block, 10000).type() ==
        QDBusMessage::ErrorMessage) {
        notify_(QStringLiteral("Couldn’t open the movie: the desktop offered no applications."));
    }
}

void RecordingCard::email() {
    if (!recording_) {
        return;
    }
    const QString path = fileUrl().toLocalFile();
    if (serviceAvailable(portalService)) {
        qDBusRegisterMetaType<QList<QDBusUnixFileDescriptor>>();
        QDBusMessage call = QDBusMessage::createMethodCall(
            portalService, portalPath, QStringLiteral("org.freedesktop.portal.Email"),
            QStringLiteral("ComposeEmail"));
        const QList<QDBusUnixFileDescriptor> attachments{openForPortal(path)};
        call << QString()
             << QVariantMap{{QStringLiteral("attachment_fds"), QVariant::fromValue(attachments)}};
        if (QDBusConnection::sessionBus().call(call, QDBus::Block, 10000).type() !=
            QDBusMessage::ErrorMessage) {
            return;
        }
    }
    if (QStandardPaths::findExecutable(QStringLiteral("xdg-email")).isEmpty() ||
        !QProcess::startDetached(QStringLiteral("xdg-email"), {QStringLiteral("--attach"), path})) {
        notify_(QStringLiteral("Couldn’t start an email: no mail application was found."));
    }
}

} // namespace lumenvale
