#pragma once

// Reading a file whose writer stopped mid-write: where its last whole MPEG-4 box ends,
// and a view of the file up to there for the demuxer. Internal to the recording-files
// area (PartInput).

#include "ffmpeg/Handles.h"

#include <cstdint>
#include <optional>

namespace lumenvale::files {

// The unsigned number in the first `count` bytes (at most 8), most significant first,
// as MPEG-4 box headers store sizes.
std::uint64_t bigEndian(const std::uint8_t* bytes, int count);

// Where the last whole top-level box of an MPEG-4 file ends, when the file ends inside
// a box other than the samples ("mdat", which the demuxer reads up to the cut); nothing
// for a whole file or one that is not MPEG-4.
std::optional<std::int64_t> wholeBoxesEnd(int fd, std::int64_t fileBytes);

// A read-only view of the first `length` bytes of a file, for the demuxer. Does not own
// the file descriptor. Throws MediaError when out of memory.
class FileWindow {
  public:
    FileWindow(int fd, std::int64_t length);
    ~FileWindow();
    FileWindow(const FileWindow&) = delete;
    FileWindow& operator=(const FileWindow&) = delete;

    AVIOContext* io() const { return io_; }

  private:
    static int read(void* self, std::uint8_t* bytes, int size);
    static std::int64_t seek(void* self, std::int64_t offset, int whence);

    int fd_;
    std::int64_t length_;
    std::int64_t position_ = 0;
    AVIOContext* io_ = nullptr;
};

} // namespace lumenvale::files
