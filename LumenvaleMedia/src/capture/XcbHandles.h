#pragma once

// Owning wrappers for xcb's C objects. Internal to LumenvaleMedia.
//
// Replies and events are malloc'ed by xcb and freed with free(); server-side
// resources (pixmaps, pictures, regions, shared-memory segments) are freed by a
// request on the connection that made them, which must outlive the wrapper.

#include <cstdint>
#include <cstdlib>
#include <memory>
#include <utility>
#include <xcb/xcb.h>

namespace lumenvale::x11 {

struct FreeDeleter {
    void operator()(void* pointer) const { std::free(pointer); }
};

// A reply, event or error as xcb returns it.
template <typename T> using Reply = std::unique_ptr<T, FreeDeleter>;
using Event = Reply<xcb_generic_event_t>;
using Error = Reply<xcb_generic_error_t>;

struct ConnectionDeleter {
    void operator()(xcb_connection_t* connection) const { xcb_disconnect(connection); }
};
using ConnectionHandle = std::unique_ptr<xcb_connection_t, ConnectionDeleter>;

// One server-side resource, released with `release` (xcb_free_pixmap,
// xcb_render_free_picture, ...) when the wrapper goes. The release request is
// queued, not flushed: it travels with the connection's next flush.
class ServerResource {
  public:
    using Release = xcb_void_cookie_t (*)(xcb_connection_t*, std::uint32_t);

    ServerResource() = default;
    ServerResource(xcb_connection_t* connection, std::uint32_t id, Release release)
        : connection_(connection), id_(id), release_(release) {}
    ~ServerResource() { reset(); }

    ServerResource(ServerResource&& other) noexcept
        : connection_(other.connection_), id_(std::exchange(other.id_, 0)),
          release_(other.release_) {}
    ServerResource& operator=(ServerResource&& other) noexcept {
        if (this != &other) {
            reset();
            connection_ = other.connection_;
            id_ = std::exchange(other.id_, 0);
            release_ = other.release_;
        }
        return *this;
    }
    ServerResource(const ServerResource&) = delete;
    ServerResource& operator=(const ServerResource&) = delete;

    std::uint32_t id() const { return id_; }
    explicit operator bool() const { return id_ != 0; }

    void reset() {
        if (id_ != 0 && release_ != nullptr) {
            release_(connection_, id_);
        }
        id_ = 0;
    }

  private:
    xcb_connection_t* connection_ = nullptr;
    std::uint32_t id_ = 0;
    Release release_ = nullptr;
};

} // namespace lumenvale::x11
