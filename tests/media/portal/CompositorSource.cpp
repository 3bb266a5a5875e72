#include "CompositorSource.h"

#include "Harness.h"

#include <chrono>
#include <cstring>
#include <pipewire/pipewire.h>
#include <spa/buffer/meta.h>
#include <spa/param/video/format-utils.h>
#include <spa/pod/builder.h>
#include <sys/mman.h>
#include <thread>
#include <unistd.h>

namespace lumenvale::portal {

namespace {

constexpr std::int64_t linearModifier = 0; // DRM_FORMAT_MOD_LINEAR
constexpr std::uint32_t pointerImageSide = 2;
constexpr std::size_t pointerMetaSize =
    sizeof(spa_meta_cursor) + sizeof(spa_meta_bitmap) + pointerImageSide * pointerImageSide * 4;

// One buffer's memfd, mapped for writing.
struct Memory {
    int fd = -1;
    void* base = nullptr;
    std::size_t length = 0;
};

} // namespace

struct CompositorSource::Handles {
    pw_thread_loop* loop = nullptr;
    pw_context* context = nullptr;
    pw_core* core = nullptr;
    pw_stream* stream = nullptr;
    spa_source* timer = nullptr;
    spa_hook listener{};
    pw_stream_events events{};
};

struct SourceCallbacks {
    static void paramChanged(void* data, std::uint32_t id, const spa_pod* param) {
        auto* self = static_cast<CompositorSource*>(data);
        if (param == nullptr || id != SPA_PARAM_Format) {
            return;
        }
        const bool dmaBuf = spa_pod_find_prop(param, nullptr, SPA_FORMAT_VIDEO_modifier) != nullptr;
        self->sentDmaBuf_ = dmaBuf;
        const auto stride = static_cast<std::int32_t>(self->size_.width * 4);
        const auto bytes = static_cast<std::int32_t>(stride * self->size_.height);
        std::uint8_t buffer[512];
        spa_pod_builder builder = SPA_POD_BUILDER_INIT(buffer, sizeof buffer);
        const spa_pod* params[] = {
            static_cast<const spa_pod*>(spa_pod_builder_add_object(
                &builder, SPA_TYPE_OBJECT_ParamBuffers, SPA_PARAM_Buffers,
                SPA_PARAM_BUFFERS_buffers, SPA_POD_CHOICE_RANGE_Int(4, 2, 8),
                SPA_PARAM_BUFFERS_blocks, SPA_POD_Int(1), SPA_PARAM_BUFFERS_size,
                SPA_POD_Int(bytes), SPA_PARAM_BUFFERS_stride, SPA_POD_Int(stride),
                SPA_PARAM_BUFFERS_dataType,
                SPA_POD_CHOICE_FLAGS_Int(1 << (dmaBuf ? SPA_DATA_DmaBuf : SPA_DATA_MemFd)))),
            static_cast<const spa_pod*>(spa_pod_builder_add_object(
                &builder, SPA_TYPE_OBJECT_ParamMeta, SPA_PARAM_Meta, SPA_PARAM_META_type,
                SPA_POD_Id(SPA_META_Cursor), SPA_PARAM_META_size,
                SPA_POD_Int(static_cast<std::int32_t>(pointerMetaSize))))};
        pw_stream_update_params(self->handles_->stream, params, 2);
    }

