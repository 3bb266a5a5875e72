#include "LumenvaleMedia/RecordingFiles.h"

#include "files/Joiner.h"
#include "files/MovieFile.h"
#include "files/PartInput.h"
#include "files/Poster.h"

#include <future>
#include <system_error>

namespace lumenvale::RecordingFiles {
namespace {

// The parts of a save, sorted by what can be done with them.
struct OpenedParts {
    std::vector<std::unique_ptr<files::PartInput>> usable; // in recording order
    std::vector<std::filesystem::path> empty;              // open, but nothing to play
    std::vector<std::filesystem::path> unreadable;         // not movies: never removed
};

OpenedParts openParts(const std::vector<std::filesystem::path>& paths) {
    OpenedParts parts;
    for (const std::filesystem::path& path : paths) {
        try {
            auto part = std::make_unique<files::PartInput>(path);
            // Shorter than one tick of its time base, or no stream to play: left out.
            if (part->timing() == nullptr || part->listedSeconds() <= 0) {
                parts.empty.push_back(path);
            } else {
                parts.usable.push_back(std::move(part));
            }
        } catch (const MediaError&) {
            parts.unreadable.push_back(path);
        }
    }
    return parts;
}

// Writes the usable parts into `file`; returns each part's video duration.
std::vector<double> writeParts(OpenedParts& parts, files::MovieFile& file) {
    try {
        return files::writeJoined(parts.usable, file, files::moovPlacementFor(parts.usable));
    } catch (const files::ReservedSpaceTooSmall&) {
        // Only when a container under-listed its samples: write again, index at the end.
        for (auto& part : parts.usable) {
            part = std::make_unique<files::PartInput>(part->path());
        }
        file.restart();
        return files::writeJoined(parts.usable, file, files::MoovPlacement::end);
    }
}

std::vector<double> readDurations(const std::vector<double>& seconds) {
    std::vector<double> kept;
    for (double value : seconds) {
        if (value > 0) {
            kept.push_back(value);
        }
    }
    if (kept.empty()) {
        throw MediaError(RecError::nothingRecorded);
    }
    return kept;
}

double movieDuration(const AVFormatContext& movie) {
    if (movie.duration == AV_NOPTS_VALUE || movie.duration <= 0) {
        throw MediaError("The saved movie has no duration.");
    }
    return ff::seconds(movie.duration, AV_TIME_BASE_Q);
}

// Closes the parts that went into the movie and removes them with the empty ones;
// failures to remove are ignored (the movie is saved either way).
void removeParts(OpenedParts& parts) {
    std::vector<std::filesystem::path> paths = parts.empty;
    for (const auto& part : parts.usable) {
        paths.push_back(part->path());
    }
    parts.usable.clear();
    std::error_code ignored;
    for (const auto& path : paths) {
        std::filesystem::remove(path, ignored);
    }
}

} // namespace

Recording save(const std::vector<std::filesystem::path>& parts, const std::filesystem::path& folder,
               const LocalDateTime& date) {
    OpenedParts opened = openParts(parts);
    if (opened.usable.empty()) {
        throw MediaError(RecError::nothingRecorded);
    }
    files::createFolder(folder);
    const std::string base = RecordingName::base(date);
    Recording recording;
    {
        files::MovieFile file(folder, base);
        recording.partDurations = readDurations(writeParts(opened, file));
        file.finish(files::Durability::cached);
        // The movie as written: its duration now, its poster while it goes to the disk.
        ff::InputContext movie = ff::openInput(file.temporaryPath(), ff::InputProbing::headerOnly);
        recording.durationSeconds = movieDuration(*movie);
        std::future<std::optional<Image>> poster =
            std::async(std::launch::async,
                       [movie = std::move(movie), seconds = recording.durationSeconds]() mutable {
                           return files::posterOf(std::move(movie), seconds);
                       });
        file.finish(files::Durability::synced);
        recording.path = file.publish(base, "mp4", files::Durability::synced);
        recording.poster = poster.get();
    }
    // The movie is on the disk under its name: the parts may go now.
    removeParts(opened);
    return recording;
}

std::vector<double> join(const std::vector<std::filesystem::path>& parts,
                         const std::filesystem::path& destination) {
    OpenedParts opened = openParts(parts);
    if (opened.usable.empty()) {
        throw MediaError(RecError::nothingRecorded);
    }
    const std::filesystem::path folder =
        destination.has_parent_path() ? destination.parent_path() : std::filesystem::path(".");
    files::createFolder(folder);
    files::MovieFile file(folder, destination.stem().string());
    std::vector<double> seconds = readDurations(writeParts(opened, file));
    file.finish(files::Durability::synced);
    file.publishAs(destination, files::Durability::synced);
    return seconds;
}

} // namespace lumenvale::RecordingFiles
