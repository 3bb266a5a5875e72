#pragma once

// The file a finished movie is written to: a hidden temporary file in the save folder,
// written through a large buffer, synced, then published under its final name without
// ever replacing an existing file. Internal to the recording-files area.

#include "ffmpeg/Handles.h"

#include <filesystem>
#include <memory>
#include <string>

namespace lumenvale::files {

// Creates `folder` with all missing parents (it may exist). Throws MediaError naming
// the folder, e.g. "Lumenvale can’t create the folder “/a/b”: Permission denied.".
void createFolder(const std::filesystem::path& folder);

// The user's sentence for a failed write into `folder` (errno value `error`).
std::string writeFailure(const std::filesystem::path& folder, int error);

enum class Durability {
    synced, // data and name are on the disk when publish() returns
    cached, // left to the kernel's write-back (benchmarks, scratch files)
};

// One movie being written. Threads: one thread at a time. Not copyable.
class MovieFile {
  public:
    // Creates a new hidden file ".<stem>-<random>.partial" in `folder` (which must
    // exist), mode 0666 minus the umask. Throws MediaError when the folder is not
    // writable.
    MovieFile(std::filesystem::path folder, const std::string& stem);
    // Removes the temporary file unless it was published.
    ~MovieFile();
    MovieFile(const MovieFile&) = delete;
    MovieFile& operator=(const MovieFile&) = delete;

    // A seekable writer into the file with a large buffer; owned by this object.
    AVIOContext* io() const { return io_.get(); }
    const std::filesystem::path& temporaryPath() const { return temporaryPath_; }
    const std::filesystem::path& folder() const { return folder_; }

    // True when a write or seek has failed; failure() is then the user's sentence.
    bool failed() const { return error_ != 0; }
    std::string failure() const;

    // Empties the file and rewinds, to write it again from the start.
    void restart();

    // Flushes the buffer and, for Durability::synced, syncs the data to the disk.
    // Throws MediaError on a write failure.
    void finish(Durability durability);

    // Renames the file to the first free name of RecordingName::unique(folder, base,
    // ext): another file that appears under a chosen name meanwhile is never replaced;
    // the next free name is taken instead. Returns the final path.
    std::filesystem::path publish(const std::string& base, const std::string& ext,
                                  Durability durability);
    // Renames the file to exactly `destination` (in the same folder); throws
    // MediaError if that name is taken.
    void publishAs(const std::filesystem::path& destination, Durability durability);

  private:
    struct IoDeleter {
        void operator()(AVIOContext* io) const;
    };
    static int writeBytes(void* self, std::uint8_t* bytes, int size);
    static std::int64_t seekBytes(void* self, std::int64_t offset, int whence);
    // Renames to `destination` unless taken: true when done, false when taken.
    bool renameWithoutReplacing(const std::filesystem::path& destination);
    void syncFolder(Durability durability) const;
    void close();

    std::filesystem::path folder_;
    std::filesystem::path temporaryPath_;
    int fd_ = -1;
    int error_ = 0;
    bool published_ = false;
    std::unique_ptr<AVIOContext, IoDeleter> io_;
};

} // namespace lumenvale::files
