#pragma once

// The one place that decides how Lumenvale encodes video. Every part of a recording
// and every piece the editor encodes again for a frame-exact cut is made by
// makeVideoEncoder(), so the parameter sets (SPS/PPS, and VPS for HEVC) of one
// size, rate and codec are identical byte for byte and a joined or cut movie keeps a
// single sample description.
//
// The settings (see docs/recording-format.md):
//   both codecs   yuv420p; BT.601 limited range tagged smpte170m (primaries,
//                 transfer, matrix) and "tv" range; time base 1/fps, frame rate fps;
//                 no B-frames (pts = dts); a look-ahead of one frame and threads
//                 that share a frame (x264's sliced threads, one x265 frame thread),
//                 so at most one frame waits in the encoder: a recording that sends
//                 only the frames that changed, and a still picture every third of
//                 a second, has a change out of the encoder within that third (a
//                 longer look-ahead would keep it there for seconds; none at all
//                 costs half again as many bytes, as the macroblock tree needs
//                 one); a
//                 keyframe (IDR) at least every keyframeIntervalFramesAt(fps) frames
//                 (scene cuts may add more; the writer forces one every 2 seconds of
//                 movie time); a frame sent with pict_type I becomes an IDR
//                 (forced-idr); parameter sets in the codec's extradata (global
//                 header), as MPEG-4 wants them.
//   H.264         libx264, preset "veryfast", CRF 20, profile "high", fourCC avc1.
//   HEVC          libx265, preset "ultrafast", CRF 22, profile "main", fourCC hvc1.
//                 (x265's CRF scale sits about 2 above x264's for the same quality;
//                 "ultrafast" is the preset that keeps up with 1080p30 on two cores.)
// Threads: the returned encoder is used from one thread at a time.

#include "LumenvaleKit/Codec.h"
#include "LumenvaleKit/PixelSize.h"
#include "ffmpeg/Handles.h"

#include <string>
#include <vector>

namespace lumenvale::record {

// Two seconds of frames: the longest stretch between keyframes.
constexpr int keyframeIntervalFramesAt(int fps) {
    return 2 * fps;
}

// The libavcodec encoder used for a codec: "libx264" or "libx265".
const char* videoEncoderName(Codec codec);

// An opened encoder for frames of `size` (even width and height) at `fps` frames a
// second. Throws MediaError when the encoder is missing or refuses the settings.
// The caller owns the result.
ff::CodecContext makeVideoEncoder(Codec codec, PixelSize size, int fps);

// An empty AVFrame with buffers for one picture of the encoder's size and format
// (yuv420p), allocated once and reused for every frame.
ff::Frame makeVideoFrame(const AVCodecContext& encoder);

} // namespace lumenvale::record
