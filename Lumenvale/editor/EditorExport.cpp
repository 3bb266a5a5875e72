#include "editor/EditorExport.h"

#include "LumenvaleKit/RecordingName.h"
#include "LumenvaleMedia/MediaError.h"
#include "LumenvaleMedia/RecordingPipeline.h"

#include <mutex>
#include <set>
#include <system_error>
#include <utility>

namespace lumenvale::EditorExport {
namespace {

// Names handed to exports that are still running in this process.
struct HeldNames {
    std::mutex mutex;
    std::set<std::filesystem::path> paths;
};

HeldNames& heldNames() {
    static HeldNames* names = new HeldNames; // never destroyed: exports may end at exit
    return *names;
}

} // namespace

const char* fileExtension(Format format) {
    switch (format) {
    case Format::movie:
        return "mp4";
    case Format::gif:
        return "gif";
    }
    return "mp4";
}

Reservation::Reservation(std::filesystem::path path, std::string base)
    : path_(std::move(path)), base_(std::move(base)) {}

Reservation::~Reservation() {
    if (path_.empty()) {
        return;
    }
    auto& names = heldNames();
    const std::lock_guard lock(names.mutex);
    names.paths.erase(path_);
}

std::shared_ptr<Reservation> reserveTarget(const std::filesystem::path& recording, Format format) {
    auto& names = heldNames();
    const std::lock_guard lock(names.mutex);
    const auto taken = [&](const std::filesystem::path& candidate) {
        // A dangling link still takes the name: writing through it would land elsewhere.
        std::error_code error;
        return std::filesystem::exists(std::filesystem::symlink_status(candidate, error)) ||
               names.paths.contains(candidate);
    };
    const std::string base = recording.stem().string() + " edited";
    const std::filesystem::path target =
        RecordingName::unique(recording.parent_path(), base, fileExtension(format), taken);
    names.paths.insert(target);
    return std::make_shared<Reservation>(target, base);
}

std::filesystem::path write(const std::filesystem::path& source, const EditDecision& edit,
                            Format format, Codec codec,
                            const EditRenderer::Destination& destination,
                            const EditRenderer::Progress& progress, const std::atomic<bool>* cancel,
                            const EditRenderer::StatusText& status) {
    // The renderer writes under a hidden name and removes it after a failure: nothing
    // under the destination's name is ever ours to remove.
    switch (format) {
    case Format::movie:
        return EditRenderer::exportMovie(source, edit, resolve(codec, availableVideoFourCCs()),
                                         destination, progress, cancel, status);
    case Format::gif:
        return EditRenderer::exportGIF(source, edit, destination, progress, cancel);
    }
    throw MediaError("The export format is unknown.");
}

} // namespace lumenvale::EditorExport
