#pragma once

// The source movie's file mapped read-only. Copied packets point at their bytes in
// place instead of being read into memory, and the output writes them with
// copy_file_range, so the kernel moves them from file to file without a detour
// through the process. Internal to the edit area; used by the one thread that exports.

extern "C" {
#include <libavutil/buffer.h>
}

#include <cstddef>
#include <cstdint>
#include <filesystem>

namespace lumenvale::edit {

class SourceBytes {
  public:
    // Maps the whole file. Throws MediaError when it cannot be opened or mapped.
    explicit SourceBytes(const std::filesystem::path& path);
    ~SourceBytes();
    SourceBytes(const SourceBytes&) = delete;
    SourceBytes& operator=(const SourceBytes&) = delete;

    int descriptor() const { return descriptor_; }
    std::int64_t size() const { return size_; }

    // A read-only buffer over bytes [position, position + size) of the file, or null
    // when they are not all inside it. The buffer owns nothing: it must not outlive
    // this object.
    AVBufferRef* reference(std::int64_t position, int size) const;

    // The mapped bytes [position, position + size), or null when they are not all in
    // the file. The mapping ahead of the furthest bytes asked for is made ready in
    // steps of populateBytes, so a muxer that looks into each packet pays one batch
    // of page-table work a step instead of a page fault a packet.
    const std::uint8_t* bytesAt(std::int64_t position, std::size_t size) const;

    // Where `data` (of `size` bytes) lies in the file, or -1 when it is not wholly
    // inside the mapping.
    std::int64_t offsetOf(const std::uint8_t* data, std::size_t size) const;

  private:
    static constexpr std::int64_t populateBytes = 32 << 20;
    void populate(std::int64_t position, std::int64_t end) const;

    int descriptor_ = -1;
    std::int64_t size_ = 0;
    std::uint8_t* base_ = nullptr;
    mutable std::int64_t populatedEnd_ = 0; // the mapping before it is ready
};

} // namespace lumenvale::edit
