#include "capture/ShmImage.h"

#include "LumenvaleMedia/MediaError.h"

#include <cstring>
#include <sys/ipc.h>
#include <sys/shm.h>
#include <xcb/shm.h>

namespace lumenvale::x11 {
namespace {

const char* const noSharedMemory =
    "Lumenvale can’t share memory with this display, so it can’t record the screen.";

} // namespace

ShmImage::ShmImage(const XConnection& connection, std::size_t capacityBytes)
    : connection_(connection), capacity_(capacityBytes) {
    if (!connection.extensions().shm) {
        throw MediaError(noSharedMemory);
    }
    shmID_ = shmget(IPC_PRIVATE, capacity_, IPC_CREAT | 0600);
    if (shmID_ < 0) {
        throw MediaError("There isn’t enough shared memory to record the screen.");
    }
    void* memory = shmat(shmID_, nullptr, 0);
    if (memory == reinterpret_cast<void*>(-1)) {
        shmctl(shmID_, IPC_RMID, nullptr);
        throw MediaError("There isn’t enough shared memory to record the screen.");
    }
    memory_ = static_cast<std::uint8_t*>(memory);
    // Touched now, so the pages exist before the first grab instead of making it late.
    std::memset(memory_, 0, capacity_);
    segment_ = connection.generateID();
    Error error{xcb_request_check(
        connection.get(),
        xcb_shm_attach_checked(connection.get(), segment_, static_cast<std::uint32_t>(shmID_), 0))};
    // Once the server holds the segment it can be marked for removal: it goes away
    // with the last user, even if this process dies.
    shmctl(shmID_, IPC_RMID, nullptr);
    if (error || connection.broken()) {
        shmdt(memory_);
        throw MediaError(noSharedMemory);
    }
}

ShmImage::~ShmImage() {
    xcb_shm_detach(connection_.get(), segment_);
    connection_.flush();
    shmdt(memory_);
}

xcb_shm_get_image_cookie_t ShmImage::request(xcb_drawable_t drawable, const PixelRect& area,
                                             std::size_t offsetBytes) {
    return xcb_shm_get_image(
        connection_.get(), drawable, static_cast<std::int16_t>(area.x),
        static_cast<std::int16_t>(area.y), static_cast<std::uint16_t>(area.width),
        static_cast<std::uint16_t>(area.height), ~0u, XCB_IMAGE_FORMAT_Z_PIXMAP, segment_,
        static_cast<std::uint32_t>(offsetBytes));
}

bool ShmImage::wait(xcb_shm_get_image_cookie_t cookie) {
    Reply<xcb_shm_get_image_reply_t> reply{
        xcb_shm_get_image_reply(connection_.get(), cookie, nullptr)};
    return reply != nullptr;
}

} // namespace lumenvale::x11
