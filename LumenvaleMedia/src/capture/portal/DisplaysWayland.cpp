#include "LumenvaleMedia/DisplaysWayland.h"

#include "LumenvaleMedia/MediaError.h"

#include <cstring>
#include <list>
#include <memory>
#include <wayland-client.h>

namespace lumenvale {

namespace {

struct DisplayCloser {
    void operator()(wl_display* display) const { wl_display_disconnect(display); }
};
struct RegistryDestroyer {
    void operator()(wl_registry* registry) const { wl_registry_destroy(registry); }
};
struct OutputDestroyer {
    void operator()(wl_output* output) const { wl_output_destroy(output); }
};

// One wl_output as it describes itself.
struct OutputState {
    std::unique_ptr<wl_output, OutputDestroyer> output;
    DisplayScreen screen;
    std::int32_t modeWidth = 0;
    std::int32_t modeHeight = 0;
};

void onGeometry(void* data, wl_output*, std::int32_t x, std::int32_t y, std::int32_t, std::int32_t,
                std::int32_t, const char*, const char*, std::int32_t) {
    auto* state = static_cast<OutputState*>(data);
    state->screen.frame.x = x;
    state->screen.frame.y = y;
}

void onMode(void* data, wl_output*, std::uint32_t flags, std::int32_t width, std::int32_t height,
            std::int32_t) {
    if ((flags & WL_OUTPUT_MODE_CURRENT) != 0) {
        auto* state = static_cast<OutputState*>(data);
        state->modeWidth = width;
        state->modeHeight = height;
    }
}

void onDone(void*, wl_output*) {}

void onScale(void* data, wl_output*, std::int32_t factor) {
    static_cast<OutputState*>(data)->screen.scale = factor > 0 ? factor : 1;
}

void onName(void* data, wl_output*, const char* name) {
    static_cast<OutputState*>(data)->screen.id = name;
}

void onDescription(void*, wl_output*, const char*) {}

const wl_output_listener outputListener = {onGeometry, onMode, onDone,
                                           onScale,    onName, onDescription};

void onGlobal(void* data, wl_registry* registry, std::uint32_t name, const char* interface,
              std::uint32_t version) {
    if (std::strcmp(interface, wl_output_interface.name) != 0) {
        return;
    }
    auto* outputs = static_cast<std::list<OutputState>*>(data);
    OutputState& state = outputs->emplace_back();
    // Version 4 names the output; older compositors get a numbered name.
    const std::uint32_t bound = std::min<std::uint32_t>(version, 4);
    state.output.reset(
        static_cast<wl_output*>(wl_registry_bind(registry, name, &wl_output_interface, bound)));
    state.screen.id = "output-" + std::to_string(outputs->size());
    wl_output_add_listener(state.output.get(), &outputListener, &state);
}

void onGlobalRemove(void*, wl_registry*, std::uint32_t) {}

const wl_registry_listener registryListener = {onGlobal, onGlobalRemove};

// The outputs now, each asked once on a fresh connection.
std::vector<DisplayScreen> readOutputs() {
    const std::unique_ptr<wl_display, DisplayCloser> display(wl_display_connect(nullptr));
    if (!display) {
        throw MediaError(RecError::displayGone);
    }
    std::list<OutputState> outputs;
    std::vector<DisplayScreen> screens;
    {
        const std::unique_ptr<wl_registry, RegistryDestroyer> registry(
            wl_display_get_registry(display.get()));
        wl_registry_add_listener(registry.get(), &registryListener, &outputs);
        // The first round trip lists the globals, the second their descriptions.
        if (wl_display_roundtrip(display.get()) < 0 || wl_display_roundtrip(display.get()) < 0) {
            throw MediaError(RecError::displayGone);
        }
        for (OutputState& state : outputs) {
            state.screen.frame.width = state.modeWidth;
            state.screen.frame.height = state.modeHeight;
            if (state.modeWidth > 0 && state.modeHeight > 0) {
                screens.push_back(state.screen);
            }
        }
        outputs.clear(); // the outputs go before the registry and the connection
    }
    if (!screens.empty()) {
        screens.front().primary = true;
    }
    return screens;
}

} // namespace

bool DisplaysWayland::captureAvailable() {
    return !readOutputs().empty();
}

std::vector<DisplayScreen> DisplaysWayland::screens() {
    return readOutputs();
}

std::optional<DisplayScreen> DisplaysWayland::screenUnderPointer() {
    std::vector<DisplayScreen> screens = readOutputs();
    if (screens.empty()) {
        return std::nullopt;
    }
    return screens.front();
}

} // namespace lumenvale
