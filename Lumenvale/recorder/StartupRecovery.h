#pragma once

#include "LumenvaleMedia/RecordingFiles.h"

#include <QObject>
#include <QStringList>
#include <filesystem>
#include <functional>
#include <vector>

namespace lumenvale::StartupRecovery {

struct Report {
    std::vector<Recording> recovered;
    // One notice per recovered movie ("Recovered a recording that was interrupted:
    // <file name>") and one per interrupted recording that could not be saved.
    QStringList notices;
};

// Finds the part files that an interrupted recording left in the parts folder
// (QDir::tempPath()) and saves each recording as a movie in `saveFolder`. Parts that a
// running recording holds are never touched, and parts are removed only once the
// movie that contains them is saved; unreadable files are left alone. Runs on its own
// thread ("app.lumenvale.Lumenvale.recovery"); `done` is called on `context`'s thread
// (the GUI thread). `context` must outlive the recovery.
void run(const std::filesystem::path& saveFolder, QObject* context,
         std::function<void(Report)> done);

} // namespace lumenvale::StartupRecovery
