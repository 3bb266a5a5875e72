#include "gui/editor/PreviewSurface.h"

#include "gui/editor/PreviewPlayerMpv.h"

#include <QDebug>
#include <QOpenGLContext>
#include <QOpenGLFramebufferObject>
#include <QOpenGLFunctions>
#include <QQuickOpenGLUtils>
#include <QQuickWindow>
#include <QtQml/qqml.h>
#include <memory>
#include <mpv/render_gl.h>

namespace lumenvale {
namespace {

// Tells the item, on its own thread, what happens on the render thread and in mpv.
// Signals across threads are queued and dropped once the item is gone, which raw
// pointers to the item could not promise.
class SurfaceRelay final : public QObject {
    Q_OBJECT
  signals:
    void frameReady();
    void attached();
};

struct RenderContextFree {
    void operator()(mpv_render_context* context) const { mpv_render_context_free(context); }
};
using RenderContext = std::unique_ptr<mpv_render_context, RenderContextFree>;

void* glFunction(void* /*context*/, const char* name) {
    QOpenGLContext* current = QOpenGLContext::currentContext();
    return current ? reinterpret_cast<void*>(current->getProcAddress(QByteArray(name))) : nullptr;
}

class MpvRenderer final : public QQuickFramebufferObject::Renderer {
  public:
    explicit MpvRenderer(const PreviewSurface* surface) {
        QObject::connect(relay_.get(), &SurfaceRelay::frameReady, surface, &QQuickItem::update,
                         Qt::QueuedConnection);
        QObject::connect(relay_.get(), SIGNAL(attached()), surface, SLOT(rendererAttached()),
                         Qt::QueuedConnection);
    }

    // GUI thread blocked: the item may be read.
    void synchronize(QQuickFramebufferObject* item) override {
        PreviewPlayerMpv* player = static_cast<PreviewSurface*>(item)->mpvPlayer();
        wanted_ = player ? player->core() : nullptr;
    }

    void render() override {
        if (wanted_ != core_) {
            context_.reset(); // before the core it belongs to
            core_ = wanted_;
            attach();
        }
        QOpenGLFramebufferObject* target = framebufferObject();
        if (!context_) {
            QOpenGLFunctions* gl = QOpenGLContext::currentContext()->functions();
            gl->glClearColor(0, 0, 0, 1);
            gl->glClear(GL_COLOR_BUFFER_BIT);
            return;
        }
        mpv_opengl_fbo fbo{static_cast<int>(target->handle()), target->width(), target->height(),
                           0};
        int flipY = 0;
        mpv_render_param parameters[] = {{MPV_RENDER_PARAM_OPENGL_FBO, &fbo},
                                         {MPV_RENDER_PARAM_FLIP_Y, &flipY},
                                         {MPV_RENDER_PARAM_INVALID, nullptr}};
        mpv_render_context_render(context_.get(), parameters);
        QQuickOpenGLUtils::resetOpenGLState();
    }

  private:
    void attach() {
        if (!core_) {
            return;
        }
        mpv_opengl_init_params glInit{glFunction, nullptr};
        mpv_render_param parameters[] = {
            {MPV_RENDER_PARAM_API_TYPE, const_cast<char*>(MPV_RENDER_API_TYPE_OPENGL)},
            {MPV_RENDER_PARAM_OPENGL_INIT_PARAMS, &glInit},
            {MPV_RENDER_PARAM_INVALID, nullptr}};
        mpv_render_context* made = nullptr;
        if (const int status = mpv_render_context_create(&made, core_.get(), parameters);
            status < 0) {
            qWarning().noquote() << "The preview can’t be shown: mpv could not draw with OpenGL ("
                                 << mpv_error_string(status) << ").";
            return;
        }
        context_.reset(made);
        mpv_render_context_set_update_callback(
            made, [](void* relay) { emit static_cast<SurfaceRelay*>(relay)->frameReady(); },
            relay_.get());
        emit relay_->attached();
    }

    // Declared first, so it goes last: after the render context and its callbacks.
    const std::unique_ptr<SurfaceRelay> relay_ = std::make_unique<SurfaceRelay>();
    MpvCore wanted_;
    MpvCore core_;
    RenderContext context_; // declared after the core, so freed before it
};

} // namespace

PreviewSurface::PreviewSurface(QQuickItem* parent) : QQuickFramebufferObject(parent) {}

void PreviewSurface::registerQmlType() {
    QQuickWindow::setGraphicsApi(QSGRendererInterface::OpenGL);
    qmlRegisterType<PreviewSurface>("Lumenvale.Editor", 1, 0, "PreviewSurface");
}

QObject* PreviewSurface::player() const {
    return object_.data();
}

void PreviewSurface::setPlayer(QObject* player) {
    if (player == object_) {
        return;
    }
    object_ = player;
    player_ = qobject_cast<PreviewPlayerMpv*>(player);
    emit playerChanged();
    update();
}

QQuickFramebufferObject::Renderer* PreviewSurface::createRenderer() const {
    return new MpvRenderer(this);
}

void PreviewSurface::rendererAttached() {
    if (player_) {
        player_->surfaceAttached();
    }
}

} // namespace lumenvale

#include "PreviewSurface.moc"
