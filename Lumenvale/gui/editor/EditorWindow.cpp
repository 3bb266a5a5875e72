#include "gui/editor/EditorWindow.h"

#include "base/PathText.h"
#include "editor/EditorServices.h"
#include "gui/editor/EditorViewModel.h"
#include "gui/editor/PreviewPlayerMpv.h"
#include "gui/windows/Windows.h"

#include <QFileDialog>
#include <QMutex>
#include <QQuickImageProvider>
#include <QQuickWindow>
#include <QStandardPaths>
#include <system_error>
#include <utility>

namespace lumenvale {

// "image://editorthumbs/N/I": picture I of the filmstrip of editor window N.
class ThumbnailImages : public QQuickImageProvider {
  public:
    ThumbnailImages() : QQuickImageProvider(QQuickImageProvider::Image) {}

    void set(int window, QList<QImage> pictures) {
        QMutexLocker lock(&mutex_);
        pictures_[window] = std::move(pictures);
    }
    void remove(int window) {
        QMutexLocker lock(&mutex_);
        pictures_.erase(window);
    }

    QImage requestImage(const QString& id, QSize* size, const QSize&) override {
        const QStringList parts = id.split(QLatin1Char('/'));
        QMutexLocker lock(&mutex_);
        QImage picture;
        if (parts.size() == 2) {
            const auto found = pictures_.find(parts[0].toInt());
            const int index = parts[1].toInt();
            if (found != pictures_.end() && index >= 0 && index < found->second.size()) {
                picture = found->second[index];
            }
        }
        if (size != nullptr) {
            *size = picture.size();
        }
        return picture;
    }

