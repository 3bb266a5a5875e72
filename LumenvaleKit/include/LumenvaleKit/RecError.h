#pragma once

#include <string_view>

namespace lumenvale {

// The recorder's own failures; their messages are shown to the user as they stand.
enum class RecError { windowGone, displayGone, nothingRecorded };

// "The window closed.", "The display is gone.", "Nothing was recorded."
std::string_view message(RecError error);

} // namespace lumenvale
