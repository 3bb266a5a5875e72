#pragma once

// A compositor's DMA-BUF pictures, mapped into this process for reading. PipeWire maps
// memfd and shared-memory buffers itself but leaves DMA-BUF to the reader; Lumenvale
// takes DMA-BUF only in the linear layout, whose rows read like any picture's.
// Internal to LumenvaleMedia.

#include <cstddef>
#include <cstdint>

struct pw_buffer;

namespace lumenvale::portal {

// Called from the stream's add_buffer and remove_buffer events (the mapping is kept
// in the buffer's user_data).
void mapPlane(pw_buffer& buffer);
void unmapPlane(pw_buffer& buffer);

// The first plane's bytes from its start (the chunk's offset still to add): PipeWire's
// own mapping, else this one's; null when neither maps it.
const std::uint8_t* planeBytes(const pw_buffer& buffer);

// Brackets a read of a DMA-BUF plane, so the device's writes are seen (nothing for
// other planes).
class PlaneRead {
  public:
    explicit PlaneRead(const pw_buffer& buffer);
    ~PlaneRead();
    PlaneRead(const PlaneRead&) = delete;
    PlaneRead& operator=(const PlaneRead&) = delete;

  private:
    int fd_ = -1;
};

} // namespace lumenvale::portal
