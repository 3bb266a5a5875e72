#include "gui/bubble/CameraBubble.h"

#include "LumenvaleKit/Bubble.h"
#include "desktop/Screens.h"
#include "desktop/XcbHandles.h"
#include "gui/bubble/CameraFeed.h"
#include "gui/panels/OverlayPanel.h"
#include "recorder/ScreenRecorder.h"

#include <QActionGroup>
#include <QGuiApplication>
#include <QMenu>
#include <QMouseEvent>
#include <QQmlComponent>
#include <QQuickItem>
#include <QQuickWindow>
#include <QRegion>
#include <QTimer>
#include <QVideoSink>
#include <QWheelEvent>
#include <QtGui/qguiapplication_platform.h>
#include <cmath>
#include <cstdio>
#include <cstring>

namespace lumenvale {

namespace {

const QString noCameraNotice =
    QStringLiteral("No camera was found, so the recording goes on without the camera bubble.");
const QString cannotShowNotice =
    QStringLiteral("The camera bubble could not be shown, so the recording goes on without it.");

// How long a recording waits at most for the bubble to be drawn: a window manager that
// never maps it must not hold the recording up.
constexpr int drawLimitMs = 2000;

double distance(const QPointF& a, const QPointF& b) {
    return std::hypot(a.x() - b.x(), a.y() - b.y());
}

// Asks the window manager to show `window` on every workspace (_NET_WM_DESKTOP
// 0xFFFFFFFF, read when the window is mapped). Nothing happens outside X11.
void showOnEveryWorkspace(QWindow& window) {
    auto* x11 = qGuiApp->nativeInterface<QNativeInterface::QX11Application>();
    if (x11 == nullptr) {
        return;
    }
    xcb_connection_t* connection = x11->connection();
    constexpr const char* name = "_NET_WM_DESKTOP";
    const x11::Reply<xcb_intern_atom_reply_t> atom(xcb_intern_atom_reply(
        connection,
        xcb_intern_atom(connection, 0, static_cast<std::uint16_t>(std::strlen(name)), name),
        nullptr));
    if (!atom) {
        return;
    }
    const std::uint32_t everyWorkspace = 0xFFFFFFFF;
    xcb_change_property(connection, XCB_PROP_MODE_REPLACE,
                        static_cast<xcb_window_t>(window.winId()), atom->atom, XCB_ATOM_CARDINAL,
                        32, 1, &everyWorkspace);
    xcb_flush(connection);
}

} // namespace

CameraBubble::CameraBubble(QQmlEngine& engine, QObject* parent)
    : QObject(parent), engine_(engine), feed_(std::make_unique<CameraFeed>()),
      exposeLimit_(std::make_unique<QTimer>()) {
    exposeLimit_->setSingleShot(true);
    exposeLimit_->setInterval(drawLimitMs);
    connect(exposeLimit_.get(), &QTimer::timeout, this, &CameraBubble::drawn);
    connect(feed_.get(), &CameraFeed::lost, this, [this](const QString& reason) {
        hide();
        emit noticeShown(reason +
                         QStringLiteral(" The recording goes on without the camera bubble."));
    });
}

CameraBubble::~CameraBubble() {
    // The window's picture refers to the feed's sink: the feed stops first.
    feed_->stop();
}

void CameraBubble::show(const Rect& area, std::function<void()> shown) {
    area_ = area;
    const auto without = [this, &shown](const QString& notice) {
        giveUp(notice);
        if (shown) {
            QTimer::singleShot(0, this, std::move(shown));
        }
    };
    if (!CameraFeed::available()) {
        return without(noCameraNotice);
    }
    if (!makeWindow()) {
        return without(cannotShowNotice);
    }
    auto* sink = window_->findChild<QObject*>(QStringLiteral("picture"))
                     ->property("videoSink")
                     .value<QVideoSink*>();
    if (sink == nullptr) {
        std::fprintf(stderr, "Lumenvale: the view BubbleView has no video sink.\n");
        return without(cannotShowNotice);
    }
    if (!feed_->start(*sink)) {
        return without(noCameraNotice);
    }
    const RecordingOptions& options = ScreenRecorder::shared().options();
    place(Bubble::frame(options.bubbleFrame, options.bubbleDiameter, area));
    if (shown) {
        waiting_.push_back(std::move(shown));
    }
    window_->show();
    window_->update();
    exposeLimit_->start();
}

void CameraBubble::hide() {
    press_.reset();
    waiting_.clear();
    exposeLimit_->stop();
    feed_->stop();
    if (menu_) {
        menu_->close();
    }
    if (window_) {
        window_->hide();
    }
}

std::optional<std::uint32_t> CameraBubble::windowID() const {
    if (!window_ || !window_->isVisible()) {
        return std::nullopt;
    }
    return static_cast<std::uint32_t>(window_->winId());
}

bool CameraBubble::makeWindow() {
    if (window_) {
        return true;
    }
    QQmlComponent component(&engine_, QUrl(QStringLiteral("qrc:/qml/BubbleView.qml")));
    std::unique_ptr<QObject> made(component.create());
    auto* window = qobject_cast<QQuickWindow*>(made.get());
    if (window == nullptr || window->findChild<QObject*>(QStringLiteral("picture")) == nullptr) {
        // A view that does not load is a fault of this build, not of the user's input.
        std::fprintf(stderr, "Lumenvale: the view BubbleView did not load: %s\n",
                     qPrintable(component.errorString()));
        return false;
    }
    made.release();
    window_.reset(window);
    window_->setFlags(Qt::Tool | Qt::FramelessWindowHint | Qt::WindowStaysOnTopHint |
                      Qt::WindowDoesNotAcceptFocus);
    window_->create();
    showOnEveryWorkspace(*window_);
    window_->installEventFilter(this);
    // Emitted on the render thread when there is one: the context makes it a queued call.
    connect(window_.get(), &QQuickWindow::frameSwapped, this, &CameraBubble::drawn);
    return true;
}

void CameraBubble::place(const Rect& frame) {
    frame_ = frame;
    OverlayPanel::place(*window_, frame);
    // Round without a compositor too: outside the circle the desktop shows through.
    OverlayPanel::clip(*window_, QRegion(QRect(QPoint(0, 0), window_->size()), QRegion::Ellipse));
}

void CameraBubble::resizeTo(double diameter) {
    place(Bubble::resized(frame_, diameter, area_));
    save();
}

void CameraBubble::save() {
    ScreenRecorder& recorder = ScreenRecorder::shared();
    RecordingOptions options = recorder.options();
    options.bubbleFrame = frame_;
    options.bubbleDiameter = frame_.width;
    recorder.setOptions(options);
}

void CameraBubble::drawn() {
    if (waiting_.empty()) {
        return;
    }
    exposeLimit_->stop();
    const std::vector<std::function<void()>> callbacks = std::move(waiting_);
    waiting_.clear();
    for (const auto& callback : callbacks) {
        callback();
    }
}

void CameraBubble::giveUp(const QString& notice) {
    hide();
    emit noticeShown(notice);
}

void CameraBubble::showMenu(const QPoint& global) {
    if (!menu_) {
        menu_ = std::make_unique<QMenu>();
        menu_->setAccessibleName(QStringLiteral("Camera"));
        auto* sizes = new QActionGroup(menu_.get());
        const std::pair<const char*, double> choices[] = {
            {"Small", Bubble::small}, {"Medium", Bubble::medium}, {"Large", Bubble::large}};
        for (const auto& [title, diameter] : choices) {
            QAction* action = menu_->addAction(QString::fromUtf8(title));
            action->setCheckable(true);
            action->setData(diameter);
            sizes->addAction(action);
            connect(action, &QAction::triggered, this, [this, diameter] { resizeTo(diameter); });
        }
        // A group that may have no choice checked: the bubble's width may be none of them.
        sizes->setExclusionPolicy(QActionGroup::ExclusionPolicy::ExclusiveOptional);
        menu_->addSeparator();
        connect(menu_->addAction(QStringLiteral("Hide Camera")), &QAction::triggered, this,
                &CameraBubble::hide);
        connect(menu_.get(), &QMenu::aboutToShow, this, [this] {
            for (QAction* action : menu_->actions()) {
                if (action->isCheckable()) {
                    action->setChecked(static_cast<int>(frame_.width) == action->data().toInt());
                }
            }
        });
    }
    menu_->popup(global);
}

bool CameraBubble::eventFilter(QObject* watched, QEvent* event) {
    if (watched != window_.get()) {
        return false;
    }
    switch (event->type()) {
    case QEvent::MouseButtonPress: {
        const auto* mouse = static_cast<QMouseEvent*>(event);
        if (mouse->button() == Qt::RightButton) {
            showMenu(mouse->globalPosition().toPoint());
            return true;
        }
        if (mouse->button() != Qt::LeftButton) {
            return false;
        }
        // From the frame, not QWindow::geometry(): a window manager that reparents the
        // window may leave Qt with its place inside the decoration frame.
        const Rect topLeft = Screens::toTopLeft(frame_);
        const QPointF centre(topLeft.midX(), topLeft.midY());
        const QPointF pointer = mouse->globalPosition();
        press_ = Press{pointer, frame_, centre,
                       distance(pointer, centre) > frame_.width / 2 - resizeRing};
        return true;
    }
    case QEvent::MouseMove: {
        if (!press_) {
            return false;
        }
        const QPointF pointer = static_cast<QMouseEvent*>(event)->globalPosition();
        if (press_->resizing) {
            place(Bubble::resized(press_->frame, 2 * distance(press_->centre, pointer), area_));
        } else {
            // Top-left coordinates grow downwards, desktop ones upwards.
            Rect moved = press_->frame;
            moved.x += pointer.x() - press_->pointer.x();
            moved.y -= pointer.y() - press_->pointer.y();
            place(Bubble::keep(moved, area_));
        }
        return true;
    }
    case QEvent::MouseButtonRelease: {
        if (!press_ || static_cast<QMouseEvent*>(event)->button() != Qt::LeftButton) {
            return false;
        }
        press_.reset();
        save();
        return true;
    }
    case QEvent::Wheel: {
        const auto* wheel = static_cast<QWheelEvent*>(event);
        // Points from a touchpad; from a wheel, degrees (an eighth of angleDelta).
        const double delta =
            wheel->pixelDelta().isNull() ? wheel->angleDelta().y() / 8.0 : wheel->pixelDelta().y();
        if (delta != 0) {
            resizeTo(frame_.width + delta);
        }
        return true;
    }
    default:
        return false;
    }
}

} // namespace lumenvale
