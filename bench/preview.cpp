// The editor's preview after a change: the time from handing the mpv player a rebuilt
// preview (a new cut, a new speed, a new crop) and seeking, to the window showing the
// new frame, at 1080p; side by side with `ffmpeg -ss T -i ... -frames:v 1` decoding the
// same source frame. Medians of several changes, each to a different frame. Asserts
// nothing. Needs a display with OpenGL: run it inside tests/session.sh.
//
//   preview [WORK_FOLDER]   (default: $TMPDIR/lumenvale-bench-preview)

#include "LumenvaleMedia/EditRenderer.h"
#include "gui/editor/PreviewPlayerMpv.h"
#include "gui/editor/PreviewSurface.h"
#include "support/BenchTools.h"

#include <QElapsedTimer>
#include <QGuiApplication>
#include <QImage>
#include <QQuickWindow>
#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <string>
#include <vector>

namespace fs = std::filesystem;
using namespace lumenvale;
using namespace lumenvale::bench;

namespace {

constexpr double movieSeconds = 20;
constexpr int changes = 7;

// 20 s of 1080p30 whose frame n is a flat colour: red 20 + 2 (n mod 100), green
// 40 + 40 floor(n / 100); encoded as a recording is (x264 veryfast, keyframes every 2 s).
fs::path colourMovie(const fs::path& work) {
    const fs::path movie = work / "colours-1080p.mp4";
    if (!fs::exists(movie)) {
        shell("ffmpeg -v error -y -f lavfi -i \"color=c=black:s=64x36:r=30:d=" +
              std::to_string(movieSeconds) +
              ",format=rgb24,geq=r='20+2*mod(N,100)':g='40+40*floor(N/100)':b=40,"
              "scale=1920:1080:flags=neighbor:out_color_matrix=bt709,format=yuv420p\" "
              "-c:v libx264 -preset veryfast -crf 20 -g 60 -colorspace bt709 "
              "-color_primaries bt709 -color_trc bt709 " +
              quoted(movie));
    }
    return movie;
}

int frameShown(const QImage& image) {
    const QColor colour = image.pixelColor(image.width() / 2, image.height() / 2);
    return static_cast<int>(std::lround((colour.green() - 40) / 40.0)) * 100 +
           static_cast<int>(std::lround((colour.red() - 20) / 2.0));
}

double median(std::vector<double> values) {
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}

} // namespace

int main(int argc, char** argv) {
    PreviewSurface::registerQmlType();
    QGuiApplication application(argc, argv);
    const fs::path work = workFolder(argc, argv, "lumenvale-bench-preview");
    const fs::path movie = colourMovie(work);

    auto made = PreviewPlayerMpv::create();
    if (!made.player) {
        std::fprintf(stderr, "%s\n", made.error.toUtf8().constData());
        return 1;
    }
    PreviewPlayerMpv& player = *made.player;
    QQuickWindow window;
    window.resize(960, 540);
    auto* surface = new PreviewSurface(window.contentItem());
    surface->setSize(QSizeF(960, 540));
    surface->setPlayer(&player);
    window.show();
    QElapsedTimer waited;
    waited.start();
    while (!window.isExposed() && waited.elapsed() < 10000) {
        QCoreApplication::processEvents(QEventLoop::AllEvents, 10);
    }
    if (!window.isExposed()) {
        std::fprintf(stderr, "The window did not appear.\n");
        return 1;
    }

    // Shows `edit` at output time `t` (source frame `frame`); seconds until it is seen.
    const auto change = [&](const EditDecision& edit, double t, int frame) {
        const EditRenderer::Built built = EditRenderer::build(movie, edit);
        QElapsedTimer clock;
        clock.start();
        player.setPreview(built);
        player.seek(t);
        while (std::abs(frameShown(window.grabWindow()) - frame) > 1) {
            if (clock.elapsed() > 20000) {
                std::fprintf(stderr, "Frame %d never appeared (%d shown).\n", frame,
                             frameShown(window.grabWindow()));
                std::exit(1);
            }
            QCoreApplication::processEvents(QEventLoop::AllEvents, 5);
        }
        return static_cast<double>(clock.nsecsElapsed()) / 1e9;
    };

    EditDecision base(movieSeconds);
    change(base, 1, 30); // warm up: the render context and the first load
    std::vector<double> split, speed, crop, ffmpeg;
    for (int round = 0; round < changes; ++round) {
        // Source seconds 3.1, 5.5, 7.9, ... : between keyframes, never on one.
        const double source = 3.1 + 2.4 * round;
        const int frame = static_cast<int>(std::lround(source * 30));
        EditDecision cut = base;
        cut.split(1);
        cut.split(2);
        cut.deleteClip(cut.clips[1].id); // the second second gone
        split.push_back(change(cut, source - 1, frame));
        EditDecision fast = cut;
        fast.speed = 1.5 + 0.1 * round;
        // Each change shows another frame, so the one before never passes for it.
        speed.push_back(change(fast, (source - 0.5) / fast.speed, frame + 15));
        EditDecision cropped = fast;
        cropped.crop = Rect{0.25, 0.25, 0.5 - 0.02 * round, 0.5};
        crop.push_back(change(cropped, source / fast.speed, frame + 30));
        const auto started = std::chrono::steady_clock::now();
        shell("ffmpeg -v error -ss " + std::to_string(source) + " -i " + quoted(movie) +
              " -frames:v 1 -f rawvideo -pix_fmt rgb24 -y /dev/null");
        ffmpeg.push_back(
            std::chrono::duration<double>(std::chrono::steady_clock::now() - started).count());
    }
    const double reference = median(ffmpeg);
    std::printf("preview: a change to a 20 s 1080p30 recording until its new frame shows "
                "(median of %d)\n",
                changes);
    const auto row = [&](const char* name, const std::vector<double>& times) {
        std::printf("  %-34s %7.3f s   ratio to ffmpeg %6.2f\n", name, median(times),
                    median(times) / reference);
    };
    row("new cut (split + delete), seek", split);
    row("new speed, seek", speed);
    row("new crop, seek", crop);
    std::printf("  %-34s %7.3f s\n", "ffmpeg -ss T -frames:v 1 (process)", reference);
    return 0;
}
