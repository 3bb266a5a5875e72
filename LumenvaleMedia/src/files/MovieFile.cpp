#include "files/MovieFile.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
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

} // namespace

void createFolder(const std::filesystem::path& folder) {
    std::error_code failure;
    std::filesystem::create_directories(folder, failure);
    if (failure) {
        throw MediaError("Lumenvale can’t create the folder " + quotedFolder(folder) + ": " +
                         std::strerror(failure.value()) + ".");
    }
    if (!std::filesystem::is_directory(folder, failure)) {
        throw MediaError("Lumenvale can’t save into " + quotedFolder(folder) +
                         " because it is not a folder.");
    }
}

void MovieFile::IoDeleter::operator()(AVIOContext* io) const {
    if (io != nullptr) {
        av_freep(&io->buffer);
        avio_context_free(&io);
    }
}

MovieFile::MovieFile(std::filesystem::path folder, const std::string& stem)
    : file_(std::move(folder), stem), fd_(file_.descriptor()) {
    staged_.reserve(blockBytes);
    makeIo();
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
    io_.reset(); // before file_, which closes the file and removes it unless published
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
    return readFailure_.empty() ? writeFailure(file_.folder(), error_) : readFailure_;
}

void MovieFile::restart() {
    avio_flush(io_.get());
    staged_.clear();
    range_.reset();
    expected_.reset();
    error_ = 0;
    readFailure_.clear();
    if (::ftruncate(fd_, 0) != 0 || ::lseek(fd_, 0, SEEK_SET) != 0) {
        throw MediaError(writeFailure(file_.folder(), errno));
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

} // namespace lumenvale::files
