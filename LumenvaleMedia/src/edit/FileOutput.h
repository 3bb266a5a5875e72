#pragma once

// The file an export writes, as the muxer's I/O: a hidden file in the destination's
// folder (files::HiddenFile) that publish() puts under its name once it is complete.
// Writes are passed straight to the file (no copy into an intermediate buffer, no flush
// per packet); writes of a source's stand-in bytes (SourceBytes) are done by the
// kernel with copy_file_range, and runs of them that continue each other in both files
// (packets copied in the source's own interleaving) become one call. The muxer may
// read back what it wrote (serveReadsTo). Internal to the edit area; used by the one
// thread that exports.

extern "C" {
#include <libavformat/avformat.h>
#include <libavformat/avio.h>
}

#include "LumenvaleMedia/EditRenderer.h"
#include "files/HiddenFile.h"

#include <atomic>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace lumenvale::edit {

class SourceBytes;

// What an export that was cancelled says.
inline constexpr char exportCancelled[] = "The export was cancelled.";

class FileOutput {
  public:
    // Creates the hidden file, first removing what an export of the same name that was
    // killed left there. Throws MediaError naming the file and folder, also when the
    // destination is exact and its name is taken already. Once `*cancel` is set (when
    // given), every write and read-back fails with exportCancelled, so that a long step
    // inside the muxer (moving the index) stops too.
    explicit FileOutput(const EditRenderer::Destination& destination,
                        const std::atomic<bool>* cancel = nullptr);
    // The hidden file is removed unless it was published.
    ~FileOutput();
    FileOutput(const FileOutput&) = delete;
    FileOutput& operator=(const FileOutput&) = delete;

    // The I/O context for the muxer; owned by this object.
    AVIOContext* context() const { return context_; }

    // Serves `muxer`'s reopening of its output for reading (its io_open), as the MPEG-4
    // muxer does to move the index in front of the samples: from this file's
    // descriptor, whatever the hidden file is named. This object must outlive `muxer`.
    void serveReadsTo(AVFormatContext* muxer);

    // Stand-in bytes of `source` are copied from its file by the kernel.
    void copyFrom(const SourceBytes* source) { source_ = source; }

    // The sentence for a write or copy that failed, when one did: the muxer only hears
    // of an error code.
    const std::optional<std::string>& failure() const { return failure_; }

    // Flushes what is pending. Throws MediaError when the last writes fail.
    void finish();

    // Puts the finished file under its name (see EditRenderer::Destination) and returns
    // that path. Throws MediaError when an exact name is taken.
    std::filesystem::path publish();

  private:
    static int write(void* opaque, std::uint8_t* data, int size);
    static std::int64_t seek(void* opaque, std::int64_t offset, int whence);
    static int openReadBack(AVFormatContext* muxer, AVIOContext** reader, const char* url,
                            int flags, AVDictionary** options);
    static int closeReadBack(AVFormatContext* muxer, AVIOContext* reader);
    static int readBack(void* opaque, std::uint8_t* data, int size);
    static std::int64_t seekReadBack(void* opaque, std::int64_t offset, int whence);
    // False, with failure_ saying so, once cancellation was asked for.
    bool goOn();
    // Queues a kernel copy of source bytes [from, from + size) to the current position,
    // joining it to the queued one when they continue each other; false when an earlier
    // copy fails (failure_ says why).
    bool queueCopy(std::int64_t from, std::size_t size);
    // Performs the queued copy; false when it fails (failure_ says why).
    bool flushCopy();
    bool copyByReading(std::int64_t from, std::int64_t to, std::size_t size);
    bool writeAll(const std::uint8_t* data, std::size_t size, std::int64_t at);
    bool fail(std::string sentence);
    bool failWriting(int error);

    struct PendingCopy {
        std::int64_t from = 0; // in the source
        std::int64_t to = 0;   // in the output
        std::size_t size = 0;
    };

    EditRenderer::Destination destination_;
    std::unique_ptr<files::HiddenFile> file_;
    int descriptor_ = -1; // file_'s
    std::int64_t position_ = 0;
    std::int64_t end_ = 0;
    AVIOContext* context_ = nullptr;
    const SourceBytes* source_ = nullptr;
    const std::atomic<bool>* cancel_ = nullptr;
    PendingCopy pending_;
    bool kernelCopies_ = true; // until the file system refuses copy_file_range
    std::vector<std::uint8_t> bounce_;
    std::optional<std::string> failure_;
};

} // namespace lumenvale::edit
