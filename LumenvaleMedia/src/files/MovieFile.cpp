#include "files/MovieFile.h"

#include "LumenvaleKit/RecordingName.h"
#include "LumenvaleKit/Uuid.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <set>
#include <sys/stat.h>
#include <unistd.h>

namespace lumenvale::files {
namespace {

// Big enough that the muxer's many small writes reach the kernel in few system calls;
// the samples themselves pass through it in large blocks.
constexpr int ioBufferBytes = 4 << 20;

std::string quotedFolder(const std::filesystem::path& folder) {
    return "“" + folder.string() + "”";
}

std::string systemText(int error) {
    return std::strerror(error);
}

} // namespace

void createFolder(const std::filesystem::path& folder) {
    std::error_code failure;
    std::filesystem::create_directories(folder, failure);
    if (failure) {
        throw MediaError("Lumenvale can’t create the folder " + quotedFolder(folder) + ": " +
                         systemText(failure.value()) + ".");
    }
    if (!std::filesystem::is_directory(folder, failure)) {
        throw MediaError("Lumenvale can’t save into " + quotedFolder(folder) +
                         " because it is not a folder.");
    }
}

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
               systemText(error) + ".";
    }
}

void MovieFile::IoDeleter::operator()(AVIOContext* io) const {
    if (io != nullptr) {
        av_freep(&io->buffer);
        avio_context_free(&io);
    }
}

MovieFile::MovieFile(std::filesystem::path folder, const std::string& stem)
    : folder_(std::move(folder)) {
    for (int attempt = 0; fd_ < 0; ++attempt) {
        const std::string suffix = Uuid::random().text().substr(0, 8);
        temporaryPath_ = folder_ / ("." + stem + "-" + suffix + ".partial");
        fd_ = ::open(temporaryPath_.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
        if (fd_ < 0 && (errno != EEXIST || attempt > 100)) {
            throw MediaError(writeFailure(folder_, errno));
        }
    }
    auto* buffer = static_cast<std::uint8_t*>(av_malloc(ioBufferBytes));
    if (buffer != nullptr) {
        io_.reset(avio_alloc_context(buffer, ioBufferBytes, 1, this, nullptr,
                                     &MovieFile::writeBytes, &MovieFile::seekBytes));
    }
    if (!io_) {
        av_free(buffer);
        close();
        std::filesystem::remove(temporaryPath_);
        throw MediaError("Not enough memory to save the movie.");
    }
}

MovieFile::~MovieFile() {
    io_.reset();
    close();
    if (!published_) {
        ff::removePartial(temporaryPath_);
    }
}

void MovieFile::close() {
    if (fd_ >= 0) {
        ::close(fd_);
        fd_ = -1;
    }
}

int MovieFile::writeBytes(void* self, std::uint8_t* bytes, int size) {
    auto* file = static_cast<MovieFile*>(self);
    if (file->error_ != 0) {
        return AVERROR(file->error_);
    }
    int done = 0;
    while (done < size) {
        const ssize_t written =
            ::write(file->fd_, bytes + done, static_cast<std::size_t>(size - done));
        if (written < 0) {
            if (errno == EINTR) {
                continue;
            }
            file->error_ = errno;
            return AVERROR(errno);
        }
        done += static_cast<int>(written);
    }
    return size;
}

std::int64_t MovieFile::seekBytes(void* self, std::int64_t offset, int whence) {
    auto* file = static_cast<MovieFile*>(self);
    if (whence == AVSEEK_SIZE) {
        struct stat status {};
        return ::fstat(file->fd_, &status) == 0 ? status.st_size : AVERROR(errno);
    }
    const off_t position = ::lseek(file->fd_, offset, whence & ~AVSEEK_FORCE);
    if (position < 0) {
        file->error_ = errno;
        return AVERROR(errno);
    }
    return position;
}

std::string MovieFile::failure() const {
    return writeFailure(folder_, error_);
}

void MovieFile::restart() {
    avio_flush(io_.get());
    error_ = 0;
    if (::ftruncate(fd_, 0) != 0 || ::lseek(fd_, 0, SEEK_SET) != 0) {
        throw MediaError(writeFailure(folder_, errno));
    }
    // A fresh context: the old one remembers its position and any error.
    auto* buffer = static_cast<std::uint8_t*>(av_malloc(ioBufferBytes));
    AVIOContext* fresh = buffer == nullptr
                             ? nullptr
                             : avio_alloc_context(buffer, ioBufferBytes, 1, this, nullptr,
                                                  &MovieFile::writeBytes, &MovieFile::seekBytes);
    if (fresh == nullptr) {
        av_free(buffer);
        throw MediaError("Not enough memory to save the movie.");
    }
    io_.reset(fresh);
}

void MovieFile::finish(Durability durability) {
    avio_flush(io_.get());
    if (error_ == 0 && io_->error < 0) {
        error_ = AVUNERROR(io_->error);
    }
    if (error_ == 0 && durability == Durability::synced && ::fdatasync(fd_) != 0) {
        error_ = errno;
    }
    if (error_ != 0) {
        throw MediaError(failure());
    }
}

bool MovieFile::renameWithoutReplacing(const std::filesystem::path& destination) {
    if (::renameat2(AT_FDCWD, temporaryPath_.c_str(), AT_FDCWD, destination.c_str(),
                    RENAME_NOREPLACE) == 0) {
        return true;
    }
    if (errno == EEXIST) {
        return false;
    }
    if (errno != EINVAL && errno != ENOSYS && errno != ENOTSUP) {
        throw MediaError(writeFailure(folder_, errno));
    }
    // A file system without RENAME_NOREPLACE: claim the name by creating it
    // exclusively, then replace only that placeholder of ours.
    const int placeholder =
        ::open(destination.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
    if (placeholder < 0) {
        if (errno == EEXIST) {
            return false;
        }
        throw MediaError(writeFailure(folder_, errno));
    }
    ::close(placeholder);
    if (::rename(temporaryPath_.c_str(), destination.c_str()) != 0) {
        const int error = errno;
        ::unlink(destination.c_str());
        throw MediaError(writeFailure(folder_, error));
    }
    return true;
}

void MovieFile::syncFolder(Durability durability) const {
    if (durability != Durability::synced) {
        return;
    }
    const int directory = ::open(folder_.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (directory >= 0) {
        ::fsync(directory); // best effort: the file itself is already on the disk
        ::close(directory);
    }
}

std::filesystem::path MovieFile::publish(const std::string& base, const std::string& ext,
                                         Durability durability) {
    // Names that turned out to be taken although they looked free (a race, or a file
    // system that hides some names from stat) are not tried again.
    std::set<std::filesystem::path> taken;
    const auto exists = [&taken](const std::filesystem::path& candidate) {
        std::error_code ignored;
        return taken.contains(candidate) ||
               std::filesystem::symlink_status(candidate, ignored).type() !=
                   std::filesystem::file_type::not_found;
    };
    for (;;) {
        const std::filesystem::path destination = RecordingName::unique(folder_, base, ext, exists);
        if (renameWithoutReplacing(destination)) {
            published_ = true;
            temporaryPath_ = destination;
            syncFolder(durability);
            return destination;
        }
        taken.insert(destination);
    }
}

void MovieFile::publishAs(const std::filesystem::path& destination, Durability durability) {
    if (!renameWithoutReplacing(destination)) {
        throw MediaError("The file “" + destination.filename().string() +
                         "” already exists in the folder " +
                         quotedFolder(destination.parent_path()) + ".");
    }
    published_ = true;
    temporaryPath_ = destination;
    syncFolder(durability);
}

} // namespace lumenvale::files
