// The soak run's metronome: every 2 s the whole screen turns white for half a second
// while an 880 Hz tone plays, so every movie recorded meanwhile can be checked for
// sound in step with picture.
//
// The tone is the clock. Sound is written a second ahead into the sound server's
// buffer, so a busy machine cannot make it stutter, and each flash is drawn when the
// server's playback position reaches its tone. A flash that this process could not
// start within 15 ms of its tone (it was not scheduled in time) is left out, so a
// busy machine costs flashes, never a flash beside the wrong tone; one that the X
// server finished drawing more than 15 ms after its tone is counted as late.
//
// Runs until SIGTERM or SIGINT, then prints one line: flashes drawn, left out, late,
// and the worst delay.
#include <algorithm>
#include <atomic>
#include <chrono>
#include <cmath>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <numbers>
#include <optional>
#include <pulse/pulseaudio.h>
#include <thread>
#include <vector>
#include <xcb/xcb.h>

namespace {

constexpr int rate = 48000;
constexpr std::int64_t beatFrames = 2 * rate;
constexpr std::int64_t toneFrames = rate / 2;
constexpr pa_usec_t beatMicroseconds = 2'000'000;
constexpr pa_usec_t flashMicroseconds = 500'000;
constexpr pa_usec_t lateMicroseconds = 15'000;

std::atomic<bool> stopping{false};

void onSignal(int) {
    stopping = true;
}

void fail(const char* what) {
    std::fprintf(stderr, "metronome: %s\n", what);
    std::exit(1);
}

// The sound: a tone for the first half second of every two, written as the server asks.
struct Sound {
    pa_threaded_mainloop* loop = nullptr;
    pa_context* context = nullptr;
    pa_stream* stream = nullptr;
    std::int64_t written = 0; // frames

    static void onContext(pa_context*, void* self) {
        pa_threaded_mainloop_signal(static_cast<Sound*>(self)->loop, 0);
    }
    static void onStream(pa_stream*, void* self) {
        pa_threaded_mainloop_signal(static_cast<Sound*>(self)->loop, 0);
    }
    static void onWrite(pa_stream* stream, std::size_t bytes, void* self) {
        auto* sound = static_cast<Sound*>(self);
        std::vector<std::int16_t> samples(bytes / sizeof(std::int16_t));
        for (auto& sample : samples) {
            const std::int64_t inBeat = sound->written % beatFrames;
            const double seconds = static_cast<double>(sound->written) / rate;
            sample = inBeat < toneFrames
                         ? static_cast<std::int16_t>(16000 *
                                                     std::sin(2 * std::numbers::pi * 880 * seconds))
                         : 0;
            ++sound->written;
        }
        pa_stream_write(stream, samples.data(), samples.size() * sizeof(std::int16_t), nullptr, 0,
                        PA_SEEK_RELATIVE);
    }

    void start() {
        loop = pa_threaded_mainloop_new();
        context = pa_context_new(pa_threaded_mainloop_get_api(loop), "Soak metronome");
        pa_context_set_state_callback(context, &Sound::onContext, this);
        if (pa_context_connect(context, nullptr, PA_CONTEXT_NOFLAGS, nullptr) < 0) {
            fail("no sound server");
        }
        pa_threaded_mainloop_lock(loop);
        pa_threaded_mainloop_start(loop);
        while (pa_context_get_state(context) != PA_CONTEXT_READY) {
            if (!PA_CONTEXT_IS_GOOD(pa_context_get_state(context))) {
                fail("the sound server refused the connection");
            }
            pa_threaded_mainloop_wait(loop);
        }
        const pa_sample_spec spec{PA_SAMPLE_S16NE, rate, 1};
        stream = pa_stream_new(context, "Metronome", &spec, nullptr);
        pa_stream_set_state_callback(stream, &Sound::onStream, this);
        pa_stream_set_write_callback(stream, &Sound::onWrite, this);
        pa_buffer_attr buffer{};
        buffer.maxlength = static_cast<std::uint32_t>(-1);
        buffer.tlength = static_cast<std::uint32_t>(pa_usec_to_bytes(1'000'000, &spec));
        buffer.prebuf = buffer.minreq = buffer.fragsize = static_cast<std::uint32_t>(-1);
        const auto flags = static_cast<pa_stream_flags_t>(PA_STREAM_INTERPOLATE_TIMING |
                                                          PA_STREAM_AUTO_TIMING_UPDATE);
        if (pa_stream_connect_playback(stream, nullptr, &buffer, flags, nullptr, nullptr) < 0) {
            fail("could not play sound");
        }
        while (pa_stream_get_state(stream) != PA_STREAM_READY) {
            if (!PA_STREAM_IS_GOOD(pa_stream_get_state(stream))) {
                fail("the sound stream failed");
            }
            pa_threaded_mainloop_wait(loop);
        }
        pa_threaded_mainloop_unlock(loop);
    }