    static void addBuffer(void* data, pw_buffer* buffer) {
        auto* self = static_cast<CompositorSource*>(data);
        spa_data& plane = buffer->buffer->datas[0];
        auto* memory = new Memory;
        memory->length = static_cast<std::size_t>(self->size_.width * self->size_.height * 4);
        memory->fd = memfd_create("lumenvale-test-picture", MFD_CLOEXEC);
        if (memory->fd < 0 || ftruncate(memory->fd, static_cast<off_t>(memory->length)) != 0) {
            return;
        }
        memory->base =
            mmap(nullptr, memory->length, PROT_READ | PROT_WRITE, MAP_SHARED, memory->fd, 0);
        plane.type = self->sentDmaBuf_ ? SPA_DATA_DmaBuf : SPA_DATA_MemFd;
        plane.fd = memory->fd;
        plane.flags = SPA_DATA_FLAG_READWRITE;
        plane.mapoffset = 0;
        plane.maxsize = static_cast<std::uint32_t>(memory->length);
        // A DMA-BUF is never mapped for its reader; a memfd is.
        plane.data = self->sentDmaBuf_ ? nullptr : memory->base;
        buffer->user_data = memory;
    }

    static void removeBuffer(void*, pw_buffer* buffer) {
        auto* memory = static_cast<Memory*>(buffer->user_data);
        if (memory != nullptr) {
            if (memory->base != nullptr) {
                munmap(memory->base, memory->length);
            }
            close(memory->fd);
            delete memory;
        }
    }

    static void process(void* data) {
        auto* self = static_cast<CompositorSource*>(data);
        pw_buffer* buffer = pw_stream_dequeue_buffer(self->handles_->stream);
        if (buffer == nullptr) {
            return;
        }
        auto* memory = static_cast<Memory*>(buffer->user_data);
        spa_data& plane = buffer->buffer->datas[0];
        if (memory != nullptr && memory->base != nullptr) {
            auto* pixels = static_cast<std::uint8_t*>(memory->base);
            for (std::size_t at = 0; at < memory->length; at += 4) {
                std::memcpy(pixels + at, self->bgrx_.data(), 4);
            }
            plane.chunk->offset = 0;
            plane.chunk->size = static_cast<std::uint32_t>(memory->length);
            plane.chunk->stride = static_cast<std::int32_t>(self->size_.width * 4);
        }
        auto* cursor = static_cast<spa_meta_cursor*>(
            spa_buffer_find_meta_data(buffer->buffer, SPA_META_Cursor, pointerMetaSize));
        if (cursor != nullptr) {
            cursor->id = 1;
            cursor->position = {self->pointerAt_[0], self->pointerAt_[1]};
            cursor->hotspot = {0, 0};
            cursor->bitmap_offset = sizeof(spa_meta_cursor);
            auto* bitmap = SPA_PTROFF(cursor, cursor->bitmap_offset, spa_meta_bitmap);
            bitmap->format = SPA_VIDEO_FORMAT_RGBA;
            bitmap->size = {pointerImageSide, pointerImageSide};
            bitmap->stride = pointerImageSide * 4;
            bitmap->offset = sizeof(spa_meta_bitmap);
            std::memset(SPA_PTROFF(bitmap, bitmap->offset, void), 255,
                        pointerImageSide * pointerImageSide * 4);
        }
        pw_stream_queue_buffer(self->handles_->stream, buffer);
        ++self->picturesSent_;
    }

