#include "LumenvaleMedia/Recovery.h"

#include "LumenvaleMedia/PartLock.h"
#include "files/PartInput.h"

#include <algorithm>
#include <charconv>
#include <cstdio>
#include <ctime>
#include <map>
#include <sys/stat.h>

namespace lumenvale::Recovery {
namespace {

constexpr std::string_view partPrefix = "Lumenvale-";
constexpr std::string_view partExtension = ".mp4";

bool isPartName(const std::string& name) {
    return name.size() > partPrefix.size() + partExtension.size() && name.starts_with(partPrefix) &&
           name.ends_with(partExtension);
}

// What a part file says about itself.
struct PartFacts {
    std::filesystem::path path;
    PartLock lock;       // held when the part's writer is gone
    bool locked = false; // someone else holds it: its recording is alive
    std::optional<Uuid> recording;
    std::optional<std::int64_t> number;
    std::optional<LocalDateTime> started;
    LocalDateTime modified;
    bool holdsSamples = true;
};

// What a scan found, with the locks of everything it may touch still held, so that
// nobody else takes those files between the scan and their recovery or removal.
struct HeldScan {
    struct Found {
        InterruptedRecording recording;
        std::vector<PartLock> locks;
    };
    std::vector<Found> recordings; // oldest start first
    std::vector<UnusablePart> unusable;
    std::vector<PartFacts> leftovers;
};

std::optional<std::int64_t> parseNumber(const std::optional<std::string>& text) {
    std::int64_t value = 0;
    if (!text) {
        return std::nullopt;
    }
    const auto [end, error] = std::from_chars(text->data(), text->data() + text->size(), value);
    return error == std::errc() && end == text->data() + text->size() ? std::optional(value)
                                                                      : std::nullopt;
}

// "YYYY-MM-DDTHH:MM:SS", the start tag's form; nothing for anything else.
std::optional<LocalDateTime> parseStarted(const std::optional<std::string>& text) {
    if (!text || text->size() != 19) {
        return std::nullopt;
    }
    LocalDateTime when;
    char tail = 0;
    const int fields =
        std::sscanf(text->c_str(), "%4d-%2d-%2dT%2d:%2d:%2d%c", &when.year, &when.month, &when.day,
                    &when.hour, &when.minute, &when.second, &tail);
    const bool valid = fields == 6 && when.month >= 1 && when.month <= 12 && when.day >= 1 &&
                       when.day <= 31 && when.hour >= 0 && when.hour <= 23 && when.minute >= 0 &&
                       when.minute <= 59 && when.second >= 0 && when.second <= 60;
    return valid ? std::optional(when) : std::nullopt;
}

LocalDateTime modificationTime(const std::filesystem::path& path) {
    struct stat status {};
    std::tm local{};
    if (::stat(path.c_str(), &status) != 0 || ::localtime_r(&status.st_mtime, &local) == nullptr) {
        return LocalDateTime{};
    }
    return LocalDateTime{local.tm_year + 1900, local.tm_mon + 1, local.tm_mday,
                         local.tm_hour,        local.tm_min,     local.tm_sec};
}

auto startKey(const LocalDateTime& when) {
    return std::tuple(when.year, when.month, when.day, when.hour, when.minute, when.second);
}

// Reads one part file's header into `facts`. Returns why it is not a movie, if it
// is not one.
std::optional<std::string> readHeader(PartFacts& facts) {
    try {
        const files::PartInput part(facts.path); // reads the header only
        const std::optional<std::string> id = part.tag("lumenvale_recording");
        facts.recording = id ? Uuid::parse(*id) : std::nullopt;
        facts.number = parseNumber(part.tag("lumenvale_part"));
        facts.started = parseStarted(part.tag("lumenvale_started"));
        facts.holdsSamples = part.listedSamples().value_or(1) > 0;
        return std::nullopt;
    } catch (const MediaError& error) {
        // Looked into only when its writer is gone: one still writing may not have
        // written anything yet.
        facts.holdsSamples = facts.lock.state() != PartLock::State::held ||
                             !files::holdsNoSamples(facts.lock.descriptor());
        return error.what();
    }
}

HeldScan scan(const std::filesystem::path& partsFolder) {
    HeldScan scan;
    std::error_code failure;
    std::vector<PartFacts> parts;
    for (const auto& entry : std::filesystem::directory_iterator(partsFolder, failure)) {
        const std::string name = entry.path().filename().string();
        std::error_code ignored;
        if (!isPartName(name) || !entry.is_regular_file(ignored)) {
            continue;
        }
        PartFacts facts;
        facts.path = entry.path();
        facts.lock = PartLock(entry.path());
        facts.locked = facts.lock.state() == PartLock::State::heldElsewhere;
        if (facts.lock.state() == PartLock::State::unavailable &&
            !std::filesystem::exists(facts.path, ignored)) {
            continue; // removed meanwhile
        }
        const std::optional<std::string> notAMovie = readHeader(facts);
        if (facts.locked) {
            if (!notAMovie) { // its recording is alive: all of it is left alone
                parts.push_back(std::move(facts));
            }
            continue;
        }
        if (!facts.holdsSamples && facts.lock.state() == PartLock::State::held) {
            scan.leftovers.push_back(std::move(facts)); // nothing recorded, nothing to lose
        } else if (notAMovie) {
            scan.unusable.push_back(UnusablePart{facts.path, *notAMovie});
        } else {
            facts.modified = modificationTime(facts.path);
            parts.push_back(std::move(facts));
        }
    }
    // Recordings by their tag; parts without one stand alone. A recording with any
    // part still locked is running: none of its parts is touched.
    std::map<Uuid, std::vector<PartFacts>> byRecording;
    std::vector<std::vector<PartFacts>> groups;
    for (PartFacts& part : parts) {
        if (part.recording) {
            byRecording[*part.recording].push_back(std::move(part));
        } else if (!part.locked) {
            groups.emplace_back().push_back(std::move(part));
        }
    }
    for (auto& [id, members] : byRecording) {
        if (std::none_of(members.begin(), members.end(),
                         [](const PartFacts& p) { return p.locked; })) {
            groups.push_back(std::move(members));
        }
    }
    for (auto& members : groups) {
        std::stable_sort(members.begin(), members.end(),
                         [](const PartFacts& a, const PartFacts& b) {
                             return std::tuple(a.number.value_or(INT64_MAX), startKey(a.modified),
                                               a.path.filename()) <
                                    std::tuple(b.number.value_or(INT64_MAX), startKey(b.modified),
                                               b.path.filename());
                         });
        HeldScan::Found found;
        InterruptedRecording& recording = found.recording;
        recording.recordingID = members.front().recording;
        for (PartFacts& part : members) {
            recording.parts.push_back(part.path);
            found.locks.push_back(std::move(part.lock));
        }
        // Named after the start its parts record, else after when its first part was written.
        const auto tagged = std::find_if(members.begin(), members.end(), [](const PartFacts& part) {
            return part.started.has_value();
        });
        recording.startedAt = tagged != members.end() ? *tagged->started : members.front().modified;
        scan.recordings.push_back(std::move(found));
    }
    std::stable_sort(scan.recordings.begin(), scan.recordings.end(),
                     [](const HeldScan::Found& a, const HeldScan::Found& b) {
                         return startKey(a.recording.startedAt) < startKey(b.recording.startedAt);
                     });
    return scan;
}

} // namespace

RecoveryScan find(const std::filesystem::path& partsFolder) {
    HeldScan held = scan(partsFolder);
    RecoveryScan found;
    for (HeldScan::Found& recording : held.recordings) {
        found.recordings.push_back(std::move(recording.recording));
    }
    found.unusable = std::move(held.unusable);
    for (const PartFacts& leftover : held.leftovers) {
        found.leftovers.push_back(leftover.path);
    }
    return found;
}

Recording recover(const InterruptedRecording& recording, const std::filesystem::path& saveFolder) {
    std::vector<PartLock> locks;
    for (const std::filesystem::path& part : recording.parts) {
        locks.emplace_back(part);
        if (locks.back().state() == PartLock::State::heldElsewhere) {
            throw MediaError("The part file “" + part.filename().string() +
                             "” is in use by another program, so it was not recovered.");
        }
    }
    return RecordingFiles::save(recording.parts, saveFolder, recording.startedAt);
}

int removeUnfinishedMovies(const std::filesystem::path& saveFolder) {
    int removed = 0;
    std::error_code failure;
    for (const auto& entry : std::filesystem::directory_iterator(saveFolder, failure)) {
        const std::string name = entry.path().filename().string();
        std::error_code ignored;
        if (!name.starts_with(".Lumenvale Recording ") || !name.ends_with(".partial") ||
            !entry.is_regular_file(ignored)) {
            continue;
        }
        const PartLock lock(entry.path());
        if (lock.state() == PartLock::State::held &&
            std::filesystem::remove(entry.path(), ignored)) {
            ++removed;
        }
    }
    return removed;
}

RecoveryResult recoverAll(const std::filesystem::path& partsFolder,
                          const std::filesystem::path& saveFolder) {
    removeUnfinishedMovies(saveFolder);
    HeldScan held = scan(partsFolder);
    RecoveryResult result;
    result.unusable = std::move(held.unusable);
    for (const PartFacts& leftover : held.leftovers) {
        std::error_code ignored;
        std::filesystem::remove(leftover.path, ignored); // still locked: nobody else's
    }
    for (const HeldScan::Found& found : held.recordings) {
        try {
            // The scan's locks keep the parts ours until they are saved and removed.
            result.recovered.push_back(
                RecordingFiles::save(found.recording.parts, saveFolder, found.recording.startedAt));
        } catch (const MediaError& error) {
            result.failures.emplace_back(error.what());
        }
    }
    return result;
}

std::string notice(const Recording& recording) {
    return "Recovered a recording that was interrupted: " + recording.path.filename().string();
}

} // namespace lumenvale::Recovery
