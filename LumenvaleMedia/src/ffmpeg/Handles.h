#pragma once

// Owning wrappers for FFmpeg's C handles and the one place where FFmpeg error
// codes become readable messages. Internal to LumenvaleMedia.

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavfilter/avfilter.h>
#include <libavformat/avformat.h>
#include <libavutil/frame.h>
#include <libswresample/swresample.h>
#include <libswscale/swscale.h>
}

#include "LumenvaleMedia/MediaError.h"

#include <filesystem>
#include <memory>
#include <string>

namespace lumenvale::ff {

struct InputDeleter {
    void operator()(AVFormatContext* context) const { avformat_close_input(&context); }
};
struct OutputDeleter {
    // Closes the file (if opened) and frees the context; does not write a trailer.
    void operator()(AVFormatContext* context) const;
};
struct CodecDeleter {
    void operator()(AVCodecContext* context) const { avcodec_free_context(&context); }
};
struct FrameDeleter {
    void operator()(AVFrame* frame) const { av_frame_free(&frame); }
};
struct PacketDeleter {
    void operator()(AVPacket* packet) const { av_packet_free(&packet); }
};
struct SwsDeleter {
    void operator()(SwsContext* context) const { sws_freeContext(context); }
};
struct SwrDeleter {
    void operator()(SwrContext* context) const { swr_free(&context); }
};
struct FilterGraphDeleter {
    void operator()(AVFilterGraph* graph) const { avfilter_graph_free(&graph); }
};

using InputContext = std::unique_ptr<AVFormatContext, InputDeleter>;
using OutputContext = std::unique_ptr<AVFormatContext, OutputDeleter>;
using CodecContext = std::unique_ptr<AVCodecContext, CodecDeleter>;
using Frame = std::unique_ptr<AVFrame, FrameDeleter>;
using Packet = std::unique_ptr<AVPacket, PacketDeleter>;
using Sws = std::unique_ptr<SwsContext, SwsDeleter>;
using Swr = std::unique_ptr<SwrContext, SwrDeleter>;
using FilterGraph = std::unique_ptr<AVFilterGraph, FilterGraphDeleter>;

// Allocators that never return null (allocation failure throws MediaError).
Frame makeFrame();
Packet makePacket();

// FFmpeg's own text for an error code, e.g. "Invalid data found when processing input".
std::string errorText(int code);

// Throws MediaError("<doing>: <FFmpeg's text>") when code < 0; returns code otherwise.
// `doing` is a user-readable phrase such as "Couldn't read the movie".
int check(int code, const std::string& doing);

// Opens a local file for demuxing, treating it as untrusted: only the "file"
// protocol is allowed (no playlists, network or other protocols reachable from a
// crafted file), and the streams are probed. A file that is missing, unreadable or
// not a movie gives a MediaError with a readable message naming the file.
InputContext openInput(const std::filesystem::path& path);

// How much openInput() learns about the streams before it returns.
enum class InputProbing {
    decodeFrames, // avformat_find_stream_info: every codec parameter, by decoding a few frames
    headerOnly,   // what the container's header says, enough to copy packets (MPEG-4 says
                  // it all); streams whose header leaves out their size, rate or channels
                  // are still probed by decoding
};
InputContext openInput(const std::filesystem::path& path, InputProbing probing);

// Creates an output context for `path` with the given format name ("mp4", "gif", ...)
// and opens the file for writing. The file must not be left behind on failure by the
// caller: use removePartial() in the error path.
OutputContext openOutput(const std::filesystem::path& path, const char* formatName);

// Removes a partly written output file; errors are ignored.
void removePartial(const std::filesystem::path& path);

// Seconds of a timestamp in a stream's time base.
double seconds(int64_t timestamp, AVRational timeBase);

} // namespace lumenvale::ff
