#include "LumenvaleKit/EditDecision.h"

#include "LumenvaleKit/Checked.h"

#include <algorithm>
#include <cmath>

namespace lumenvale {

namespace {

// No edit ever makes a piece shorter than this, in seconds of source time.
constexpr double minimumPieceSeconds = 0.1;

// Rounds toward minus infinity to an even integer (two's complement: clear bit 0).
std::int64_t roundDownToEven(std::int64_t value) {
    return value & ~std::int64_t{1};
}

// A fraction of the picture clamped into 0...1; not a number becomes 0.
double clampedFraction(double fraction) {
    if (!(fraction >= 0)) {
        return 0;
    }
    return fraction > 1 ? 1 : fraction;
}

// True when `seconds` is finite and no further from 0 than maxEditSeconds.
bool isEditTime(double seconds) {
    return std::abs(seconds) <= maxEditSeconds; // false for not a number
}

std::string quotedName(const std::string& name) {
    return "\"" + name + "\"";
}

// The picture's edges may be missed by rounding in whoever computed the fractions.
constexpr double cropSlack = 1e-9;

std::optional<std::string> cropProblem(const Rect& crop) {
    for (const double value : {crop.x, crop.y, crop.width, crop.height}) {
        if (!std::isfinite(value)) {
            return "\"crop\" reaches outside the picture.";
        }
    }
    if (crop.minX() < -cropSlack || crop.minY() < -cropSlack || crop.maxX() > 1 + cropSlack ||
        crop.maxY() > 1 + cropSlack) {
        return "\"crop\" reaches outside the picture.";
    }
    if (crop.width == 0 || crop.height == 0) {
        return "\"crop\" is empty.";
    }
    return std::nullopt;
}

} // namespace

Clip Clip::make(double start, double end) {
    return Clip{Uuid::random(), start, end};
}

EditDecision::EditDecision(double duration)
    : sourceDuration(duration), clips{Clip::make(0, duration)} {}

double EditDecision::outputDuration() const {
    double kept = 0;
    for (const Clip& clip : clips) {
        kept += clip.end - clip.start;
    }
    return kept / speed;
}

double EditDecision::volume(int track) const {
    const auto found = volumes.find(track);
    return found == volumes.end() ? 1.0 : found->second;
}

bool EditDecision::isPassthrough() const {
    return speed == 1 && !crop.has_value() &&
           std::all_of(volumes.begin(), volumes.end(),
                       [](const auto& entry) { return entry.second == 1; });
}

std::vector<double> EditDecision::clipStarts() const {
    std::vector<double> starts;
    starts.reserve(clips.size());
    double running = 0;
    for (const Clip& clip : clips) {
        starts.push_back(running);
        running += (clip.end - clip.start) / speed;
    }
    return starts;
}

Location EditDecision::locate(double outputTime) const {
    if (clips.empty()) {
        return {0, 0};
    }
    double t = outputTime;
    if (!(t >= 0)) {
        t = 0;
    }
    const double total = outputDuration();
    if (t > total) {
        t = total;
    }
    const std::vector<double> starts = clipStarts();
    std::size_t index = clips.size() - 1;
    for (std::size_t i = 0; i < clips.size(); ++i) {
        // Strict: a time exactly on a boundary belongs to the later clip.
        if (t < starts[i] + (clips[i].end - clips[i].start) / speed) {
            index = i;
            break;
        }
    }
    const Clip& clip = clips[index];
    return {index, std::min(clip.start + speed * (t - starts[index]), clip.end)};
}

std::optional<double> EditDecision::outputTime(double sourceTime) const {
    const std::vector<double> starts = clipStarts();
    for (std::size_t i = 0; i < clips.size(); ++i) {
        if (clips[i].start <= sourceTime && sourceTime <= clips[i].end) {
            return starts[i] + (sourceTime - clips[i].start) / speed;
        }
    }
    return std::nullopt;
}

std::optional<std::string> EditDecision::problem() const {
    const auto beyond = [](const std::string& name) {
        return quotedName(name) + " lies beyond the length of any movie.";
    };
    if (!isEditTime(sourceDuration)) {
        return beyond("sourceDuration");
    }
    if (clips.empty()) {
        return "the edit keeps no clip.";
    }
    for (std::size_t i = 0; i < clips.size(); ++i) {
        const std::string name = "clips[" + std::to_string(i) + "]";
        if (!isEditTime(clips[i].start)) {
            return beyond(name + ".start");
        }
        if (!isEditTime(clips[i].end)) {
            return beyond(name + ".end");
        }
        if (!(clips[i].end > clips[i].start)) {
            return quotedName(name) + " ends before it starts.";
        }
    }
    if (!(speed > 0) || !std::isfinite(speed)) {
        return "\"speed\" must be above 0.";
    }
    if (crop) {
        if (auto problem = cropProblem(*crop)) {
            return problem;
        }
    }
    for (const auto& [track, gain] : volumes) {
        if (!(gain >= 0) || !std::isfinite(gain)) {
            return quotedName("volumes." + std::to_string(track)) + " must be 0 or more.";
        }
    }
    return std::nullopt;
}

bool EditDecision::split(double atOutput) {
    if (clips.empty()) {
        return false;
    }
    const Location location = locate(atOutput);
    Clip& clip = clips[location.index];
    if (!(location.source - clip.start >= minimumPieceSeconds &&
          clip.end - location.source >= minimumPieceSeconds)) {
        return false;
    }
    const Clip after = Clip::make(location.source, clip.end);
    clip.end = location.source;
    clips.insert(clips.begin() + static_cast<std::ptrdiff_t>(location.index) + 1, after);
    return true;
}

bool EditDecision::deleteClip(const Uuid& id) {
    if (clips.size() < 2) {
        return false;
    }
    const auto found =
        std::find_if(clips.begin(), clips.end(), [&](const Clip& clip) { return clip.id == id; });
    if (found == clips.end()) {
        return false;
    }
    clips.erase(found);
    return true;
}

void EditDecision::trim(const Uuid& id, std::optional<double> start, std::optional<double> end) {
    const auto found =
        std::find_if(clips.begin(), clips.end(), [&](const Clip& clip) { return clip.id == id; });
    if (found == clips.end()) {
        return;
    }
    const auto index = static_cast<std::size_t>(found - clips.begin());
    const double lowerBound = index > 0 ? clips[index - 1].end : 0.0;
    const double upperBound = index + 1 < clips.size() ? clips[index + 1].start : sourceDuration;
    Clip clip = clips[index];
    if (start) {
        clip.start = std::min(clip.end - minimumPieceSeconds, std::max(lowerBound, *start));
    }
    if (end) {
        clip.end = std::max(clip.start + minimumPieceSeconds, std::min(upperBound, *end));
    }
    clips[index] = clip;
}

Rect EditDecision::cropPixels(const Rect& crop, PixelSize video) {
    const auto videoWidth = static_cast<double>(video.width);
    const auto videoHeight = static_cast<double>(video.height);
    const std::int64_t x =
        roundDownToEven(checkedTruncate(clampedFraction(crop.minX()) * videoWidth, "crop x"));
    const std::int64_t y =
        roundDownToEven(checkedTruncate(clampedFraction(crop.minY()) * videoHeight, "crop y"));
    // The standardised size: a negative width or height counts by its magnitude.
    const double cropWidth = std::abs(crop.width);
    const double cropHeight = std::abs(crop.height);
    // The edge limit comes first and the raise to 2 last, so a crop starting at the
    // far edge still keeps 2 pixels.
    const std::int64_t width = std::max<std::int64_t>(
        roundDownToEven(checkedTruncate(
            std::min(videoWidth - static_cast<double>(x), cropWidth * videoWidth), "crop width")),
        2);
    const std::int64_t height = std::max<std::int64_t>(
        roundDownToEven(checkedTruncate(
            std::min(videoHeight - static_cast<double>(y), cropHeight * videoHeight),
            "crop height")),
        2);
    return {static_cast<double>(x), static_cast<double>(y), static_cast<double>(width),
            static_cast<double>(height)};
}

Rect EditDecision::centeredCrop(double aspect, PixelSize video) {
    const double ratio = static_cast<double>(video.width) / static_cast<double>(video.height);
    if (ratio < aspect) {
        const double height = ratio / aspect;
        return {0, (1 - height) * 0.5, 1, height};
    }
    const double width = aspect / ratio;
    return {(1 - width) * 0.5, 0, width, 1};
}

namespace GIFPlan {

std::vector<double> times(double duration, double fps, double maxSeconds) {
    const std::int64_t counted =
        checkedTruncate(std::floor(fps * std::min(maxSeconds, duration)), "the GIF frame count");
    const std::int64_t count = std::max<std::int64_t>(counted, 1);
    std::vector<double> result;
    result.reserve(static_cast<std::size_t>(count));
    for (std::int64_t k = 0; k < count; ++k) {
        result.push_back(static_cast<double>(k) / fps);
    }
    return result;
}

} // namespace GIFPlan

} // namespace lumenvale
