#include "capture/portal/PipeWireStream.h"

#include "LumenvaleMedia/MediaError.h"
#include "capture/portal/MappedPlanes.h"

#include <cerrno>
#include <cstring>
#include <libyuv/convert_argb.h>
#include <libyuv/planar_functions.h>
#include <mutex>
#include <pipewire/pipewire.h>
#include <spa/param/video/format-utils.h>
#include <spa/pod/builder.h>

namespace lumenvale::portal {

namespace {

constexpr std::uint32_t largestSide = 16384;
// DRM_FORMAT_MOD_LINEAR: DMA-BUF rows laid out one after the other, readable as they are.
constexpr std::int64_t linearModifier = 0;
// How many damage regions each buffer carries at most (the compositor merges more).
constexpr int damageRegions = 16;

struct ThreadLoopDestroyer {
    void operator()(pw_thread_loop* loop) const { pw_thread_loop_destroy(loop); }
};
struct ContextDestroyer {
    void operator()(pw_context* context) const { pw_context_destroy(context); }
};
struct CoreDisconnector {
    void operator()(pw_core* core) const { pw_core_disconnect(core); }
};
struct StreamDestroyer {
    void operator()(pw_stream* stream) const { pw_stream_destroy(stream); }
};

// Holds the loop's lock for a scope.
class LoopLock {
  public:
    explicit LoopLock(pw_thread_loop* loop) : loop_(loop) { pw_thread_loop_lock(loop_); }
    ~LoopLock() { pw_thread_loop_unlock(loop_); }
    LoopLock(const LoopLock&) = delete;
    LoopLock& operator=(const LoopLock&) = delete;

  private:
    pw_thread_loop* loop_;
};

void initialisePipeWire() {
    static std::once_flag once;
    std::call_once(once, [] { pw_init(nullptr, nullptr); });
}

const char* const noPipeWireSentence =
    "Lumenvale couldn’t connect to PipeWire, which carries the screen’s picture on this desktop.";

} // namespace

void convertToBgra(const std::uint8_t* source, std::int64_t sourceStrideBytes, ByteOrder order,
                   PixelSize size, std::uint8_t* target) {
    const auto width = static_cast<int>(size.width);
    const auto height = static_cast<int>(size.height);
    const auto stride = static_cast<int>(sourceStrideBytes);
    if (order == ByteOrder::bgra) {
        libyuv::ARGBCopy(source, stride, target, width * 4, width, height);
    } else {
        // libyuv names formats by their 32-bit word: its ABGR is R, G, B, A in memory.
        libyuv::ABGRToARGB(source, stride, target, width * 4, width, height);
    }
}

struct PipeWireStream::Handles {
    std::unique_ptr<pw_thread_loop, ThreadLoopDestroyer> loop;
    std::unique_ptr<pw_context, ContextDestroyer> context;
    std::unique_ptr<pw_core, CoreDisconnector> core;
    std::unique_ptr<pw_stream, StreamDestroyer> stream;
    spa_hook coreListener{};
    pw_core_events coreEvents{};
    spa_hook streamListener{};
    pw_stream_events events{};
};

struct StreamCallbacks {
    // The connection to PipeWire broke: the daemon stopped or crashed.
    static void coreError(void* data, std::uint32_t id, int, int result, const char*) {
        if (id == PW_ID_CORE && result == -EPIPE) {
            static_cast<PipeWireStream*>(data)->end(PipeWireStream::Ending::pipeWireGone);
        }
    }

    static void stateChanged(void* data, pw_stream_state, pw_stream_state state, const char*) {
        auto* self = static_cast<PipeWireStream*>(data);
        if (state == PW_STREAM_STATE_ERROR || state == PW_STREAM_STATE_UNCONNECTED) {
            self->end(PipeWireStream::Ending::streamGone);
        } else if (state == PW_STREAM_STATE_STREAMING) {
            {
                std::lock_guard lock(self->mutex_);
                self->flowing_ = true;
            }
            self->changed_.notify_all();
        }
    }

