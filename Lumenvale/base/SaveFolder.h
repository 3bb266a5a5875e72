#pragma once

#include "LumenvaleKit/RecordingOptions.h"

#include <filesystem>

namespace lumenvale::SaveFolder {

// Where finished movies go: the test folder while APP_STORE is set; else the
// options' folderPath when present; else the user's XDG videos folder. The folder is
// not created here (saving creates it with its parents). GUI thread.
std::filesystem::path resolve(const RecordingOptions& options);

} // namespace lumenvale::SaveFolder
