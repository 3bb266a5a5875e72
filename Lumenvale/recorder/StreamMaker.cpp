// Turning the decision to record a display, an area or a window into a running
// capture that writes part files: the recorder's makeStream.

#include "LumenvaleKit/OutputSize.h"
#include "LumenvaleKit/RecError.h"
#include "LumenvaleMedia/AudioDevices.h"
#include "LumenvaleMedia/MediaError.h"
#include "LumenvaleMedia/RecordingPipeline.h"
#include "base/LocalTime.h"
#include "base/PathText.h"
#include "desktop/Desktop.h"
#include "desktop/Screens.h"
#include "recorder/RecorderLaunch.h"
#include "recorder/RecorderUi.h"
#include "recorder/ScreenRecorder.h"

#include <QDir>
#include <algorithm>

namespace lumenvale {

namespace {

// Frame rates beyond what any display refreshes at are not recorded faster.
constexpr std::int64_t maximumFps = 240;

Rect toPixels(const Rect& points, double scale) {
    return Rect{points.x * scale, points.y * scale, points.width * scale, points.height * scale};
}

// What every capture is asked for, whatever it records.
CaptureRequest captureBasics(const RecordingOptions& options) {
    CaptureRequest request;
    request.fps = static_cast<int>(std::clamp<std::int64_t>(options.fps, 1, maximumFps));
    request.showsPointer = options.showsPointer;
    // Where the desktop shows no clicks outside Lumenvale, rings would never appear.
    request.showsClicks =
        options.showsClicks && Desktop::globalClicks() == Desktop::GlobalClicks::seen;
    return request;
}

} // namespace

std::unique_ptr<VideoSource> ScreenRecorder::pickWindow(const RecordingOptions& options) {
    const Codec codec = resolve(options.codec, availableVideoFourCCs());
    // The window's picture is in pixels already.
    return Desktop::makeChosenWindowCapture(captureBasics(options), [codec](PixelSize picture) {
        return OutputSize::pixels(
            Size{static_cast<double>(picture.width), static_cast<double>(picture.height)}, 1.0,
            codec);
    });
}

ScreenRecorder::Started ScreenRecorder::makeStream(Launch& launch) {
    const Screen& screen = launch.screen;
    const RecordingOptions& options = launch.options;
    const std::vector<Screen> screens = Screens::all();
    if (std::none_of(screens.begin(), screens.end(),
                     [&](const Screen& candidate) { return candidate.id == screen.id; })) {
        throw MediaError(RecError::displayGone);
    }

    CaptureRequest request = captureBasics(options);
    Size points;
    if (launch.kind == RecordKind::window) {
        keptWindows_.clear();
        excludesSelf_ = false;
        if (launch.windowID) {
            const std::optional<Rect> frame = Screens::windowFrame(*launch.windowID);
            if (!frame) {
                throw MediaError(RecError::windowGone);
            }
            request.target = CaptureWindow{*launch.windowID};
            points = frame->size();
        }
    } else {
        // Lumenvale's own panels never appear in a display recording; the camera
        // bubble does.
        const std::optional<std::uint32_t> bubble = ui_->visibleBubbleWindow();
        keptWindows_ = bubble ? std::vector<std::uint32_t>{*bubble} : std::vector<std::uint32_t>{};
        excludesSelf_ = true;
        request.ownWindows = OwnWindows::hidden;
        request.keptWindows = keptWindows_;
        if (launch.area) {
            request.target = CaptureArea{toPixels(Screens::toTopLeft(*launch.area), screen.scale)};
            points = launch.area->size();
        } else {
            request.target = CaptureScreen{screen.id};
            points = screen.frame.size();
        }
    }

    codec_ = resolve(options.codec, availableVideoFourCCs());
    RecordingSources sources;
    if (launch.pickedWindow) {
        sources.video = std::move(launch.pickedWindow);
    } else {
        request.size = OutputSize::pixels(points, screen.scale, codec_);
        sources.video = Desktop::makeCapture(std::move(request));
    }
    pixelSize_ = sources.video->size();
    if (options.systemAudio) {
        sources.systemAudio = AudioDevices::open(AudioKind::system);
    }
    if (launch.mic) {
        sources.microphone = AudioDevices::open(AudioKind::microphone, options.microphoneID);
    }

    // The handlers run on the pipeline's threads: they only post to the GUI thread.
    lastStreamID_ = lastStreamID_ + 1;
    const std::uint64_t streamID = lastStreamID_;
    RecordingPipeline::Handlers handlers;
    handlers.partFinished = [this](const std::filesystem::path& part) {
        QMetaObject::invokeMethod(
            this, [this, part] { outputDidFinish(part); }, Qt::QueuedConnection);
    };
    handlers.stopped = [this, streamID](const std::string& reason) {
        QMetaObject::invokeMethod(
            this,
            [this, streamID, reason] { streamDidStop(streamID, QString::fromStdString(reason)); },
            Qt::QueuedConnection);
    };

    auto stream = std::make_unique<RecordingPipeline>(
        std::move(sources), codec_, toPath(QDir::tempPath()),
        localDateTime(QDateTime::currentDateTime()), std::move(handlers));
    std::filesystem::path firstPart = stream->start();
    return Started{std::move(stream), streamID, std::move(firstPart)};
}

} // namespace lumenvale
