#include "gui/panels/SelectionOverlay.h"

#include "gui/panels/OverlayPanel.h"
#include "gui/windows/Windows.h"
#include "hotkeys/HotkeyCenter.h"

#include <QCursor>
#include <QGuiApplication>
#include <QMutex>
#include <QPixmap>
#include <QQuickImageProvider>
#include <QQuickWindow>
#include <QScreen>
#include <cmath>
#include <map>

namespace lumenvale {

// "image://overlaystill/N": the still of display N taken as the picker opened.
class StillImages : public QQuickImageProvider {
  public:
    StillImages() : QQuickImageProvider(QQuickImageProvider::Image) {}

    void set(std::map<QString, QImage> stills) {
        QMutexLocker lock(&mutex_);
        stills_ = std::move(stills);
    }

    QImage requestImage(const QString& id, QSize* size, const QSize&) override {
        QMutexLocker lock(&mutex_);
        const auto found = stills_.find(id.section(QLatin1Char('?'), 0, 0));
        const QImage image = found == stills_.end() ? QImage() : found->second;
        if (size != nullptr) {
            *size = image.size();
        }
        return image;
    }

  private:
    QMutex mutex_; // the engine may ask from its loader thread
    std::map<QString, QImage> stills_;
};

namespace {

constexpr double smallestDrag = 8; // points, each way

QRectF local(const Rect& rect, const QQuickWindow& picker) {
    return OverlayPanel::toQt(rect).translated(-QPointF(picker.position()));
}

} // namespace

SelectionOverlay::SelectionOverlay(Windows& windows, HotkeyCenter* hotkeys, QObject* parent)
    : QObject(parent), windows_(windows), hotkeys_(hotkeys), stills_(new StillImages) {
    windows_.addImageProvider(QStringLiteral("overlaystill"), stills_);
}

SelectionOverlay::~SelectionOverlay() = default;

void SelectionOverlay::open(Mode mode, Finish onFinish) {
    close();
    mode_ = mode;
    finish_ = std::move(onFinish);
    windowList_ =
        mode == Mode::window ? Screens::pickableWindows() : std::vector<Screens::PickableWindow>{};
    dragStart_.reset();
    dragRect_.reset();
    hovered_.reset();

    const bool translucent = Screens::compositing();
    std::map<QString, QImage> stills;
    const QList<QScreen*> screens = QGuiApplication::screens();
    if (!translucent) {
        // Taken before any picker shows, so that no picker is in them.
        for (int index = 0; index < screens.size(); ++index) {
            stills[QString::number(index)] = screens[index]->grabWindow(0).toImage();
        }
    }
    stills_->set(std::move(stills));
    static int generation = 0; // a new still for every opening, never a cached one
    ++generation;
    // The pickers are made once per display and kept: making full-screen windows
    // anew each time would be most of the wait between the shortcut and the picker.
    if (pickers_.size() != static_cast<std::size_t>(screens.size())) {
        pickers_.clear();
        for (qsizetype index = 0; index < screens.size(); ++index) {
            std::unique_ptr<QQuickWindow> picker =
                OverlayPanel::create(windows_, QStringLiteral("PickerPanel"),
                                     {{QStringLiteral("overlay"), QVariant::fromValue(this)},
                                      {QStringLiteral("windowMode"), false},
                                      {QStringLiteral("still"), QString()}},
                                     OverlayPanel::Mouse::accepted);
            if (!picker) { // said on standard error
                pickers_.clear();
                finish(std::nullopt);
                return;
            }
            pickers_.push_back(std::move(picker));
        }
    }
    for (qsizetype index = 0; index < screens.size(); ++index) {
        QQuickWindow& picker = *pickers_[static_cast<std::size_t>(index)];
        picker.setProperty("windowMode", mode == Mode::window);
        picker.setProperty(
            "still", translucent
                         ? QString()
                         : QStringLiteral("image://overlaystill/%1?%2").arg(index).arg(generation));
        picker.setGeometry(screens[index]->geometry());
    }
    // Drawn before they show: a kept picker must not flash the last opening's drag.
    if (mode == Mode::window) {
        const QPointF pointer = QCursor::pos();
        pointerMoved(pointer.x(), pointer.y());
    }
    redraw();
    for (const auto& picker : pickers_) {
        picker->show();
        picker->raise();
    }
    open_ = true;
    if (hotkeys_ != nullptr) {
        hotkeys_->grabEscape([this] { finish(std::nullopt); });
    }
}

void SelectionOverlay::close() {
    finish_ = nullptr;
    finish(std::nullopt);
}

void SelectionOverlay::finish(std::optional<Selection> selection) {
    if (hotkeys_ != nullptr && open_) {
        hotkeys_->releaseEscape();
    }
    open_ = false;
    for (auto& picker : pickers_) {
        picker->hide();
    }
    if (auto done = std::exchange(finish_, nullptr)) {
        done(std::move(selection));
    }
}

void SelectionOverlay::pointerPressed(double x, double y) {
    const Rect point = OverlayPanel::fromQt(QRectF(x, y, 0, 0));
    if (mode_ == Mode::area) {
        dragStart_ = QPointF(point.x, point.y);
        dragRect_.reset();
        redraw();
        return;
    }
    updateHover(point);
    if (hovered_) {
        finish(Selection{hovered_->frame, hovered_->id});
    }
}

void SelectionOverlay::pointerMoved(double x, double y) {
    const Rect point = OverlayPanel::fromQt(QRectF(x, y, 0, 0));
    if (mode_ == Mode::window) {
        updateHover(point);
        return;
    }
    if (!dragStart_) {
        return;
    }
    // Whole points, spanned by the start and the pointer in either direction.
    const double left = std::floor(std::min(dragStart_->x(), point.x));
    const double bottom = std::floor(std::min(dragStart_->y(), point.y));
    const double right = std::ceil(std::max(dragStart_->x(), point.x));
    const double top = std::ceil(std::max(dragStart_->y(), point.y));
    dragRect_ = Rect{left, bottom, right - left, top - bottom};
    redraw();
}

void SelectionOverlay::pointerReleased(double x, double y) {
    if (mode_ != Mode::area) {
        return;
    }
    pointerMoved(x, y);
    if (dragRect_ && dragRect_->width >= smallestDrag && dragRect_->height >= smallestDrag) {
        finish(Selection{*dragRect_, std::nullopt});
        return;
    }
    dragStart_.reset();
    dragRect_.reset();
    redraw();
}

void SelectionOverlay::updateHover(const Rect& point) {
    std::optional<Screens::PickableWindow> under;
    for (const Screens::PickableWindow& window : windowList_) {
        const Rect& frame = window.frame;
        if (point.x >= frame.minX() && point.x < frame.maxX() && point.y > frame.minY() &&
            point.y <= frame.maxY()) {
            under = window;
            break;
        }
    }
    if (under != hovered_) {
        hovered_ = under;
        redraw();
    }
}

void SelectionOverlay::redraw() {
    for (const auto& picker : pickers_) {
        picker->setProperty("dragRect", dragRect_ ? local(*dragRect_, *picker) : QRectF());
        picker->setProperty("sizeText", dragRect_ ? QStringLiteral("%1 × %2")
                                                        .arg(static_cast<int>(dragRect_->width))
                                                        .arg(static_cast<int>(dragRect_->height))
                                                  : QString());
        picker->setProperty("hoverRect", hovered_ ? local(hovered_->frame, *picker) : QRectF());
    }
}

} // namespace lumenvale
