#pragma once

// Owning wrappers for PulseAudio's C objects. Internal to LumenvaleMedia.
//
// The order of teardown matters to PulseAudio: a stream before its context, a
// context before its main loop, and a threaded main loop stopped (from outside its
// own thread) before anything it drives is freed without the loop's lock.

#include <memory>
#include <pulse/context.h>
#include <pulse/mainloop.h>
#include <pulse/operation.h>
#include <pulse/stream.h>
#include <pulse/thread-mainloop.h>

namespace lumenvale::pulse {

struct ThreadedMainloopDeleter {
    void operator()(pa_threaded_mainloop* loop) const {
        pa_threaded_mainloop_stop(loop);
        pa_threaded_mainloop_free(loop);
    }
};
struct MainloopDeleter {
    void operator()(pa_mainloop* loop) const { pa_mainloop_free(loop); }
};
struct ContextDeleter {
    void operator()(pa_context* context) const {
        pa_context_set_state_callback(context, nullptr, nullptr);
        pa_context_disconnect(context);
        pa_context_unref(context);
    }
};
struct StreamDeleter {
    void operator()(pa_stream* stream) const {
        pa_stream_set_state_callback(stream, nullptr, nullptr);
        pa_stream_set_read_callback(stream, nullptr, nullptr);
        pa_stream_disconnect(stream);
        pa_stream_unref(stream);
    }
};
struct OperationDeleter {
    void operator()(pa_operation* operation) const { pa_operation_unref(operation); }
};

using ThreadedMainloop = std::unique_ptr<pa_threaded_mainloop, ThreadedMainloopDeleter>;
using Mainloop = std::unique_ptr<pa_mainloop, MainloopDeleter>;
using Context = std::unique_ptr<pa_context, ContextDeleter>;
using Stream = std::unique_ptr<pa_stream, StreamDeleter>;
using Operation = std::unique_ptr<pa_operation, OperationDeleter>;

// Holds a threaded main loop's lock for a scope (the loop's callbacks run with it held).
class LoopLock {
  public:
    explicit LoopLock(pa_threaded_mainloop* loop) : loop_(loop) {
        pa_threaded_mainloop_lock(loop_);
    }
    ~LoopLock() { pa_threaded_mainloop_unlock(loop_); }
    LoopLock(const LoopLock&) = delete;
    LoopLock& operator=(const LoopLock&) = delete;

  private:
    pa_threaded_mainloop* loop_;
};

// The client name every Lumenvale connection shows in the sound settings.
inline constexpr const char* clientName = "Lumenvale";

} // namespace lumenvale::pulse
