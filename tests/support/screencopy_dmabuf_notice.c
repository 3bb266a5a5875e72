// Loaded (LD_PRELOAD) into xdg-desktop-portal-wlr by tests/wayland_session.sh when the
// machine has no GPU render node. That backend (0.7, Debian 12) refuses to share a
// monitor unless the compositor also offers its screen copies as DMA-BUF, which sway
// can only do with a GPU; yet it copies through shared memory when the consumer (as
// Lumenvale) takes only shared memory. This adds the missing DMA-BUF offer to each
// screen copy's list of buffer kinds (the size of the shared-memory one, XRGB8888), so
// the shared-memory path that the recording uses can run. Nothing else is changed.
#define _GNU_SOURCE
#include <dlfcn.h>
#include <stdint.h>
#include <string.h>
#include <wayland-client-core.h>

// zwlr_screencopy_frame_v1's events, version 3, in protocol order.
struct frame_events {
    void (*buffer)(void*, void*, uint32_t format, uint32_t width, uint32_t height, uint32_t stride);
    void (*flags)(void*, void*, uint32_t);
    void (*ready)(void*, void*, uint32_t, uint32_t, uint32_t);
    void (*failed)(void*, void*);
    void (*damage)(void*, void*, uint32_t, uint32_t, uint32_t, uint32_t);
    void (*linux_dmabuf)(void*, void*, uint32_t format, uint32_t width, uint32_t height);
    void (*buffer_done)(void*, void*);
};

static struct frame_events original;
static struct frame_events wrapped;
static uint32_t last_width;
static uint32_t last_height;

static void on_buffer(void* data, void* frame, uint32_t format, uint32_t width, uint32_t height,
                      uint32_t stride) {
    last_width = width;
    last_height = height;
    original.buffer(data, frame, format, width, height, stride);
}

static void on_buffer_done(void* data, void* frame) {
    const uint32_t xrgb8888 = 0x34325258; // 'XR24'
    original.linux_dmabuf(data, frame, xrgb8888, last_width, last_height);
    original.buffer_done(data, frame);
}

int wl_proxy_add_listener(struct wl_proxy* proxy, void (**implementation)(void), void* data) {
    int (*next)(struct wl_proxy*, void (**)(void), void*) =
        (int (*)(struct wl_proxy*, void (**)(void), void*))dlsym(RTLD_NEXT,
                                                                 "wl_proxy_add_listener");
    if (strcmp(wl_proxy_get_class(proxy), "zwlr_screencopy_frame_v1") == 0 &&
        wl_proxy_get_version(proxy) >= 3) {
        memcpy(&original, implementation, sizeof original);
        wrapped = original;
        wrapped.buffer = on_buffer;
        wrapped.buffer_done = on_buffer_done;
        implementation = (void (**)(void)) & wrapped;
    }
    return next(proxy, implementation, data);
}
