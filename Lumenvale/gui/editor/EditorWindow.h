#pragma once

#include "editor/EditorModel.h"

#include <QObject>
#include <QString>
#include <QUrl>
#include <filesystem>
#include <map>
#include <memory>
#include <set>

namespace lumenvale {

// The editor windows: one window and one EditorModel per recording, kept in a registry
// by the recording's path, and the one way to open a movie in the editor (the command
// line's FILEs, the desktop's Open, later the menu and the recording card).
//
// THE WINDOW ITSELF IS NOT BUILT YET. Until it is, showing a loaded model registers it
// and shows the notice "Editing comes in a later version: NAME" where the window would
// appear, and bringing an open window forward shows that notice again. The registry,
// the load and the "Couldn’t open" notices are what the window will use as they are.
//
// Threads: the GUI thread. Movies are read on worker threads (EditorModel::load).
class EditorWindow final : public QObject {
    Q_OBJECT

  public:
    // The application's editor windows, created on first use and never destroyed.
    static EditorWindow& shared();

    // Opens `file` in the editor: brings its window forward when the recording is open
    // already (or is being opened); otherwise loads it and shows a window for it. A
    // file that cannot be opened gets the notice "Couldn’t open NAME. REASON" (NAME: the
    // file's name) and nothing opens; so does a URL that is not a local file.
    void open(const QUrl& file);

    // Lets the user pick movies (MP4 and MOV, M4V, MKV and WebM too) in a file dialog,
    // the desktop portal's where one runs, and opens each. Returns at once.
    void choose();

    // The model of the open window for `file` (any spelling of its path), or nullptr.
    // Owned by the registry.
    EditorModel* model(const std::filesystem::path& file) const;

  signals:
    // A notice to show the user (the tray shows it).
    void noticeShown(const QString& text);

  private:
    explicit EditorWindow(QObject* parent = nullptr);

    void show(std::filesystem::path key, std::unique_ptr<EditorModel> model);
    void bringForward(const EditorModel& model);

    std::map<std::filesystem::path, std::unique_ptr<EditorModel>> windows_;
    std::set<std::filesystem::path> loading_;
};

} // namespace lumenvale
