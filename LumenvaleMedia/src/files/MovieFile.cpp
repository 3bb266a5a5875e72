#include "files/MovieFile.h"

#include "LumenvaleKit/RecordingName.h"
#include "LumenvaleKit/Uuid.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <set>
#include <sys/file.h>
#include <sys/sendfile.h>
#include <sys/stat.h>
#include <unistd.h>

namespace lumenvale::files {
namespace {

// The muxer's small writes (box headers, the index) are gathered in this many bytes
// before they reach our own staging, which writes to the file in blocks of blockBytes.
constexpr int smallWriteBytes = 64 * 1024;
constexpr std::size_t blockBytes = 4 << 20;

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
    // Held while the movie is written, so that clean-up after a crash
    // (Recovery::removeUnfinishedMovies) can tell a live temporary file from a dead one.
    ::flock(fd_, LOCK_EX | LOCK_NB);
    try {
        staged_.reserve(blockBytes);
        makeIo();
    } catch (...) {
        close();
        ff::removePartial(temporaryPath_);
        throw;
    }
}

void MovieFile::makeIo() {
    auto* buffer = static_cast<std::uint8_t*>(av_malloc(smallWriteBytes));
    AVIOContext* io = buffer == nullptr
                          ? nullptr
                          : avio_alloc_context(buffer, smallWriteBytes, 1, this, nullptr,
                                               &MovieFile::writeBytes, &MovieFile::seekBytes);
    if (io == nullptr) {
        av_free(buffer);
        throw MediaError("Not enough memory to save the movie.");
    }
    // Large writes (the samples) come to writeBytes() with the caller's own pointer,
    // which is how a stand-in payload is recognised; small ones are gathered first.
    io->direct = 1;
    io_.reset(io);
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

std::uint8_t* MovieFile::payloadFromFile(int fd, std::int64_t offset, int size) {
    const auto needed = static_cast<std::size_t>(size) + AV_INPUT_BUFFER_PADDING_SIZE;
    if (standIn_.size() < needed) {
        standIn_.assign(needed, 0);
    }
    expected_ = FileRange{fd, offset, size};
    taken_ = false;
    return standIn_.data();
}

int MovieFile::writeBytes(void* self, std::uint8_t* bytes, int size) {
    auto* file = static_cast<MovieFile*>(self);
    const auto length = static_cast<std::size_t>(size);
    if (file->expected_ && bytes == file->standIn_.data() && size == file->expected_->length) {
        const FileRange payload = *file->expected_;
        file->expected_.reset();
        file->taken_ = true;
        std::optional<FileRange>& range = file->range_;
        if (range && range->fd == payload.fd && range->offset + range->length == payload.offset) {
            range->length += payload.length; // the samples follow each other in the part too
        } else {
            file->flushPending();
            range = payload;
        }
    } else {
        file->flushRange();
        file->stage(bytes, length);
    }
    return file->error_ != 0 ? AVERROR(file->error_) : size;
}

std::int64_t MovieFile::seekBytes(void* self, std::int64_t offset, int whence) {
    auto* file = static_cast<MovieFile*>(self);
    file->flushPending();
    if (file->error_ != 0) {
        return AVERROR(file->error_);
    }
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

void MovieFile::stage(const std::uint8_t* bytes, std::size_t size) {
    if (staged_.size() + size > blockBytes) {
        flushStaged();
    }
    if (size >= blockBytes) {
        writeAll(bytes, size);
        return;
    }
    staged_.insert(staged_.end(), bytes, bytes + size);
}

void MovieFile::writeAll(const std::uint8_t* bytes, std::size_t size) {
    while (size > 0 && error_ == 0) {
        const ssize_t written = ::write(fd_, bytes, size);
        if (written < 0) {
            if (errno != EINTR) {
                error_ = errno;
            }
            continue;
        }
        bytes += written;
        size -= static_cast<std::size_t>(written);
    }
}

void MovieFile::flushStaged() {
    if (!staged_.empty()) {
        writeAll(staged_.data(), staged_.size());
        staged_.clear();
    }
}

void MovieFile::flushRange() {
    if (range_) {
        const FileRange range = *range_;
        range_.reset();
        copyRange(range);
    }
}

void MovieFile::copyRange(FileRange range) {
    std::vector<std::uint8_t> bounce;
    while (range.length > 0 && error_ == 0) {
        const auto chunk =
            static_cast<std::size_t>(std::min<std::int64_t>(range.length, blockBytes));
        ssize_t copied = -1;
        off_t from = range.offset;
        switch (copyMethod_) {
        case CopyMethod::copyFileRange:
            copied = ::copy_file_range(range.fd, &from, fd_, nullptr, chunk, 0);
            break;
        case CopyMethod::sendFile:
            copied = ::sendfile(fd_, range.fd, &from, chunk);
            break;
        case CopyMethod::readAndWrite:
            bounce.resize(chunk);
            copied = ::pread(range.fd, bounce.data(), chunk, range.offset);
            if (copied > 0) {
                writeAll(bounce.data(), static_cast<std::size_t>(copied));
            }
            break;
        }
        if (copied < 0) {
            const int error = errno;
            if (error == EINTR) {
                continue;
            }
            // Across file systems, or a file system that does not offer the faster way.
            const bool unsupported = error == EXDEV || error == EINVAL || error == ENOSYS ||
                                     error == EOPNOTSUPP || error == EPERM;
            if (unsupported && copyMethod_ != CopyMethod::readAndWrite) {
                copyMethod_ = copyMethod_ == CopyMethod::copyFileRange ? CopyMethod::sendFile
                                                                       : CopyMethod::readAndWrite;
                continue;
            }
            error_ = error;
            return;
        }
        if (copied == 0) {
            readFailure_ = "A part file of the recording became shorter while it was being saved.";
            error_ = EIO;
            return;
        }
        range.offset += copied;
        range.length -= copied;
    }
}

std::string MovieFile::failure() const {
    return readFailure_.empty() ? writeFailure(folder_, error_) : readFailure_;
}

void MovieFile::restart() {
    avio_flush(io_.get());
    staged_.clear();
    range_.reset();
    expected_.reset();
    error_ = 0;
    readFailure_.clear();
    if (::ftruncate(fd_, 0) != 0 || ::lseek(fd_, 0, SEEK_SET) != 0) {
        throw MediaError(writeFailure(folder_, errno));
    }
    makeIo(); // a fresh context: the old one remembers its position and any error
}

void MovieFile::finish(Durability durability) {
    avio_flush(io_.get());
    flushPending();
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
