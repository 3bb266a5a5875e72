#pragma once

// Changing the tempo of sound without changing its pitch (libavfilter's atempo), for
// an edit played faster or slower. Internal to the edit area; used by one thread.

#include "ffmpeg/Handles.h"

#include <functional>
#include <vector>

namespace lumenvale::edit {

// Sound in the exports' working format: interleaved 32-bit float at 48 kHz.
inline constexpr int workingSampleRate = 48'000;

class TempoChange {
  public:
    // `speed` is how much faster the result plays (2: half as long); 1 passes the
    // samples through untouched.
    TempoChange(double speed, int channels);

    // Interleaved samples out, `frames` per channel; valid only during the call.
    using SampleSink = std::function<void(const float* interleaved, std::int64_t frames)>;

    void push(const float* interleaved, std::int64_t frames, const SampleSink& sink);
    // The end of the sound: hands out what the filter still holds.
    void finish(const SampleSink& sink);

    // The atempo factors whose product is `speed`, each within atempo's best range
    // (0.5 to 2).
    static std::vector<double> stages(double speed);

  private:
    void pull(const SampleSink& sink);

    double speed_;
    int channels_;
    ff::FilterGraph graph_;
    AVFilterContext* source_ = nullptr;
    AVFilterContext* sink_ = nullptr;
    ff::Frame in_;
    ff::Frame out_;
    std::int64_t nextPts_ = 0;
};

} // namespace lumenvale::edit
