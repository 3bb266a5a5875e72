#include "gui/editor/EditorWindow.h"

#include "base/PathText.h"
#include "editor/EditorServices.h"

#include <QFileDialog>
#include <QStandardPaths>
#include <system_error>
#include <utility>

namespace lumenvale {

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

} // namespace

EditorWindow::EditorWindow(QObject* parent) : QObject(parent) {}

EditorWindow& EditorWindow::shared() {
    static auto* windows = new EditorWindow;
    return *windows;
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
    const auto found = windows_.find(registryKey(file));
    return found == windows_.end() ? nullptr : found->second.get();
}

void EditorWindow::open(const QUrl& file) {
    if (!file.isLocalFile()) {
        const QString name = file.fileName().isEmpty() ? file.toDisplayString() : file.fileName();
        emit noticeShown(
            couldNotOpen(name, QStringLiteral("Lumenvale opens only files on this computer.")));
        return;
    }
    const std::filesystem::path key = registryKey(toPath(file.toLocalFile()));
    if (const auto found = windows_.find(key); found != windows_.end()) {
        bringForward(*found->second);
        return;
    }
    if (!loading_.insert(key).second) {
        return; // its window appears when the load ends
    }
    EditorModel::load(key, EditorServices::standard(), this,
                      [this, key](EditorModel::LoadResult result) {
                          loading_.erase(key);
                          if (!result.model) {
                              emit noticeShown(couldNotOpen(nameOf(key), result.error));
                              return;
                          }
                          show(key, std::move(result.model));
                      });
}

void EditorWindow::show(std::filesystem::path key, std::unique_ptr<EditorModel> model) {
    EditorModel& shown = *model;
    windows_.emplace(std::move(key), std::move(model));
    bringForward(shown);
}

void EditorWindow::bringForward(const EditorModel& model) {
    // Where the window will be raised and activated.
    emit noticeShown(QStringLiteral("Editing comes in a later version: ") + nameOf(model.path()));
}

} // namespace lumenvale
