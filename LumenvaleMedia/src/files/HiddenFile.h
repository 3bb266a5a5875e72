#pragma once

// A file written under a hidden temporary name in the folder it belongs in, and
// published under its final name only when complete, never replacing a file that is
// there (RENAME_NOREPLACE), not even one that appeared while it was written. Finished
// recordings (MovieFile) and exports are written this way, so a crash or `kill -9`
// never leaves a half-written file under a real name. Internal to LumenvaleMedia.

#include "LumenvaleMedia/MediaError.h"

#include <filesystem>
#include <string>

namespace lumenvale::files {

// The user's sentence for a failed write into `folder` (errno value `error`).
std::string writeFailure(const std::filesystem::path& folder, int error);

enum class Durability {
    synced, // data and name are on the disk when publish() returns
    cached, // left to the kernel's write-back (exports, benchmarks, scratch files)
};

// One file being written. Threads: one thread at a time. Not copyable.
class HiddenFile {
  public:
    // Thrown when the hidden file cannot be created: what() is writeFailure(), `error`
    // the errno value, for a caller that names the file in a sentence of its own.
    struct CreateFailed : MediaError {
        CreateFailed(const std::filesystem::path& folder, int errorNumber);
        int error = 0;
    };

    // Creates a new file ".<stem>-<8 hex digits>.partial" in `folder` (which must
    // exist), mode 0666 minus the umask, and holds an exclusive flock on it until this
    // object dies, so that clean-up after a crash (removeStale(),
    // Recovery::removeUnfinishedMovies) can tell a live file from a dead one.
    // Throws CreateFailed.
    HiddenFile(std::filesystem::path folder, const std::string& stem);
    // Closes the file and removes it unless it was published.
    ~HiddenFile();
    HiddenFile(const HiddenFile&) = delete;
    HiddenFile& operator=(const HiddenFile&) = delete;

    // Open for reading and writing (not appending) until this object dies: a writer may
    // read back what it wrote.
    int descriptor() const { return fd_; }
    // The hidden name until publication, the final one afterwards.
    const std::filesystem::path& path() const { return path_; }
    const std::filesystem::path& folder() const { return folder_; }

    // Syncs the data to the disk for Durability::synced. Throws MediaError.
    void sync(Durability durability);

    // Renames the file to the first free name of RecordingName::unique(folder, base,
    // ext), trying `preferred` (in the same folder) first when given: another file that
    // appears under a chosen name meanwhile is never replaced; the next free name is
    // taken instead. Returns the final path. Throws MediaError.
    std::filesystem::path publish(const std::string& base, const std::string& ext,
                                  Durability durability,
                                  const std::filesystem::path& preferred = {});
    // Renames the file to exactly `destination` (in the same folder); throws
    // MediaError("The file “…” already exists in the folder “…”.") if that name is
    // taken, by anything, a dangling symbolic link too.
    void publishAs(const std::filesystem::path& destination, Durability durability);

    // "The file “<name>” already exists in the folder “<folder>”."
    static MediaError nameTaken(const std::filesystem::path& destination);

    // Removes from `folder` the hidden files of `stem` that a writer killed before it
    // finished left behind: those nobody holds locked and nobody changed in the last
    // minute (a writer locks its file just after creating it). Returns how many.
    static int removeStale(const std::filesystem::path& folder, const std::string& stem);

  private:
    // Renames to `destination` unless taken: true when done, false when taken.
    bool renameWithoutReplacing(const std::filesystem::path& destination);
    void syncFolder(Durability durability) const;

    std::filesystem::path folder_;
    std::filesystem::path path_;
    int fd_ = -1;
    bool published_ = false;
};

} // namespace lumenvale::files
