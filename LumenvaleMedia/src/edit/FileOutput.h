#pragma once

// The file an export writes, as the muxer's I/O. Writes are passed straight to the file
// (no copy into an intermediate buffer, no flush per packet); writes whose bytes lie in
// the mapped source movie are done by the kernel with copy_file_range, and runs of them
// that continue each other in both files (packets copied in the source's own
// interleaving) become one call. Internal to the edit area; used by the one thread
// that exports.

extern "C" {
#include <libavformat/avio.h>
}

#include <cstdint>
#include <filesystem>

namespace lumenvale::edit {

class SourceBytes;

class FileOutput {
  public:
    // Creates (or truncates) the file. Throws MediaError naming the file and folder.
    explicit FileOutput(const std::filesystem::path& destination);
    // Closes the file if close() was not called; never removes it.
    ~FileOutput();
    FileOutput(const FileOutput&) = delete;
    FileOutput& operator=(const FileOutput&) = delete;

    // The I/O context for the muxer; owned by this object.
    AVIOContext* context() const { return context_; }

    // Bytes that lie in `source`'s mapping are copied from its file by the kernel.
    void copyFrom(const SourceBytes* source) { source_ = source; }

    // Flushes and closes the file. Throws MediaError when the last writes fail.
    void close();

  private:
    static int write(void* opaque, std::uint8_t* data, int size);
    static std::int64_t seek(void* opaque, std::int64_t offset, int whence);
    // Queues a kernel copy of source bytes [from, from + size) to the current position,
    // joining it to the queued one when they continue each other; false (errno set)
    // when an earlier copy fails.
    bool queueCopy(std::int64_t from, std::size_t size);
    // Performs the queued copy; false (errno set) when it fails.
    bool flushCopy();
    bool writeAll(const std::uint8_t* data, std::size_t size, std::int64_t at);

    struct PendingCopy {
        std::int64_t from = 0; // in the source
        std::int64_t to = 0;   // in the output
        std::size_t size = 0;
    };

    int descriptor_ = -1;
    std::int64_t position_ = 0;
    std::int64_t end_ = 0;
    AVIOContext* context_ = nullptr;
    const SourceBytes* source_ = nullptr;
    PendingCopy pending_;
    bool kernelCopies_ = true; // until the file system refuses copy_file_range
};

} // namespace lumenvale::edit
