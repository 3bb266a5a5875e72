#pragma once

// The source movie's file, for copying its packets without reading them. A copied
// packet carries stand-in bytes (zeros) at an address that stands for its place in
// the file: a read-only reservation of zero pages as large as the file. The output
// recognises the address, even after the interleaver has held the packet, and has the
// kernel copy the bytes file to file with copy_file_range, so they never pass through
// the process. The file itself is never mapped: one that shrinks while it is copied
// gives a copy that comes up short, never a fault. Code that needs a packet's real
// bytes (a decoder) asks for them with load(). Internal to the edit area; used by the
// one thread that exports.

extern "C" {
#include <libavcodec/packet.h>
}

#include <cstddef>
#include <cstdint>
#include <filesystem>

namespace lumenvale::edit {

class SourceBytes {
  public:
    // Opens the file. Throws MediaError when it cannot be opened.
    explicit SourceBytes(const std::filesystem::path& path);
    ~SourceBytes();
    SourceBytes(const SourceBytes&) = delete;
    SourceBytes& operator=(const SourceBytes&) = delete;

    const std::filesystem::path& path() const { return path_; }
    int descriptor() const { return descriptor_; }
    // The size the file had when it was opened.
    std::int64_t size() const { return size_; }

    // A read-only buffer of stand-in bytes for bytes [position, position + size) of
    // the file, or null when they are not all inside it. The buffer owns nothing: it
    // must not outlive this object.
    AVBufferRef* reference(std::int64_t position, int size) const;

    // Where the stand-in `data` (of `size` bytes) lies in the file, or -1 when it is
    // not wholly a stand-in of this file.
    std::int64_t offsetOf(const std::uint8_t* data, std::size_t size) const;

    // Reads bytes [position, position + size) into `into`. False (errno set, ENODATA
    // when the file ends before them) when they cannot all be read.
    bool read(std::int64_t position, std::uint8_t* into, std::size_t size) const;

    // Gives a packet with stand-in bytes its real bytes (padded as decoders want);
    // other packets are left alone. Throws MediaError when the file no longer holds
    // them (changedWhileExporting(), SourceMovie.h).
    void load(AVPacket& packet) const;

  private:
    std::filesystem::path path_;
    int descriptor_ = -1;
    std::int64_t size_ = 0;
    std::uint8_t* standIns_ = nullptr; // size_ bytes of zero pages
};

} // namespace lumenvale::edit
