#include "LumenvaleMedia/AudioDevices.h"

#include "audio/PulseAudioSource.h"
#include "audio/PulseHandles.h"

#include <pulse/introspect.h>
#include <pulse/mainloop.h>

namespace lumenvale::AudioDevices {

namespace {

// The steps of a query, driven by the callbacks of a non-threaded main loop.
struct Query {
    Inventory inventory;
    bool serverInfoDone = false;
    bool sourcesDone = false;
    bool failed = false;
};

void onServerInfo(pa_context*, const pa_server_info* info, void* userdata) {
    auto* query = static_cast<Query*>(userdata);
    if (info != nullptr) {
        query->inventory.defaultSink = info->default_sink_name ? info->default_sink_name : "";
        query->inventory.defaultSource = info->default_source_name ? info->default_source_name : "";
    }
    query->serverInfoDone = true;
}

void onSourceInfo(pa_context*, const pa_source_info* info, int eol, void* userdata) {
    auto* query = static_cast<Query*>(userdata);
    if (eol != 0 || info == nullptr) {
        query->sourcesDone = true;
        return;
    }
    if (info->monitor_of_sink == PA_INVALID_INDEX) {
        query->inventory.microphones.push_back(
            {info->name, info->description != nullptr ? info->description : info->name});
    }
}

} // namespace

Inventory query(std::chrono::milliseconds timeout) {
    const auto deadline = std::chrono::steady_clock::now() + timeout;
    pulse::Mainloop loop(pa_mainloop_new());
    if (!loop) {
        return {};
    }
    pulse::Context context(pa_context_new(pa_mainloop_get_api(loop.get()), pulse::clientName));
    if (!context ||
        pa_context_connect(context.get(), nullptr, PA_CONTEXT_NOAUTOSPAWN, nullptr) < 0) {
        return {};
    }
    Query query;
    bool requested = false;
    // Runs the loop until the query is answered, the server fails, or time is up.
    while (!(query.serverInfoDone && query.sourcesDone)) {
        const pa_context_state_t state = pa_context_get_state(context.get());
        if (!PA_CONTEXT_IS_GOOD(state)) {
            return {};
        }
        if (state == PA_CONTEXT_READY && !requested) {
            requested = true;
            pulse::Operation info(pa_context_get_server_info(context.get(), onServerInfo, &query));
            pulse::Operation sources(
                pa_context_get_source_info_list(context.get(), onSourceInfo, &query));
            if (!info || !sources) {
                return {};
            }
        }
        const auto remaining = std::chrono::duration_cast<std::chrono::microseconds>(
            deadline - std::chrono::steady_clock::now());
        if (remaining.count() <= 0) {
            return {};
        }
        if (pa_mainloop_prepare(loop.get(), static_cast<int>(remaining.count())) < 0 ||
            pa_mainloop_poll(loop.get()) < 0 || pa_mainloop_dispatch(loop.get()) < 0) {
            return {};
        }
    }
    query.inventory.serverReachable = true;
    return query.inventory;
}

std::optional<std::string> microphoneProblem(const Inventory& inventory) {
    if (!inventory.serverReachable) {
        return "Lumenvale can’t reach the sound server.";
    }
    if (inventory.microphones.empty()) {
        return "The sound server has no microphone.";
    }
    return std::nullopt;
}

std::unique_ptr<AudioSource> open(AudioKind kind, std::optional<std::string> microphoneID) {
    return std::make_unique<PulseAudioSource>(kind, std::move(microphoneID));
}

} // namespace lumenvale::AudioDevices