    static void tick(void* data, std::uint64_t) {
        pw_stream_trigger_process(static_cast<CompositorSource*>(data)->handles_->stream);
    }
};

CompositorSource::CompositorSource(PixelSize size, std::array<std::uint8_t, 4> bgrx,
                                   Buffers buffers, std::array<std::int32_t, 2> pointerAt)
    : handles_(std::make_unique<Handles>()), size_(size), bgrx_(bgrx), buffers_(buffers),
      pointerAt_(pointerAt) {
    pw_init(nullptr, nullptr);
    handles_->loop = pw_thread_loop_new("test-compositor", nullptr);
    handles_->context = pw_context_new(pw_thread_loop_get_loop(handles_->loop), nullptr, 0);
    pw_thread_loop_start(handles_->loop);
    pw_thread_loop_lock(handles_->loop);
    handles_->core = pw_context_connect(handles_->context, nullptr, 0);
    handles_->stream =
        pw_stream_new(handles_->core, "lumenvale-test-compositor",
                      pw_properties_new(PW_KEY_MEDIA_CLASS, "Video/Source", PW_KEY_NODE_NAME,
                                        "lumenvale-test-compositor", nullptr));
    handles_->events.version = PW_VERSION_STREAM_EVENTS;
    handles_->events.param_changed = &SourceCallbacks::paramChanged;
    handles_->events.add_buffer = &SourceCallbacks::addBuffer;
    handles_->events.remove_buffer = &SourceCallbacks::removeBuffer;
    handles_->events.process = &SourceCallbacks::process;
    pw_stream_add_listener(handles_->stream, &handles_->listener, &handles_->events, this);

    std::uint8_t buffer[512];
    spa_pod_builder builder = SPA_POD_BUILDER_INIT(buffer, sizeof buffer);
    spa_pod_frame frame{};
    spa_pod_builder_push_object(&builder, &frame, SPA_TYPE_OBJECT_Format, SPA_PARAM_EnumFormat);
    const spa_rectangle pictureSize{static_cast<std::uint32_t>(size.width),
                                    static_cast<std::uint32_t>(size.height)};
    const spa_fraction rate{30, 1};
    spa_pod_builder_add(&builder, SPA_FORMAT_mediaType, SPA_POD_Id(SPA_MEDIA_TYPE_video),
                        SPA_FORMAT_mediaSubtype, SPA_POD_Id(SPA_MEDIA_SUBTYPE_raw),
                        SPA_FORMAT_VIDEO_format, SPA_POD_Id(SPA_VIDEO_FORMAT_BGRx),
                        SPA_FORMAT_VIDEO_size, SPA_POD_Rectangle(&pictureSize),
                        SPA_FORMAT_VIDEO_framerate, SPA_POD_Fraction(&rate), 0);
    if (buffers_ == Buffers::linearDmaBuf) {
        spa_pod_builder_prop(&builder, SPA_FORMAT_VIDEO_modifier, SPA_POD_PROP_FLAG_MANDATORY);
        spa_pod_builder_long(&builder, linearModifier);
    }
    const spa_pod* format = static_cast<const spa_pod*>(spa_pod_builder_pop(&builder, &frame));
    pw_stream_connect(
        handles_->stream, PW_DIRECTION_OUTPUT, PW_ID_ANY,
        static_cast<pw_stream_flags>(PW_STREAM_FLAG_DRIVER | PW_STREAM_FLAG_ALLOC_BUFFERS), &format,
        1);
    pw_loop* loop = pw_thread_loop_get_loop(handles_->loop);
    handles_->timer = pw_loop_add_timer(loop, &SourceCallbacks::tick, this);
    timespec first{0, 1};
    timespec every{0, 33'333'333};
    pw_loop_update_timer(loop, handles_->timer, &first, &every, false);
    pw_thread_loop_unlock(handles_->loop);
}

CompositorSource::~CompositorSource() {
    pw_thread_loop_lock(handles_->loop);
    pw_loop_destroy_source(pw_thread_loop_get_loop(handles_->loop), handles_->timer);
    pw_stream_destroy(handles_->stream);
    pw_core_disconnect(handles_->core);
    pw_thread_loop_unlock(handles_->loop);
    pw_thread_loop_stop(handles_->loop);
    pw_context_destroy(handles_->context);
    pw_thread_loop_destroy(handles_->loop);
}

std::uint32_t CompositorSource::node() const {
    std::uint32_t id = SPA_ID_INVALID;
    ::lumenvale::testing::waitUntil(
        [&] {
            pw_thread_loop_lock(handles_->loop);
            id = pw_stream_get_node_id(handles_->stream);
            pw_thread_loop_unlock(handles_->loop);
            return id != SPA_ID_INVALID;
        },
        std::chrono::seconds(10));
    return id == SPA_ID_INVALID ? 0 : id;
}

} // namespace lumenvale::portal
