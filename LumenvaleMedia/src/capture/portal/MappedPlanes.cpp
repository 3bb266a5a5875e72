#include "capture/portal/MappedPlanes.h"

#include <linux/dma-buf.h>
#include <pipewire/stream.h>
#include <spa/buffer/buffer.h>
#include <sys/ioctl.h>
#include <sys/mman.h>

namespace lumenvale::portal {

namespace {

struct Mapping {
    void* base = nullptr;
    std::size_t length = 0;
};

bool isDmaBuf(const spa_data& plane) {
    return plane.type == SPA_DATA_DmaBuf && plane.fd >= 0;
}

void sync(int fd, std::uint64_t flags) {
    dma_buf_sync request{flags | DMA_BUF_SYNC_READ};
    // Buffers that are no device's (as in tests) have nothing to wait for.
    ioctl(fd, DMA_BUF_IOCTL_SYNC, &request);
}

} // namespace

void mapPlane(pw_buffer& buffer) {
    if (buffer.buffer->n_datas == 0) {
        return;
    }
    const spa_data& plane = buffer.buffer->datas[0];
    if (!isDmaBuf(plane) || plane.data != nullptr) {
        return;
    }
    const std::size_t length = plane.mapoffset + plane.maxsize;
    void* base = mmap(nullptr, length, PROT_READ, MAP_SHARED, static_cast<int>(plane.fd), 0);
    if (base == MAP_FAILED) {
        return; // read as unusable: its pictures are skipped
    }
    buffer.user_data = new Mapping{base, length};
}

void unmapPlane(pw_buffer& buffer) {
    auto* mapping = static_cast<Mapping*>(buffer.user_data);
    if (mapping != nullptr) {
        munmap(mapping->base, mapping->length);
        delete mapping;
        buffer.user_data = nullptr;
    }
}

const std::uint8_t* planeBytes(const pw_buffer& buffer) {
    if (buffer.buffer->n_datas == 0) {
        return nullptr;
    }
    const spa_data& plane = buffer.buffer->datas[0];
    if (plane.data != nullptr) {
        return static_cast<const std::uint8_t*>(plane.data);
    }
    const auto* mapping = static_cast<const Mapping*>(buffer.user_data);
    return mapping != nullptr ? static_cast<const std::uint8_t*>(mapping->base) + plane.mapoffset
                              : nullptr;
}

PlaneRead::PlaneRead(const pw_buffer& buffer) {
    if (buffer.buffer->n_datas > 0 && isDmaBuf(buffer.buffer->datas[0])) {
        fd_ = static_cast<int>(buffer.buffer->datas[0].fd);
        sync(fd_, DMA_BUF_SYNC_START);
    }
}

PlaneRead::~PlaneRead() {
    if (fd_ >= 0) {
        sync(fd_, DMA_BUF_SYNC_END);
    }
}

} // namespace lumenvale::portal
