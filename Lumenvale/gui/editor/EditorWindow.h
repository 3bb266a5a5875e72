#pragma once

#include "LumenvaleMedia/RecordingFiles.h"
#include "editor/EditorModel.h"
#include "gui/editor/EditorViewModel.h"

#include <QObject>
#include <QQuickWindow>
#include <QString>
#include <QUrl>
#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <set>

namespace lumenvale {

class ThumbnailImages;
class Windows;

// The editor windows: one window (EditorView.qml, 1120 × 720, at least 760 × 520) and
// one EditorModel per recording, kept in a registry by the recording's path, and the
// one way to open a movie in the editor (the command line's FILEs, the desktop's Open,
// the menu's Edit Last Recording… and Open Recording…, the card's Edit). Editor windows
// are ordinary windows and show in the task bar; when the last one closes only the
// tray remains.
//
// Threads: the GUI thread. Movies are read on worker threads (EditorModel::load).
class EditorWindow final : public QObject {
    Q_OBJECT

  public:
    // The application's editor windows, created on first use and never destroyed.
    static EditorWindow& shared();

    // Where the windows come from and how an export's card is shown; set once by the
    // application before anything opens. Without it, opening shows a notice.
    void attach(Windows& windows, std::function<void(const Recording&)> showCard);

    // Opens `file` in the editor: brings its window forward when the recording is open
    // already (or is being opened); otherwise loads it and shows a window for it. A
    // file that cannot be opened gets the notice "Couldn’t open NAME. REASON" (NAME: the
    // file's name) and nothing opens; so does a URL that is not a local file.
    void open(const QUrl& file);

    // Lets the user pick movies (MP4 and MOV, M4V, MKV and WebM too) in a file dialog,
    // the desktop portal's where one runs, and opens each. Returns at once.
    void choose();

    // Closes every editor window: before the views' engine goes away.
    void closeAll();

    // The model of the open window for `file` (any spelling of its path), or nullptr.
    // Owned by the registry.
    EditorModel* model(const std::filesystem::path& file) const;
    // The window showing `model`, or nullptr.
    QQuickWindow* window(const EditorModel& model) const;

  signals:
    // A notice to show the user.
    void noticeShown(const QString& text);

  private:
    struct Open {
        int number = 0; // names its filmstrip pictures
        std::unique_ptr<EditorModel> model;
        std::unique_ptr<EditorViewModel> view;
        std::unique_ptr<QQuickWindow> window;
    };

    explicit EditorWindow(QObject* parent = nullptr);

    void show(std::filesystem::path key, std::unique_ptr<EditorModel> model);
    void closed(const std::filesystem::path& key);

    Windows* windows_ = nullptr;
    std::function<void(const Recording&)> showCard_;
    ThumbnailImages* thumbnails_ = nullptr; // owned by the views' engine
    std::map<std::filesystem::path, Open> open_;
    std::set<std::filesystem::path> loading_;
    int opened_ = 0;
};

} // namespace lumenvale
