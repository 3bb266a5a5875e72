#pragma once

#include "LumenvaleKit/RecordingOptions.h"

#include <QSettings>
#include <QString>
#include <filesystem>
#include <optional>

// The one place where the application's persistent settings live: an INI file
// (QSettings) in the XDG config folder, named after the application identifier.
// With the environment variable APP_STORE naming a folder, a run is isolated: its
// settings go to a separate file (the identifier followed by ".test") and finished
// movies go to that folder, so self-tests and snapshot runs never touch the user's
// real settings or save folder.
//
// Keys of the settings domain:
//   "options"         RecordingOptions as JSON text (UTF-8)
//   "hotkey.<action>" a Combo as JSON text, removed when the shortcut is cleared
//   "welcome.shown"   true once the welcome window has appeared
// "updates.beta" deliberately lives in the standard file only, also during a test run.
//
// Threads: the GUI thread. Nothing here reports an error.
namespace lumenvale::Store {

inline constexpr char optionsKey[] = "options";
inline constexpr char welcomeShownKey[] = "welcome.shown";
inline constexpr char updatesBetaKey[] = "updates.beta";
// The hotkey keys are storageKey(RecAction) from LumenvaleKit/Shortcuts.h.

enum class Domain { standard, test };

// The folder named by APP_STORE, evaluated on every call: nothing when the variable
// is absent or empty; otherwise the folder, created with its missing parents (a
// failure to create it is ignored; writing into it fails later, where it matters).
std::optional<std::filesystem::path> testFolder();

// True exactly when testFolder() is present.
bool isOverridden();

// The settings file of a domain: "<XDG config>/app.lumenvale.Lumenvale.conf", or
// "<XDG config>/app.lumenvale.Lumenvale.test.conf" for the test domain.
QString domainFile(Domain domain);

// The domain in force, chosen once on first use and kept for the life of the
// process: the test file while overridden (when it can be opened), else the
// standard file. The caller does not own it.
QSettings& defaults();

// The standard file, whatever APP_STORE says (for "updates.beta").
QSettings& standardDefaults();

// The stored options; the defaults when nothing is stored or the stored text does not
// decode (bad text stays stored until the next save replaces it). Never fails.
RecordingOptions loadOptions();

// Stores the options under "options" at once (the file is written before returning).
void save(const RecordingOptions& options);

} // namespace lumenvale::Store
