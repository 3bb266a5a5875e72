#pragma once

// The file a finished movie is written to: a hidden temporary file in the save folder
// (HiddenFile), written through a large buffer, synced, then published under its final
// name without ever replacing an existing file. Internal to the recording-files area.

#include "ffmpeg/Handles.h"
#include "files/HiddenFile.h"

#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace lumenvale::files {

// Creates `folder` with all missing parents (it may exist). Throws MediaError naming
// the folder, e.g. "Lumenvale can’t create the folder “/a/b”: Permission denied.".
void createFolder(const std::filesystem::path& folder);

// One movie being written. Threads: one thread at a time. Not copyable.
class MovieFile {
  public:
    // Creates a new hidden file ".<stem>-<random>.partial" in `folder` (which must
    // exist), mode 0666 minus the umask, and holds an exclusive flock on it until this
    // object dies. Throws MediaError when the folder is not writable.
    MovieFile(std::filesystem::path folder, const std::string& stem);
    // Removes the temporary file unless it was published.
    ~MovieFile();
    MovieFile(const MovieFile&) = delete;
    MovieFile& operator=(const MovieFile&) = delete;

    // A seekable writer into the file, buffered in large blocks; owned by this object.
    // It writes straight through (AVIOContext::direct), so that a payload handed over
    // with payloadFromFile() reaches the file without passing through memory.
    AVIOContext* io() const { return io_.get(); }

    // Makes the next write of `size` bytes of the returned stand-in buffer take its
    // bytes from `fd` at `offset` instead, copied file to file by the kernel
    // (copy_file_range, else sendfile, else read and write). Hand the muxer a packet
    // whose data is the stand-in; payloadTaken() then tells whether the muxer wrote it
    // unchanged, as MPEG-4 does. The stand-in is valid until the next call.
    std::uint8_t* payloadFromFile(int fd, std::int64_t offset, int size);
    bool payloadTaken() const { return taken_; }
    const std::filesystem::path& temporaryPath() const { return file_.path(); }
    const std::filesystem::path& folder() const { return file_.folder(); }

    // True when a write or seek has failed; failure() is then the user's sentence.
    bool failed() const { return error_ != 0; }
    std::string failure() const;

    // Empties the file and rewinds, to write it again from the start.
    void restart();

    // Flushes the buffer and, for Durability::synced, syncs the data to the disk.
    // Throws MediaError on a write failure.
    void finish(Durability durability);

    // HiddenFile::publish() and publishAs(): the final name, never replacing a file.
    std::filesystem::path publish(const std::string& base, const std::string& ext,
                                  Durability durability) {
        return file_.publish(base, ext, durability);
    }
    void publishAs(const std::filesystem::path& destination, Durability durability) {
        file_.publishAs(destination, durability);
    }

  private:
    struct IoDeleter {
        void operator()(AVIOContext* io) const;
    };
    // Bytes of another file still to be copied to the end of this one.
    struct FileRange {
        int fd = -1;
        std::int64_t offset = 0;
        std::int64_t length = 0;
    };
    enum class CopyMethod { copyFileRange, sendFile, readAndWrite };

    static int writeBytes(void* self, std::uint8_t* bytes, int size);
    static std::int64_t seekBytes(void* self, std::int64_t offset, int whence);
    void makeIo();
    // What is waiting to be written is either staged bytes or one file range, in order.
    void stage(const std::uint8_t* bytes, std::size_t size);
    void writeAll(const std::uint8_t* bytes, std::size_t size);
    void flushStaged();
    void flushRange();
    void flushPending() {
        flushStaged();
        flushRange();
    }
    void copyRange(FileRange range);

    HiddenFile file_;
    int fd_ = -1; // file_'s
    int error_ = 0;
    std::string readFailure_; // a source of payloadFromFile() ended early
    std::unique_ptr<AVIOContext, IoDeleter> io_;

    std::vector<std::uint8_t> staged_; // capacity: the block size
    std::optional<FileRange> range_;
    std::vector<std::uint8_t> standIn_;
    std::optional<FileRange> expected_; // the payload the next stand-in write stands for
    bool taken_ = false;
    CopyMethod copyMethod_ = CopyMethod::copyFileRange;
};

} // namespace lumenvale::files