    static void paramChanged(void* data, std::uint32_t id, const spa_pod* param) {
        auto* self = static_cast<PipeWireStream*>(data);
        if (param == nullptr || id != SPA_PARAM_Format) {
            return;
        }
        spa_video_info_raw info{};
        if (spa_format_video_raw_parse(param, &info) < 0) {
            self->end(PipeWireStream::Ending::unreadableFormat);
            return;
        }
        ByteOrder order = ByteOrder::bgra;
        switch (info.format) {
        case SPA_VIDEO_FORMAT_BGRx:
        case SPA_VIDEO_FORMAT_BGRA:
            break;
        case SPA_VIDEO_FORMAT_RGBx:
        case SPA_VIDEO_FORMAT_RGBA:
            order = ByteOrder::rgba;
            break;
        default:
            self->end(PipeWireStream::Ending::unreadableFormat);
            return;
        }
        {
            std::lock_guard lock(self->mutex_);
            self->order_ = order;
            self->formatSize_ = {info.size.width, info.size.height};
        }
        // Buffers in memory this process can map: memfd or plain shared memory, or the
        // linear DMA-BUF the format with a modifier stands for.
        const bool dmaBuf = spa_pod_find_prop(param, nullptr, SPA_FORMAT_VIDEO_modifier) != nullptr;
        const int dataTypes =
            dmaBuf ? 1 << SPA_DATA_DmaBuf : (1 << SPA_DATA_MemFd) | (1 << SPA_DATA_MemPtr);
        std::uint8_t buffer[1536];
        spa_pod_builder builder = SPA_POD_BUILDER_INIT(buffer, sizeof buffer);
        const auto* buffers = static_cast<const spa_pod*>(spa_pod_builder_add_object(
            &builder, SPA_TYPE_OBJECT_ParamBuffers, SPA_PARAM_Buffers, SPA_PARAM_BUFFERS_buffers,
            SPA_POD_CHOICE_RANGE_Int(4, 2, 16), SPA_PARAM_BUFFERS_blocks, SPA_POD_Int(1),
            SPA_PARAM_BUFFERS_dataType, SPA_POD_CHOICE_FLAGS_Int(dataTypes)));
        // And the damage: which parts of each picture changed since the one before.
        const auto regionBytes = static_cast<int>(sizeof(spa_meta_region));
        const auto* damage = static_cast<const spa_pod*>(spa_pod_builder_add_object(
            &builder, SPA_TYPE_OBJECT_ParamMeta, SPA_PARAM_Meta, SPA_PARAM_META_type,
            SPA_POD_Id(SPA_META_VideoDamage), SPA_PARAM_META_size,
            SPA_POD_CHOICE_RANGE_Int(regionBytes * damageRegions, regionBytes,
                                     regionBytes * damageRegions)));
        // And the pointer, for a compositor asked to describe it rather than draw it.
        const auto* pointer = static_cast<const spa_pod*>(spa_pod_builder_add_object(
            &builder, SPA_TYPE_OBJECT_ParamMeta, SPA_PARAM_Meta, SPA_PARAM_META_type,
            SPA_POD_Id(SPA_META_Cursor), SPA_PARAM_META_size,
            SPA_POD_CHOICE_RANGE_Int(pointerMetaBytes(), static_cast<int>(sizeof(spa_meta_cursor)),
                                     pointerMetaBytes())));
        const spa_pod* params[] = {buffers, damage, pointer};
        pw_stream_update_params(self->handles_->stream.get(), params, 3);
    }

    // Adds the rows a buffer's damage covers to the picture's, or marks it all changed
    // when the buffer says nothing of its damage.
    static void noteDamage(const spa_buffer& buffer, Picture& picture) {
        spa_meta* meta = spa_buffer_find_meta(&buffer, SPA_META_VideoDamage);
        if (meta == nullptr) {
            picture.wholeDamaged = true;
            return;
        }
        spa_meta_region* region = nullptr;
        spa_meta_for_each(region, meta) {
            if (!spa_meta_region_is_valid(region)) {
                break;
            }
            const std::int64_t top = region->region.position.y;
            picture.damagedRows.push_back({top, top + region->region.size.height});
        }
    }

    static void addBuffer(void*, pw_buffer* buffer) { mapPlane(*buffer); }
    static void removeBuffer(void*, pw_buffer* buffer) { unmapPlane(*buffer); }