  private:
    QMutex mutex_; // the engine may ask from its loader thread
    std::map<int, QList<QImage>> pictures_;
};

namespace {

// One path per recording, however it was spelled: symbolic links and "." and ".."
// resolved as far as the file exists.
std::filesystem::path registryKey(const std::filesystem::path& file) {
    std::error_code failure;
    std::filesystem::path resolved = std::filesystem::weakly_canonical(file, failure);
    return failure ? file.lexically_normal() : resolved;
}

QString nameOf(const std::filesystem::path& file) {
    return toQString(file.filename());
}

QString couldNotOpen(const QString& name, const QString& reason) {
    return QStringLiteral("Couldn’t open ") + name + QStringLiteral(". ") + reason;
}

void bringForward(QQuickWindow& window) {
    window.show();
    if (window.windowStates() & Qt::WindowMinimized) {
        window.setWindowStates(window.windowStates() & ~Qt::WindowMinimized);
    }
    window.raise();
    window.requestActivate();
}

} // namespace

EditorWindow::EditorWindow(QObject* parent) : QObject(parent) {}

EditorWindow& EditorWindow::shared() {
    static auto* windows = new EditorWindow;
    return *windows;
}

void EditorWindow::attach(Windows& windows, std::function<void(const Recording&)> showCard) {
    windows_ = &windows;
    showCard_ = std::move(showCard);
    thumbnails_ = new ThumbnailImages;
    windows.addImageProvider(QStringLiteral("editorthumbs"), thumbnails_);
}

void EditorWindow::choose() {
    auto* dialog = new QFileDialog(nullptr, QStringLiteral("Open Recording"),
                                   QStandardPaths::writableLocation(QStandardPaths::MoviesLocation),
                                   QStringLiteral("Movies (*.mp4 *.mov *.m4v *.mkv *.webm)"));
    dialog->setFileMode(QFileDialog::ExistingFiles);
    dialog->setAttribute(Qt::WA_DeleteOnClose);
    connect(dialog, &QFileDialog::urlsSelected, this, [this](const QList<QUrl>& files) {
        for (const QUrl& file : files) {
            open(file);
        }
    });
    dialog->open();
}

EditorModel* EditorWindow::model(const std::filesystem::path& file) const {
    const auto found = open_.find(registryKey(file));
    return found == open_.end() ? nullptr : found->second.model.get();
}

QQuickWindow* EditorWindow::window(const EditorModel& model) const {
    for (const auto& [key, open] : open_) {
        if (open.model.get() == &model) {
            return open.window.get();
        }
    }
    return nullptr;
}

void EditorWindow::open(const QUrl& file) {
    if (!file.isLocalFile()) {
        const QString name = file.fileName().isEmpty() ? file.toDisplayString() : file.fileName();
        emit noticeShown(
            couldNotOpen(name, QStringLiteral("Lumenvale opens only files on this computer.")));
        return;
    }
    const std::filesystem::path key = registryKey(toPath(file.toLocalFile()));
    if (const auto found = open_.find(key); found != open_.end()) {
        bringForward(*found->second.window);
        return;
    }
    if (windows_ == nullptr) {
        emit noticeShown(couldNotOpen(nameOf(key), QStringLiteral("The editor is not ready.")));
        return;
    }
    if (!loading_.insert(key).second) {
        return; // its window appears when the load ends
    }
    EditorServices services = EditorServices::standard();
    services.makePlayer = &makeMpvPreviewPlayer;
    services.showCard = showCard_;
    EditorModel::load(key, std::move(services), this, [this, key](EditorModel::LoadResult result) {
        loading_.erase(key);
        if (!result.model) {
            emit noticeShown(couldNotOpen(nameOf(key), result.error));
            return;
        }
        show(key, std::move(result.model));
    });
}

void EditorWindow::show(std::filesystem::path key, std::unique_ptr<EditorModel> model) {
    Open entry;
    entry.number = ++opened_;
    entry.model = std::move(model);
    // The pictures reach the provider before the views hear of them (the filmstrip
    // may have loaded already).
    const int number = entry.number;
    EditorModel& shown = *entry.model;
    const auto publishThumbnails = [this, number, &shown] {
        QList<QImage> pictures;
        for (const EditorThumbnail& thumbnail : shown.thumbnails()) {
            pictures.append(thumbnail.image);
        }
        thumbnails_->set(number, std::move(pictures));
    };
    publishThumbnails();
    connect(&shown, &EditorModel::thumbnailsChanged, this, publishThumbnails);
    entry.view = std::make_unique<EditorViewModel>(
        *entry.model, QStringLiteral("image://editorthumbs/%1/").arg(entry.number),
        [this](const QString& text) { emit noticeShown(text); });
    entry.window.reset(
        windows_->create(QStringLiteral("EditorView"),
                         {{QStringLiteral("editor"),
                           QVariant::fromValue(static_cast<QObject*>(entry.view.get()))}}));
    if (!entry.window) {
        emit noticeShown(couldNotOpen(nameOf(key), QStringLiteral("The editor window failed.")));
        return;
    }

    connect(&shown, &EditorModel::errorChanged, this, [this, &shown] {
        if (!shown.error().isEmpty()) {
            emit noticeShown(QStringLiteral("Couldn’t export the movie. ") + shown.error());
        }
    });
    // A closed window is hidden, never minimised away: that is its end.
    connect(entry.window.get(), &QWindow::visibleChanged, this, [this, key](bool visible) {
        if (!visible) {
            closed(key);
        }
    });
    QQuickWindow& window = *entry.window;
    Windows::centre(window);
    open_.emplace(std::move(key), std::move(entry));
    bringForward(window);
}

void EditorWindow::closeAll() {
    // Out of the registry first: a window hides as it goes, which would close it again.
    std::map<std::filesystem::path, Open> closing = std::move(open_);
    open_.clear();
    for (auto& [key, entry] : closing) {
        entry.model->close();
        thumbnails_->remove(entry.number);
        entry.window.reset(); // before the view and model it reads
    }
}

void EditorWindow::closed(const std::filesystem::path& key) {
    const auto found = open_.find(key);
    if (found == open_.end()) {
        return;
    }
    found->second.model->close();
    thumbnails_->remove(found->second.number);
    // The window is inside its own close event: it and what its view reads go later.
    auto* window = found->second.window.release();
    auto* view = found->second.view.release();
    auto* model = found->second.model.release();
    open_.erase(found);
    window->deleteLater();
    connect(window, &QObject::destroyed, view, [view, model] {
        delete view;
        delete model;
    });
}

} // namespace lumenvale
