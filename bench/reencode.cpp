// The export that encodes an edit again, against the ffmpeg command line doing the
// same with the same settings: 10 s of a moving 1080p test picture with two tones
// (system audio stereo, microphone mono), cropped to 80 % (1536 x 864), played 1.25
// times as fast with the pitch kept, the tracks gained by 0.5 and 2; x264 CRF 17
// preset medium and x265 CRF 19 preset fast, a keyframe every 2 s, AAC 160 / 96 kbit/s.
// Prints times, bytes and ratios; asserts nothing.
//
//   reencode [WORK_FOLDER]     (default: $TMPDIR/lumenvale-bench-reencode, kept for reuse)

#include "LumenvaleMedia/EditRenderer.h"
#include "support/BenchTools.h"

extern "C" {
#include <libavutil/log.h>
}

#include <cstdio>
#include <filesystem>
#include <string>
#include <vector>

namespace fs = std::filesystem;
using namespace lumenvale;
using namespace lumenvale::bench;

namespace {

fs::path source(const fs::path& work) {
    const fs::path movie = work / "source.mp4";
    if (!fs::exists(movie)) {
        shell("ffmpeg -v error -y -f lavfi -i testsrc2=size=1920x1080:rate=30"
              " -f lavfi -i sine=frequency=440:sample_rate=48000"
              " -f lavfi -i sine=frequency=660:sample_rate=48000 -t 10"
              " -map 0:v -map 1:a -map 2:a -c:v libx264 -preset veryfast -crf 20 -bf 0 -g 60"
              " -pix_fmt yuv420p -c:a aac -b:a 160k -ac:a:0 2 -ac:a:1 1 " +
              quoted(work / "making.mp4"));
        fs::rename(work / "making.mp4", movie);
    }
    return movie;
}

} // namespace

int main(int argc, char** argv) {
    av_log_set_level(AV_LOG_ERROR);
    const fs::path work = workFolder(argc, argv, "lumenvale-bench-reencode");
    const fs::path movie = source(work);

    EditDecision edit(10);
    edit.crop = Rect{0.1, 0.1, 0.8, 0.8}; // 1536 x 864 from (192, 108)
    edit.speed = 1.25;
    edit.volumes = {{1, 0.5}, {2, 2.0}};
    const std::string filters = "[0:v]crop=1536:864:192:108,setpts=PTS/1.25,fps=30[v];"
                                "[0:a:0]atempo=1.25,volume=0.5[a0];[0:a:1]atempo=1.25,volume=2[a1]";

    struct Variant {
        Codec codec;
        const char* name;
        const char* settings;
        int rounds;
    };
    for (const Variant& variant :
         {Variant{Codec::h264, "H.264", "-c:v libx264 -preset medium -crf 17", 3},
          Variant{Codec::hevc, "HEVC",
                  "-c:v libx265 -preset fast -crf 19 -tag:v hvc1 "
                  "-x265-params log-level=error",
                  1}}) {
        const fs::path ours = work / "lumenvale.mp4";
        const fs::path theirs = work / "ffmpeg.mp4";
        const auto medians = medianTimes(
            variant.rounds,
            {[&] { EditRenderer::exportMovie(movie, edit, variant.codec, ours, {}); },
             [&] {
                 shell("ffmpeg -v error -y -i " + quoted(movie) + " -filter_complex \"" + filters +
                       "\" -map '[v]' -map '[a0]' -map '[a1]' " + variant.settings +
                       " -g 60 -pix_fmt yuv420p -c:a aac -b:a:0 160k -b:a:1 96k " + quoted(theirs));
             }});
        const double ourBytes = static_cast<double>(fs::file_size(ours));
        const double theirBytes = static_cast<double>(fs::file_size(theirs));
        std::printf("reencode: 10 s of 1080p cropped, 1.25x, two gained tracks, %s\n",
                    variant.name);
        std::printf("  Lumenvale                 %7.2f s  %10.0f bytes\n", medians[0].wallSeconds,
                    ourBytes);
        std::printf("  ffmpeg, same settings     %7.2f s  %10.0f bytes\n", medians[1].wallSeconds,
                    theirBytes);
        std::printf("  ratio Lumenvale/ffmpeg    %7.2f    %10.2f   (<= 1 wanted)\n",
                    medians[0].wallSeconds / medians[1].wallSeconds, ourBytes / theirBytes);
        fs::remove(ours);
        fs::remove(theirs);
    }
    return 0;
}
