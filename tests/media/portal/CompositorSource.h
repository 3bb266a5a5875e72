#pragma once

// A video source on the test's PipeWire that hands its pictures over as a compositor
// does: in buffers it makes itself (memfds, announced either as memfd or as DMA-BUF
// of the linear layout, which is how a memfd reads), each describing the pointer,
// 30 pictures a second of one colour.

#include "LumenvaleKit/PixelSize.h"

#include <array>
#include <atomic>
#include <cstdint>
#include <memory>

namespace lumenvale::portal {

class CompositorSource {
  public:
    enum class Buffers { memFd, linearDmaBuf };

    // Connects to the PipeWire of PIPEWIRE_RUNTIME_DIR. The pointer, a 2x2 white
    // square with its hotspot at its top-left, is at `pointerAt`.
    CompositorSource(PixelSize size, std::array<std::uint8_t, 4> bgrx, Buffers buffers,
                     std::array<std::int32_t, 2> pointerAt);
    ~CompositorSource();
    CompositorSource(const CompositorSource&) = delete;
    CompositorSource& operator=(const CompositorSource&) = delete;

    // The node's id once it has one (0 after 10 s without).
    std::uint32_t node() const;
    // Whether the buffers were agreed on as DMA-BUF, and how many pictures went out.
    bool sentDmaBuf() const { return sentDmaBuf_.load(); }
    int picturesSent() const { return picturesSent_.load(); }

  private:
    struct Handles;
    friend struct SourceCallbacks;
    std::unique_ptr<Handles> handles_;
    PixelSize size_;
    std::array<std::uint8_t, 4> bgrx_;
    Buffers buffers_;
    std::array<std::int32_t, 2> pointerAt_;
    std::atomic<bool> sentDmaBuf_{false};
    std::atomic<int> picturesSent_{0};
};

} // namespace lumenvale::portal