    static void process(void* data) {
        auto* self = static_cast<PipeWireStream*>(data);
        pw_stream* stream = self->handles_->stream.get();
        // Only the newest buffer's picture matters; older ones go straight back, their
        // damage kept.
        pw_buffer* newest = nullptr;
        std::unique_lock lock(self->mutex_);
        while (pw_buffer* buffer = pw_stream_dequeue_buffer(stream)) {
            if (newest) {
                pw_stream_queue_buffer(stream, newest);
            }
            newest = buffer;
            readPointer(*buffer->buffer, self->picture_.pointer);
            // A buffer that only moves the pointer holds no picture and no damage.
            if (buffer->buffer->datas[0].chunk->size > 0) {
                noteDamage(*buffer->buffer, self->picture_);
            }
        }
        if (!newest) {
            return;
        }
        const spa_data& plane = newest->buffer->datas[0];
        const spa_chunk* chunk = plane.chunk;
        const std::uint8_t* bytes = planeBytes(*newest);
        const PixelSize size = self->formatSize_;
        const std::int64_t stride = chunk->stride > 0 ? chunk->stride : size.width * 4;
        const bool usable =
            bytes != nullptr && chunk->size > 0 &&
            (static_cast<std::uint32_t>(chunk->flags) & SPA_CHUNK_FLAG_CORRUPTED) == 0 &&
            size.width > 0 && size.height > 0 &&
            chunk->offset + static_cast<std::uint64_t>(stride * size.height) <= plane.maxsize &&
            stride >= size.width * 4;
        if (usable) {
            Picture& picture = self->picture_;
            if (picture.size != size) {
                picture.wholeDamaged = true;
            }
            picture.bgra.resize(static_cast<std::size_t>(size.width * size.height * 4));
            picture.size = size;
            const PlaneRead reading(*newest);
            convertToBgra(bytes + chunk->offset, stride, self->order_, size, picture.bgra.data());
            ++picture.generation;
        }
        lock.unlock();
        pw_stream_queue_buffer(stream, newest);
        if (usable) {
            self->changed_.notify_all();
        }
    }
};

PipeWireStream::PipeWireStream(OwnedFd remote, std::uint32_t node, int fps, PixelSize size)
    : handles_(std::make_unique<Handles>()) {
    initialisePipeWire();
    handles_->loop.reset(pw_thread_loop_new("lumenvale-pw", nullptr));
    if (!handles_->loop) {
        throw MediaError(noPipeWireSentence);
    }
    handles_->context.reset(
        pw_context_new(pw_thread_loop_get_loop(handles_->loop.get()), nullptr, 0));
    if (!handles_->context || pw_thread_loop_start(handles_->loop.get()) < 0) {
        throw MediaError(noPipeWireSentence);
    }
    const LoopLock lock(handles_->loop.get());
    // The core takes the descriptor over, also when it fails.
    handles_->core.reset(
        pw_context_connect_fd(handles_->context.get(), remote.release(), nullptr, 0));
    if (!handles_->core) {
        throw MediaError(noPipeWireSentence);
    }
    // Listened to before the stream is made, so this hears of a broken connection
    // before the stream's own state change does.
    handles_->coreEvents.version = PW_VERSION_CORE_EVENTS;
    handles_->coreEvents.error = &StreamCallbacks::coreError;
    // A pw_core is the proxy of the remote core (its first member); pw_core_add_listener
    // does this through a macro of C casts.
    pw_proxy_add_object_listener(reinterpret_cast<pw_proxy*>(handles_->core.get()),
                                 &handles_->coreListener, &handles_->coreEvents, this);
    handles_->stream.reset(
        pw_stream_new(handles_->core.get(), "Lumenvale screen",
                      pw_properties_new(PW_KEY_MEDIA_TYPE, "Video", PW_KEY_MEDIA_CATEGORY,
                                        "Capture", PW_KEY_MEDIA_ROLE, "Screen", nullptr)));
    if (!handles_->stream) {
        throw MediaError(noPipeWireSentence);
    }
    handles_->events.version = PW_VERSION_STREAM_EVENTS;
    handles_->events.state_changed = &StreamCallbacks::stateChanged;
    handles_->events.param_changed = &StreamCallbacks::paramChanged;
    handles_->events.process = &StreamCallbacks::process;
    handles_->events.add_buffer = &StreamCallbacks::addBuffer;
    handles_->events.remove_buffer = &StreamCallbacks::removeBuffer;
    pw_stream_add_listener(handles_->stream.get(), &handles_->streamListener, &handles_->events,
                           this);

    std::uint8_t buffer[2048];
    spa_pod_builder builder = SPA_POD_BUILDER_INIT(buffer, sizeof buffer);
    const spa_rectangle wantedSize{static_cast<std::uint32_t>(size.width),
                                   static_cast<std::uint32_t>(size.height)};
    const spa_rectangle smallest{1, 1};
    const spa_rectangle largest{largestSide, largestSide};
    const spa_fraction wantedRate{static_cast<std::uint32_t>(fps), 1};
    const spa_fraction slowest{0, 1};
    const spa_fraction fastest{1000, 1};
    // The formats taken: in shared memory, the compositor's own copy, which reads
    // fastest; as linear DMA-BUF where that is all it offers (a device's buffer read
    // by the processor can be slow).
    const auto addFormat = [&](bool dmaBuf) {
        spa_pod_frame frame{};
        spa_pod_builder_push_object(&builder, &frame, SPA_TYPE_OBJECT_Format, SPA_PARAM_EnumFormat);
        spa_pod_builder_add(
            &builder, SPA_FORMAT_mediaType, SPA_POD_Id(SPA_MEDIA_TYPE_video),
            SPA_FORMAT_mediaSubtype, SPA_POD_Id(SPA_MEDIA_SUBTYPE_raw), SPA_FORMAT_VIDEO_format,
            SPA_POD_CHOICE_ENUM_Id(5, SPA_VIDEO_FORMAT_BGRx, SPA_VIDEO_FORMAT_BGRx,
                                   SPA_VIDEO_FORMAT_BGRA, SPA_VIDEO_FORMAT_RGBx,
                                   SPA_VIDEO_FORMAT_RGBA),
            SPA_FORMAT_VIDEO_size, SPA_POD_CHOICE_RANGE_Rectangle(&wantedSize, &smallest, &largest),
            SPA_FORMAT_VIDEO_framerate,
            SPA_POD_CHOICE_RANGE_Fraction(&wantedRate, &slowest, &fastest), 0);
        if (dmaBuf) {
            spa_pod_builder_prop(&builder, SPA_FORMAT_VIDEO_modifier, SPA_POD_PROP_FLAG_MANDATORY);
            spa_pod_builder_long(&builder, linearModifier);
        }
        return static_cast<const spa_pod*>(spa_pod_builder_pop(&builder, &frame));
    };
    const spa_pod* formats[] = {addFormat(false), addFormat(true)};
    // Not moved to another source when this one goes: the session manager ends the
    // stream instead.
    const auto flags = static_cast<pw_stream_flags>(
        PW_STREAM_FLAG_AUTOCONNECT | PW_STREAM_FLAG_MAP_BUFFERS | PW_STREAM_FLAG_DONT_RECONNECT);
    if (pw_stream_connect(handles_->stream.get(), PW_DIRECTION_INPUT, node, flags, formats, 2) <
        0) {
        throw MediaError(noPipeWireSentence);
    }
}

PipeWireStream::~PipeWireStream() {
    if (handles_->loop) {
        pw_thread_loop_stop(handles_->loop.get());
    }
    // With PipeWire's thread stopped, the handles go in the reverse order of making.
    handles_->stream.reset();
    handles_->core.reset();
    handles_->context.reset();
    handles_->loop.reset();
}

void PipeWireStream::end(Ending ending) {
    {
        std::lock_guard lock(mutex_);
        unreadableFormat_ = unreadableFormat_ || ending == Ending::unreadableFormat;
    }
    if (ending == Ending::pipeWireGone) {
        pipeWireGone_ = true;
    }
    ended_ = true;
    changed_.notify_all();
}

std::string PipeWireStream::endSentence(SourceKind kind) const {
    if (pipeWireGone_) {
        return "PipeWire, which carries the screen’s picture, stopped.";
    }
    return std::string(
        message(kind == SourceKind::window ? RecError::windowGone : RecError::displayGone));
}

PixelSize PipeWireStream::formatSize() {
    std::lock_guard lock(mutex_);
    return formatSize_;
}

void PipeWireStream::waitUntilFlowing(std::chrono::milliseconds limit) {
    std::unique_lock lock(mutex_);
    changed_.wait_for(lock, limit, [this] { return flowing_ || ended_.load(); });
    if (unreadableFormat_) {
        throw MediaError("The screen’s picture comes in a pixel format Lumenvale can’t read.");
    }
    if (!flowing_ || ended_) {
        throw MediaError("The desktop did not send a picture of the screen.");
    }
}

bool PipeWireStream::waitForPicture(std::chrono::milliseconds limit) {
    std::unique_lock lock(mutex_);
    return changed_.wait_for(lock, limit, [this] {
        return picture_.generation > 0 || ended_.load();
    }) && picture_.generation > 0;
}

void PipeWireStream::withPicture(const std::function<void(Picture&)>& use) {
    std::lock_guard lock(mutex_);
    use(picture_);
}

} // namespace lumenvale::portal
