#include "audio/PulseAudioSource.h"

#include "LumenvaleMedia/MediaError.h"

#include <cctype>
#include <chrono>
#include <pulse/error.h>
#include <pulse/introspect.h>
#include <pulse/rtclock.h>
#include <pulse/timeval.h>

namespace lumenvale {

namespace {

constexpr pa_usec_t connectTimeoutMicroseconds = 3'000'000;

// What resolveDevice() learns from the server's introspection callbacks.
struct DeviceQuery {
    pa_threaded_mainloop* loop = nullptr;
    std::string defaultSink;
    std::string defaultSource;
    bool found = false;
    bool isMonitor = false;
    std::string monitorSource; // of a sink
    std::string description;
};

void onServerInfo(pa_context*, const pa_server_info* info, void* userdata) {
    auto* query = static_cast<DeviceQuery*>(userdata);
    if (info != nullptr) {
        query->defaultSink = info->default_sink_name != nullptr ? info->default_sink_name : "";
        query->defaultSource =
            info->default_source_name != nullptr ? info->default_source_name : "";
    }
    pa_threaded_mainloop_signal(query->loop, 0);
}

void onSinkInfo(pa_context*, const pa_sink_info* info, int eol, void* userdata) {
    auto* query = static_cast<DeviceQuery*>(userdata);
    if (eol == 0 && info != nullptr) {
        query->found = true;
        query->monitorSource =
            info->monitor_source_name != nullptr ? info->monitor_source_name : "";
    }
    pa_threaded_mainloop_signal(query->loop, 0);
}

void onSourceInfo(pa_context*, const pa_source_info* info, int eol, void* userdata) {
    auto* query = static_cast<DeviceQuery*>(userdata);
    if (eol == 0 && info != nullptr) {
        query->found = true;
        query->isMonitor = info->monitor_of_sink != PA_INVALID_INDEX;
        query->description = info->description != nullptr ? info->description : info->name;
    }
    pa_threaded_mainloop_signal(query->loop, 0);
}

struct Timeout {
    pa_threaded_mainloop* loop = nullptr;
    bool expired = false;
};

void onTimeout(pa_mainloop_api*, pa_time_event*, const struct timeval*, void* userdata) {
    auto* timeout = static_cast<Timeout*>(userdata);
    timeout->expired = true;
    pa_threaded_mainloop_signal(timeout->loop, 0);
}

} // namespace

PulseAudioSource::PulseAudioSource(AudioKind kind, std::optional<std::string> microphoneID)
    : kind_(kind), microphoneID_(std::move(microphoneID)) {}

PulseAudioSource::~PulseAudioSource() {
    stop();
}

void PulseAudioSource::start(ChunkHandler onChunk, StoppedHandler onStopped) {
    stop();
    onChunk_ = std::move(onChunk);
    onStopped_ = std::move(onStopped);
    stoppedReported_ = false;
    loop_.reset(pa_threaded_mainloop_new());
    if (!loop_) {
        throw MediaError("Not enough memory to record sound.");
    }
    try {
        if (pa_threaded_mainloop_start(loop_.get()) < 0) {
            throw MediaError("Lumenvale can’t reach the sound server.");
        }
        pulse::LoopLock lock(loop_.get());
        connectContext();
        deviceName_ = resolveDevice();
        connectStream(deviceName_);
        running_ = true;
    } catch (...) {
        stop();
        throw;
    }
}

void PulseAudioSource::stop() {
    if (!loop_) {
        return;
    }
    {
        pulse::LoopLock lock(loop_.get());
        running_ = false;
        stream_.reset();
        context_.reset();
    }
    loop_.reset(); // stops the loop thread, then frees it
    onChunk_ = nullptr;
    onStopped_ = nullptr;
}

void PulseAudioSource::connectContext() {
    pa_mainloop_api* api = pa_threaded_mainloop_get_api(loop_.get());
    context_.reset(pa_context_new(api, pulse::clientName));
    if (!context_) {
        throw MediaError("Not enough memory to record sound.");
    }
    pa_context_set_state_callback(context_.get(), &PulseAudioSource::onContextState, this);
    if (pa_context_connect(context_.get(), nullptr, PA_CONTEXT_NOAUTOSPAWN, nullptr) < 0) {
        throw MediaError("Lumenvale can’t reach the sound server.");
    }
    Timeout timeout;
    timeout.loop = loop_.get();
    pa_time_event* timer = pa_context_rttime_new(
        context_.get(), pa_rtclock_now() + connectTimeoutMicroseconds, onTimeout, &timeout);
    pa_context_state_t state = pa_context_get_state(context_.get());
    while (state != PA_CONTEXT_READY && PA_CONTEXT_IS_GOOD(state) && !timeout.expired) {
        pa_threaded_mainloop_wait(loop_.get());
        state = pa_context_get_state(context_.get());
    }
    if (timer != nullptr) {
        api->time_free(timer);
    }
    if (state != PA_CONTEXT_READY) {
        throw MediaError("Lumenvale can’t reach the sound server.");
    }
}

void PulseAudioSource::waitForOperation(pa_operation* raw) {
    if (raw == nullptr) {
        throw MediaError("The sound server did not answer: " + serverErrorText());
    }
    pulse::Operation operation(raw);
    while (pa_operation_get_state(operation.get()) == PA_OPERATION_RUNNING) {
        pa_threaded_mainloop_wait(loop_.get());
    }
}

std::string PulseAudioSource::resolveDevice() {
    DeviceQuery query;
    query.loop = loop_.get();
    waitForOperation(pa_context_get_server_info(context_.get(), onServerInfo, &query));
    if (kind_ == AudioKind::system) {
        if (query.defaultSink.empty()) {
            throw MediaError("There is no sound output whose sound Lumenvale could record.");
        }
        waitForOperation(pa_context_get_sink_info_by_name(context_.get(), query.defaultSink.c_str(),
                                                          onSinkInfo, &query));
        if (!query.found) {
            throw MediaError("There is no sound output whose sound Lumenvale could record.");
        }
        return query.monitorSource.empty() ? query.defaultSink + ".monitor" : query.monitorSource;
    }
    const std::string name = microphoneID_.value_or(query.defaultSource);
    if (name.empty()) {
        throw MediaError("There is no microphone.");
    }
    waitForOperation(
        pa_context_get_source_info_by_name(context_.get(), name.c_str(), onSourceInfo, &query));
    if (!query.found) {
        throw MediaError("The microphone “" + name + "” is not connected.");
    }
    if (query.isMonitor) {
        throw MediaError("“" + query.description +
                         "” is the sound of an output, not a microphone.");
    }
    return name;
}

void PulseAudioSource::connectStream(const std::string& device) {
    const pa_sample_spec spec{PA_SAMPLE_FLOAT32NE, static_cast<std::uint32_t>(rate),
                              static_cast<std::uint8_t>(channels())};
    stream_.reset(pa_stream_new(context_.get(),
                                kind_ == AudioKind::system ? "System audio" : "Microphone", &spec,
                                nullptr));
    if (!stream_) {
        throw MediaError("Couldn’t record sound: " + serverErrorText());
    }
    pa_stream_set_state_callback(stream_.get(), &PulseAudioSource::onStreamState, this);
    pa_stream_set_read_callback(stream_.get(), &PulseAudioSource::onRead, this);
    pa_buffer_attr attributes{};
    attributes.maxlength = static_cast<std::uint32_t>(-1);
    attributes.fragsize = static_cast<std::uint32_t>(
        pa_usec_to_bytes(static_cast<pa_usec_t>(fragmentSeconds * 1e6), &spec));
    attributes.tlength = attributes.prebuf = attributes.minreq = static_cast<std::uint32_t>(-1);
    const auto flags =
        static_cast<pa_stream_flags_t>(PA_STREAM_ADJUST_LATENCY | PA_STREAM_DONT_MOVE);
    if (pa_stream_connect_record(stream_.get(), device.c_str(), &attributes, flags) < 0) {
        throw MediaError("Couldn’t record from “" + device + "”: " + serverErrorText());
    }
    pa_stream_state_t state = pa_stream_get_state(stream_.get());
    while (state != PA_STREAM_READY && PA_STREAM_IS_GOOD(state)) {
        pa_threaded_mainloop_wait(loop_.get());
        state = pa_stream_get_state(stream_.get());
    }
    if (state != PA_STREAM_READY) {
        throw MediaError("Couldn’t record from “" + device + "”: " + serverErrorText());
    }
}

std::string PulseAudioSource::serverErrorText() const {
    const int code = context_ ? pa_context_errno(context_.get()) : PA_ERR_CONNECTIONREFUSED;
    std::string text = pa_strerror(code);
    if (!text.empty()) {
        text[0] = static_cast<char>(std::toupper(static_cast<unsigned char>(text[0])));
    }
    return text + ".";
}

void PulseAudioSource::reportStopped(const std::string& reason) {
    if (!running_ || stoppedReported_) {
        return;
    }
    stoppedReported_ = true;
    running_ = false;
    if (onStopped_) {
        onStopped_(reason);
    }
}

void PulseAudioSource::onContextState(pa_context* context, void* self) {
    auto* source = static_cast<PulseAudioSource*>(self);
    const pa_context_state_t state = pa_context_get_state(context);
    if (!PA_CONTEXT_IS_GOOD(state)) {
        source->reportStopped("The sound server stopped.");
    }
    pa_threaded_mainloop_signal(source->loop_.get(), 0);
}

void PulseAudioSource::onStreamState(pa_stream* stream, void* self) {
    auto* source = static_cast<PulseAudioSource*>(self);
    const pa_stream_state_t state = pa_stream_get_state(stream);
    if (!PA_STREAM_IS_GOOD(state)) {
        const bool serverGone =
            source->context_ && !PA_CONTEXT_IS_GOOD(pa_context_get_state(source->context_.get()));
        source->reportStopped(serverGone ? "The sound server stopped."
                              : source->kind_ == AudioKind::system
                                  ? "The sound output was disconnected."
                                  : "The microphone was disconnected.");
    }
    pa_threaded_mainloop_signal(source->loop_.get(), 0);
}

void PulseAudioSource::onRead(pa_stream* stream, std::size_t, void* self) {
    static_cast<PulseAudioSource*>(self)->readAvailable(stream);
}

void PulseAudioSource::readAvailable(pa_stream* stream) {
    const auto now = std::chrono::steady_clock::now();
    const int channelCount = channels();
    const std::size_t frameBytes = sizeof(float) * static_cast<std::size_t>(channelCount);
    // The oldest unread sample was captured as long ago as the unread samples last:
    // that dates the first chunk read now on the steady clock; the chunks after it
    // follow contiguously. The server's own latency estimate is not used: on a
    // monitor it starts from a stale value (over half a second seen) when the sink
    // wakes up, which would date the first sound that early.
    std::chrono::steady_clock::duration time = now.time_since_epoch();
    const std::size_t readable = pa_stream_readable_size(stream);
    if (readable != static_cast<std::size_t>(-1)) {
        time -= std::chrono::nanoseconds(static_cast<std::int64_t>(readable / frameBytes) *
                                         1'000'000'000 / rate);
    }
    for (;;) {
        const void* data = nullptr;
        std::size_t bytes = 0;
        if (pa_stream_peek(stream, &data, &bytes) < 0 || bytes == 0) {
            return;
        }
        const std::size_t frames = bytes / frameBytes;
        const std::size_t samples = frames * static_cast<std::size_t>(channelCount);
        const float* first = static_cast<const float*>(data);
        if (data == nullptr) { // a hole: the server lost data here; it becomes silence
            if (silence_.size() < samples) {
                silence_.assign(samples, 0.0f);
            }
            first = silence_.data();
        }
        if (running_ && onChunk_ && frames > 0) {
            onChunk_(AudioChunk{std::span<const float>(first, samples), channelCount, rate, time});
        }
        time += std::chrono::nanoseconds(static_cast<std::int64_t>(frames) * 1'000'000'000 / rate);
        pa_stream_drop(stream);
    }
}

} // namespace lumenvale
