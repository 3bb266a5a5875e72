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
// A settings file that cannot be read, or whose options do not decode, is kept for the
// user beside the original as "<file>.unreadable" (the first time only) and the
// defaults are used; a settings folder that cannot be written leaves the settings of
// this run in memory. Either is told once through problem(); nothing here throws.
//
// Threads: the GUI thread.
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

// The problem with a settings file just opened, or empty: it cannot be parsed, or its
// "options" do not decode. Such a file is copied to "<file>.unreadable" unless that
// exists already. Used when a domain is opened; public for tests.
QString keepIfUnreadable(const QSettings& settings);

// The stored options; the defaults when nothing is stored or the stored text does not
// decode (bad text stays stored until the next save replaces it). Never fails.
RecordingOptions loadOptions();

// Stores the options under "options" at once (the file is written before returning).
// False when the file could not be written; problem() then says why.
bool save(const RecordingOptions& options);

// Writes what defaults() holds to its file; false (and problem() says why) when the
// file cannot be written. For the other keys' writers.
bool sync();

// What is wrong with the settings file, as a sentence for the user: unreadable (kept
// aside, defaults in use) or unwritable (changes last until quitting). Empty when all
// is well.
QString problem();

// problem() the first time it is asked for after it appeared, empty afterwards: what
// a notice shows once.
QString takeUnreportedProblem();

} // namespace lumenvale::Store
