#pragma once

#include "LumenvaleMedia/AudioSource.h"

#include <chrono>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace lumenvale::AudioDevices {

// A sound source that can serve as a microphone: a PulseAudio source that is not
// the monitor of a sink.
struct Microphone {
    std::string name; // the source name; what RecordingOptions::microphoneID holds
    std::string
        description; // the server's human-readable name, e.g. "Built-in Audio Analog Stereo"
};

// What the sound server offers right now.
struct Inventory {
    bool serverReachable = false;
    std::vector<Microphone> microphones; // non-monitor sources, in the server's order
    std::string defaultSink;             // its monitor is the system audio; empty if none
    std::string defaultSource;           // may be a monitor; empty if none
};

// Asks the sound server (PulseAudio, or PipeWire's pulse server) what it offers.
// Blocks the calling thread for at most `timeout`; an unreachable server gives
// serverReachable = false and empty lists. Never throws. Any thread.
Inventory query(std::chrono::milliseconds timeout = std::chrono::milliseconds(2000));

// The microphone permission on Linux: a reachable server with at least one
// non-monitor source.
inline bool microphoneAvailable(const Inventory& inventory) {
    return inventory.serverReachable && !inventory.microphones.empty();
}

// Why there is no microphone to record, as the user's sentence ("Lumenvale can’t reach
// the sound server.", "The sound server has no microphone."); nothing when there is one.
std::optional<std::string> microphoneProblem(const Inventory& inventory);

// A live PulseAudio source of the given kind, 48 kHz 32-bit float, in fragments of
// about 20 ms: AudioKind::system records the monitor of the default sink (stereo);
// AudioKind::microphone records the source named `microphoneID` (mono), or the
// server's default source when it is absent. Nothing is opened until start(), which
// throws MediaError when the server is unreachable, the source does not exist, or a
// microphone would be the monitor of a sink. The caller owns the result.
std::unique_ptr<AudioSource> open(AudioKind kind,
                                  std::optional<std::string> microphoneID = std::nullopt);

} // namespace lumenvale::AudioDevices
