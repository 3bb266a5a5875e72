#pragma once

// Test support for the recording-files tests: a continuous recording made with the
// ffmpeg command line, split by stream copy into part files laid out as
// docs/recording-format.md describes (fragmented MPEG-4, tags, video from 0 in every
// part), with the audio clock styles a part writer may use.

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

namespace lumenvale::testing {

// How a part's audio packets are timed.
enum class AudioClock {
    continuous,         // the recording's sample counter, across parts
    partRelativeTagged, // from the part's start, with the lumenvale_audio_offset tag
    partRelative,       // from the part's start, no tag: restarts in every part
};

// A continuous recording: `width` x `height` at 30 fps showing a frame counter, a
// keyframe every second and at each of `extraKeyframes` (frame numbers), and two AAC
// tracks: "System audio" (stereo, 440 Hz tone, default) and "Microphone" (mono, 660 Hz
// tone).
void makeRecording(const std::filesystem::path& movie, int width, int height, double seconds,
                   const std::vector<int>& extraKeyframes = {});

struct PartOptions {
    AudioClock clock = AudioClock::continuous;
    std::string recordingID = "5A1C2F4E-0B7D-4C3E-9A11-2B3C4D5E6F70";
    std::string started = "2025-03-04T05:06:07";
    // Leave the last part as a writer killed mid-recording does: no last fragment
    // flush, no index at the end.
    bool lastPartInterrupted = false;
    // Leave the last part without sound, as a writer killed before any of its sound
    // left the encoder does.
    bool lastPartSoundless = false;
};

// Splits `recording` at the first keyframe at or after each of `cutSeconds` into
// parts "Lumenvale-<UUID>.mp4" in `folder`, numbered 1, 2, 3 ...; returns them in order.
std::vector<std::filesystem::path> splitIntoParts(const std::filesystem::path& recording,
                                                  const std::filesystem::path& folder,
                                                  const std::vector<double>& cutSeconds,
                                                  const PartOptions& options = {});

} // namespace lumenvale::testing
