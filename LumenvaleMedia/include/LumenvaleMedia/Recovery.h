#pragma once

#include "LumenvaleKit/RecordingName.h"
#include "LumenvaleKit/Uuid.h"
#include "LumenvaleMedia/RecordingFiles.h"

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace lumenvale {

// The parts of one recording that ended without being saved (the program was killed,
// the machine lost power), found in the parts folder at the next start.
struct InterruptedRecording {
    // In recording order (by their `lumenvale_part` number).
    std::vector<std::filesystem::path> parts;
    // The `lumenvale_recording` tag shared by the parts; absent for a movie file
    // without Lumenvale's tags, which is recovered on its own.
    std::optional<Uuid> recordingID;
    // When the recording started (`lumenvale_started`), else the local modification
    // time of its first part; the recovered movie is named after it.
    LocalDateTime startedAt;
};

// A part file that holds data but does not open as a movie. It is left exactly as it
// is (and reported again at every start).
struct UnusablePart {
    std::filesystem::path path;
    std::string reason; // a sentence for the user, e.g. "The file “…” is not a movie …"
};

struct RecoveryScan {
    std::vector<InterruptedRecording> recordings; // oldest start first
    std::vector<UnusablePart> unusable;
    // Parts whose writer is gone and that hold no picture or sound at all: empty, an
    // MPEG-4 header without samples (the writer was killed before its first
    // fragment), or a movie that lists no samples. Nothing is lost by removing them.
    std::vector<std::filesystem::path> leftovers;
};

struct RecoveryResult {
    std::vector<Recording> recovered;
    // One sentence per interrupted recording that could not be saved; its parts are kept.
    std::vector<std::string> failures;
    std::vector<UnusablePart> unusable;
};

// Crash recovery of part files. A live recording holds every one of its parts locked
// (PartLock) from before the file appears until its movie is saved and the parts are
// removed; recovery takes only parts whose lock it gets, so it never touches a
// recording that is still running or saving, in this process or another. Nothing is
// deleted unless the movie that contains it has been saved, or it holds nothing
// recorded (RecoveryScan::leftovers).
//
// Threads: a worker thread, never the GUI thread (recovering reads and writes whole
// movies). Results are plain values owned by the caller.
namespace Recovery {

// Finds the part files "Lumenvale-*.mp4" directly in `partsFolder` that nobody holds
// locked, groups them by recording and orders each group by part number; a recording
// with any part locked by someone else is left out whole. Reads only the files'
// headers (and box headers of those that are not movies). Removes nothing. A missing
// folder gives an empty scan.
RecoveryScan find(const std::filesystem::path& partsFolder);

// Saves one interrupted recording into `saveFolder` as RecordingFiles::save() does
// (everything up to a cut-off last fragment is kept) and removes its parts afterwards.
// The parts are locked meanwhile, so a second recovery running at the same time
// leaves them alone. Throws MediaError (the parts are kept), also when someone else
// holds one of the parts (another process, or a recording of this one).
Recording recover(const InterruptedRecording& recording, const std::filesystem::path& saveFolder);

// Removes what saves cut short left in `saveFolder`: the hidden temporary movies
// (".Lumenvale Recording ….partial") that no running save holds locked. Their parts
// are still in the parts folder. Returns how many were removed.
int removeUnfinishedMovies(const std::filesystem::path& saveFolder);

// removeUnfinishedMovies(); then, holding the lock of every part found from the scan
// until its recording is saved (so a second recovery running meanwhile finds none of
// them): removes the leftovers quietly and saves every recording found as recover()
// does.
RecoveryResult recoverAll(const std::filesystem::path& partsFolder,
                          const std::filesystem::path& saveFolder);

// The notice shown for a recovered movie:
// "Recovered a recording that was interrupted: <movie file name>".
std::string notice(const Recording& recording);

} // namespace Recovery
} // namespace lumenvale