    // How much of the stream has been heard, or nothing before the first timing report.
    std::optional<pa_usec_t> played() {
        pa_threaded_mainloop_lock(loop);
        pa_usec_t time = 0;
        const bool known = pa_stream_get_time(stream, &time) == 0;
        pa_threaded_mainloop_unlock(loop);
        return known ? std::optional(time) : std::nullopt;
    }

    // Waits until the stream has played up to `mark`; returns how far past it, or
    // nothing when stopping.
    std::optional<pa_usec_t> waitUntil(pa_usec_t mark) {
        while (!stopping) {
            const auto now = played();
            if (now && *now >= mark) {
                return *now - mark;
            }
            const pa_usec_t remaining = now ? mark - *now : 10'000;
            // Sleep half the distance (the interpolated clock is smooth), at most 100 ms.
            std::this_thread::sleep_for(
                std::chrono::microseconds(std::clamp<pa_usec_t>(remaining / 2, 200, 100'000)));
        }
        return std::nullopt;
    }
};

// A screen-covering window that is either black or white.
struct Screen {
    xcb_connection_t* connection = nullptr;
    xcb_window_t window = 0;
    std::uint32_t black = 0, white = 0;

    void open() {
        connection = xcb_connect(nullptr, nullptr);
        if (xcb_connection_has_error(connection)) {
            fail("no X display");
        }
        const xcb_screen_t* screen = xcb_setup_roots_iterator(xcb_get_setup(connection)).data;
        black = screen->black_pixel;
        white = screen->white_pixel;
        window = xcb_generate_id(connection);
        const std::uint32_t values[] = {black, 1};
        xcb_create_window(connection, XCB_COPY_FROM_PARENT, window, screen->root, 0, 0,
                          screen->width_in_pixels, screen->height_in_pixels, 0,
                          XCB_WINDOW_CLASS_INPUT_OUTPUT, screen->root_visual,
                          XCB_CW_BACK_PIXEL | XCB_CW_OVERRIDE_REDIRECT, values);
        xcb_map_window(connection, window);
        xcb_flush(connection);
    }

    // Paints the window and returns once the X server has done so.
    void paint(std::uint32_t pixel) {
        xcb_change_window_attributes(connection, window, XCB_CW_BACK_PIXEL, &pixel);
        xcb_clear_area(connection, 0, window, 0, 0, 0, 0);
        free(xcb_get_input_focus_reply(connection, xcb_get_input_focus(connection), nullptr));
    }
};

} // namespace

int main() {
    std::signal(SIGTERM, onSignal);
    std::signal(SIGINT, onSignal);
    Screen screen;
    screen.open();
    Sound sound;
    sound.start();

    int drawn = 0, leftOut = 0, late = 0;
    pa_usec_t worst = 0;
    for (pa_usec_t beat = beatMicroseconds; !stopping; beat += beatMicroseconds) {
        const auto startedLate = sound.waitUntil(beat);
        if (!startedLate) {
            break;
        }
        if (*startedLate > lateMicroseconds) {
            ++leftOut;
            continue;
        }
        screen.paint(screen.white);
        if (const auto drawnAt = sound.played()) {
            const pa_usec_t delay = *drawnAt > beat ? *drawnAt - beat : 0;
            worst = std::max(worst, delay);
            late += delay > lateMicroseconds ? 1 : 0;
        }
        ++drawn;
        if (!sound.waitUntil(beat + flashMicroseconds)) {
            break;
        }
        screen.paint(screen.black);
    }
    std::printf("metronome: %d flashes, %d left out, %d late, worst delay %.3f s\n", drawn, leftOut,
                late, static_cast<double>(worst) / 1e6);
    return 0;
}
