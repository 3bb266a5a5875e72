#pragma once

#include <QString>

// The command line's usage, written once: `lumenvale --help` and a refused command
// list every command's synopsis, and each command's own help and refusals repeat its
// synopsis from the same lines. Every text ends in a newline.
namespace lumenvale::Usage {

// "Usage:" and the synopsis of every command, the tray application's and the
// requests a launch hands to it first.
QString program();

// The synopsis of `lumenvale record` and what it does.
QString record();

// The synopsis of `lumenvale export`.
QString exportMovie();

} // namespace lumenvale::Usage
