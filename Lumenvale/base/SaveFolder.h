#pragma once

#include "LumenvaleKit/RecordingOptions.h"

#include <filesystem>

namespace lumenvale::SaveFolder {

// Who named the options' folderPath: the stored settings, or this run's command line.
enum class FolderOrigin { settings, commandLine };

// Where finished movies go: a folder named on the command line; else the test folder
// while APP_STORE is set (it isolates a run from the user's save folder, not from
// what the run was told); else the options' folderPath when present; else the user's
// XDG videos folder. The folder is not created here (saving creates it with its
// parents). GUI thread.
std::filesystem::path resolve(const RecordingOptions& options,
                              FolderOrigin origin = FolderOrigin::settings);

} // namespace lumenvale::SaveFolder
