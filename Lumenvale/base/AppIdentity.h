#pragma once

namespace lumenvale {

// The application's one reverse-DNS identifier. It names the desktop entry
// (app.lumenvale.Lumenvale.desktop), the settings files in the XDG config folder
// (the test run's file adds ".test") and the application's own threads
// (the identifier followed by ".save", ".recovery", ...).
inline constexpr char applicationID[] = "app.lumenvale.Lumenvale";

} // namespace lumenvale
