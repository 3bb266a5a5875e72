#pragma once

// A shared-memory segment that the X server copies pictures into (MIT-SHM), reused
// for every frame. Internal to LumenvaleMedia.

#include "capture/PixelRect.h"
#include "capture/XConnection.h"

#include <cstddef>
#include <cstdint>
#include <xcb/shm.h>

namespace lumenvale::x11 {

class ShmImage {
  public:
    // Attaches a segment of `capacityBytes`. Throws MediaError when the server
    // cannot share memory with this process (MIT-SHM missing, or a remote display).
    ShmImage(const XConnection& connection, std::size_t capacityBytes);
    ~ShmImage();
    ShmImage(const ShmImage&) = delete;
    ShmImage& operator=(const ShmImage&) = delete;

    std::size_t capacityBytes() const { return capacity_; }

    // Sends the request for `area` of `drawable` (32 bits per pixel) into the
    // segment, `offsetBytes` from its start.
    xcb_shm_get_image_cookie_t request(xcb_drawable_t drawable, const PixelRect& area,
                                       std::size_t offsetBytes = 0);
    // Waits for it: true when the pixels arrived (false: the drawable is gone,
    // unviewable, or the area lies outside it). The picture must fit the capacity.
    bool wait(xcb_shm_get_image_cookie_t cookie);

    std::uint8_t* pixels() { return memory_; }

  private:
    const XConnection& connection_;
    std::size_t capacity_ = 0;
    int shmID_ = -1;
    std::uint8_t* memory_ = nullptr;
    std::uint32_t segment_ = 0;
};

// Bytes needed for a BGRA picture of `width` x `height`.
inline std::size_t bgraBytes(std::int64_t width, std::int64_t height) {
    return static_cast<std::size_t>(width) * static_cast<std::size_t>(height) * 4;
}

} // namespace lumenvale::x11
