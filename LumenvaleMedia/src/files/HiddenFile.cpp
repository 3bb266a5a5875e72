#include "files/HiddenFile.h"

#include "LumenvaleKit/RecordingName.h"
#include "LumenvaleKit/Uuid.h"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <set>
#include <string_view>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

namespace lumenvale::files {
namespace {

constexpr std::string_view hiddenSuffix = ".partial";
constexpr std::size_t randomDigits = 8;
// A file younger than this may belong to a writer that has created it but not yet
// taken its lock.
constexpr std::time_t staleAfterSeconds = 60;

std::string quotedFolder(const std::filesystem::path& folder) {
    return "“" + folder.string() + "”";
}

// ".<stem>-XXXXXXXX.partial", X a hexadecimal digit.
bool isHiddenNameOf(const std::string& name, const std::string& stem) {
    const std::string prefix = "." + stem + "-";
    if (name.size() != prefix.size() + randomDigits + hiddenSuffix.size() ||
        !name.starts_with(prefix) || !name.ends_with(hiddenSuffix)) {
        return false;
    }
    const std::string_view digits = std::string_view(name).substr(prefix.size(), randomDigits);
    return std::all_of(digits.begin(), digits.end(),
                       [](char c) { return std::isxdigit(static_cast<unsigned char>(c)) != 0; });
}

} // namespace

std::string writeFailure(const std::filesystem::path& folder, int error) {
    switch (error) {
    case ENOSPC:
    case EDQUOT:
        return "There isn’t enough space on the disk to save the movie in the folder " +
               quotedFolder(folder) + ".";
    case EFBIG:
        return "The movie is too large for the disk of the folder " + quotedFolder(folder) + ".";
    default:
        return "Lumenvale can’t write to the folder " + quotedFolder(folder) + ": " +
               std::strerror(error) + ".";
    }
}

HiddenFile::CreateFailed::CreateFailed(const std::filesystem::path& folder, int errorNumber)
    : MediaError(writeFailure(folder, errorNumber)), error(errorNumber) {}

HiddenFile::HiddenFile(std::filesystem::path folder, const std::string& stem)
    : folder_(std::move(folder)) {
    for (int attempt = 0; fd_ < 0; ++attempt) {
        const std::string suffix = Uuid::random().text().substr(0, randomDigits);
        path_ = folder_ / ("." + stem + "-" + suffix + std::string(hiddenSuffix));
        fd_ = ::open(path_.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
        if (fd_ < 0 && (errno != EEXIST || attempt > 100)) {
            throw CreateFailed(folder_, errno);
        }
    }
    ::flock(fd_, LOCK_EX | LOCK_NB);
}

HiddenFile::~HiddenFile() {
    ::close(fd_);
    if (!published_) {
        ::unlink(path_.c_str());
    }
}

bool HiddenFile::renameWithoutReplacing(const std::filesystem::path& destination) {
    if (::renameat2(AT_FDCWD, path_.c_str(), AT_FDCWD, destination.c_str(), RENAME_NOREPLACE) ==
        0) {
        return true;
    }
    if (errno == EEXIST) {
        return false;
    }
    if (errno != EINVAL && errno != ENOSYS && errno != ENOTSUP) {
        throw MediaError(writeFailure(folder_, errno));
    }
    // A file system without RENAME_NOREPLACE: claim the name by creating it
    // exclusively (O_EXCL does not follow a link there either), then replace only that
    // placeholder of ours.
    const int placeholder =
        ::open(destination.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
    if (placeholder < 0) {
        if (errno == EEXIST) {
            return false;
        }
        throw MediaError(writeFailure(folder_, errno));
    }
    ::close(placeholder);
    if (::rename(path_.c_str(), destination.c_str()) != 0) {
        const int error = errno;
        ::unlink(destination.c_str());
        throw MediaError(writeFailure(folder_, error));
    }
    return true;
}

void HiddenFile::syncFolder(Durability durability) const {
    if (durability != Durability::synced) {
        return;
    }
    const int directory = ::open(folder_.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (directory >= 0) {
        ::fsync(directory); // best effort: the file itself is already on the disk
        ::close(directory);
    }
}

std::filesystem::path HiddenFile::publish(const std::string& base, const std::string& ext,
                                          Durability durability,
                                          const std::filesystem::path& preferred) {
    // Names that turned out to be taken although they looked free (a race, or a file
    // system that hides some names from stat) are not tried again.
    std::set<std::filesystem::path> taken;
    const auto exists = [&taken](const std::filesystem::path& candidate) {
        std::error_code ignored;
        return taken.contains(candidate) ||
               std::filesystem::symlink_status(candidate, ignored).type() !=
                   std::filesystem::file_type::not_found;
    };
    std::filesystem::path destination = preferred;
    if (destination.empty()) {
        destination = RecordingName::unique(folder_, base, ext, exists);
    }
    while (!renameWithoutReplacing(destination)) {
        taken.insert(destination);
        destination = RecordingName::unique(folder_, base, ext, exists);
    }
    published_ = true;
    path_ = destination;
    syncFolder(durability);
    return destination;
}

void HiddenFile::publishAs(const std::filesystem::path& destination, Durability durability) {
    if (!renameWithoutReplacing(destination)) {
        throw nameTaken(destination);
    }
    published_ = true;
    path_ = destination;
    syncFolder(durability);
}

MediaError HiddenFile::nameTaken(const std::filesystem::path& destination) {
    const std::filesystem::path folder =
        destination.has_parent_path() ? destination.parent_path() : std::filesystem::path(".");
    return MediaError("The file “" + destination.filename().string() +
                      "” already exists in the folder " + quotedFolder(folder) + ".");
}

int HiddenFile::removeStale(const std::filesystem::path& folder, const std::string& stem) {
    int removed = 0;
    std::error_code failure;
    for (const auto& entry : std::filesystem::directory_iterator(folder, failure)) {
        if (!isHiddenNameOf(entry.path().filename().string(), stem)) {
            continue;
        }
        const int fd = ::open(entry.path().c_str(), O_RDONLY | O_NOFOLLOW | O_CLOEXEC);
        if (fd < 0) {
            continue;
        }
        struct stat status {};
        const bool stale = ::fstat(fd, &status) == 0 && S_ISREG(status.st_mode) &&
                           std::time(nullptr) - status.st_mtime >= staleAfterSeconds &&
                           ::flock(fd, LOCK_EX | LOCK_NB) == 0;
        if (stale && ::unlink(entry.path().c_str()) == 0) {
            ++removed;
        }
        ::close(fd);
    }
    return removed;
}

} // namespace lumenvale::files
