#include "edit/EncodeTempo.h"

extern "C" {
#include <libavfilter/buffersink.h>
#include <libavfilter/buffersrc.h>
#include <libavutil/channel_layout.h>
#include <libavutil/opt.h>
}

#include <cmath>
#include <cstring>
#include <sstream>

namespace lumenvale::edit {
namespace {

constexpr const char* tempoFailure = "Couldn’t change the speed of the sound";

} // namespace

std::vector<double> TempoChange::stages(double speed) {
    std::vector<double> factors;
    double rest = speed;
    while (rest > 2.0) {
        factors.push_back(2.0);
        rest /= 2.0;
    }
    while (rest < 0.5) {
        factors.push_back(0.5);
        rest /= 0.5;
    }
    if (std::abs(rest - 1.0) > 1e-9 || factors.empty()) {
        factors.push_back(rest);
    }
    return factors;
}

TempoChange::TempoChange(double speed, int channels)
    : speed_(speed), channels_(channels), in_(ff::makeFrame()), out_(ff::makeFrame()) {
    if (!(speed > 0) || !std::isfinite(speed)) {
        throw MediaError("The speed " + std::to_string(speed) + " can’t be played.");
    }
    if (speed == 1.0) {
        return;
    }
    graph_.reset(avfilter_graph_alloc());
    if (!graph_) {
        throw MediaError("Not enough memory to change the speed of the sound.");
    }
    graph_->nb_threads = 1;

    AVChannelLayout layout{};
    av_channel_layout_default(&layout, channels);
    char layoutName[64] = {};
    av_channel_layout_describe(&layout, layoutName, sizeof layoutName);
    av_channel_layout_uninit(&layout);

    std::ostringstream arguments;
    arguments << "time_base=1/" << workingSampleRate << ":sample_rate=" << workingSampleRate
              << ":sample_fmt=flt:channel_layout=" << layoutName;
    ff::check(avfilter_graph_create_filter(&source_, avfilter_get_by_name("abuffer"), "in",
                                           arguments.str().c_str(), nullptr, graph_.get()),
              tempoFailure);
    ff::check(avfilter_graph_create_filter(&sink_, avfilter_get_by_name("abuffersink"), "out",
                                           nullptr, nullptr, graph_.get()),
              tempoFailure);
    const AVSampleFormat interleavedFloat = AV_SAMPLE_FMT_FLT;
    ff::check(av_opt_set_bin(sink_, "sample_fmts",
                             reinterpret_cast<const std::uint8_t*>(&interleavedFloat),
                             sizeof interleavedFloat, AV_OPT_SEARCH_CHILDREN),
              tempoFailure);

    AVFilterContext* previous = source_;
    int stage = 0;
    for (const double factor : stages(speed)) {
        AVFilterContext* tempo = nullptr;
        const std::string name = "tempo" + std::to_string(stage++);
        ff::check(avfilter_graph_create_filter(&tempo, avfilter_get_by_name("atempo"), name.c_str(),
                                               std::to_string(factor).c_str(), nullptr,
                                               graph_.get()),
                  tempoFailure);
        ff::check(avfilter_link(previous, 0, tempo, 0), tempoFailure);
        previous = tempo;
    }
    ff::check(avfilter_link(previous, 0, sink_, 0), tempoFailure);
    ff::check(avfilter_graph_config(graph_.get(), nullptr), tempoFailure);
}

void TempoChange::push(const float* interleaved, std::int64_t frames, const SampleSink& sink) {
    if (frames <= 0) {
        return;
    }
    if (!graph_) {
        sink(interleaved, frames);
        return;
    }
    av_frame_unref(in_.get());
    in_->format = AV_SAMPLE_FMT_FLT;
    in_->sample_rate = workingSampleRate;
    av_channel_layout_default(&in_->ch_layout, channels_);
    in_->nb_samples = static_cast<int>(frames);
    ff::check(av_frame_get_buffer(in_.get(), 0), "Not enough memory to change the speed");
    std::memcpy(in_->data[0], interleaved,
                static_cast<std::size_t>(frames * channels_) * sizeof(float));
    in_->pts = nextPts_;
    nextPts_ += frames;
    ff::check(av_buffersrc_add_frame_flags(source_, in_.get(), AV_BUFFERSRC_FLAG_KEEP_REF),
              tempoFailure);
    pull(sink);
}

void TempoChange::finish(const SampleSink& sink) {
    if (!graph_) {
        return;
    }
    ff::check(av_buffersrc_add_frame(source_, nullptr), tempoFailure);
    pull(sink);
}

void TempoChange::pull(const SampleSink& sink) {
    while (true) {
        const int received = av_buffersink_get_frame(sink_, out_.get());
        if (received == AVERROR(EAGAIN) || received == AVERROR_EOF) {
            return;
        }
        ff::check(received, tempoFailure);
        sink(reinterpret_cast<const float*>(out_->data[0]), out_->nb_samples);
        av_frame_unref(out_.get());
    }
}

} // namespace lumenvale::edit
