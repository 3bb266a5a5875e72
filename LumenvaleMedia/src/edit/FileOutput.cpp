#include "edit/FileOutput.h"

#include "LumenvaleMedia/MediaError.h"
#include "edit/SourceBytes.h"
#include "ffmpeg/Handles.h"

extern "C" {
#include <libavutil/mem.h>
}

#include <algorithm>
#include <cerrno>
#include <fcntl.h>
#include <unistd.h>

namespace lumenvale::edit {
namespace {

// Small writes (box headers) gather here; packet bytes bypass it.
constexpr int headerBufferBytes = 64 * 1024;

// Queued copies are done once they reach this size, so the file grows as the export's
// progress says and a cancellation is not kept waiting.
constexpr std::size_t copyChunkBytes = 8 * 1024 * 1024;

} // namespace

FileOutput::FileOutput(const std::filesystem::path& destination) {
    descriptor_ = ::open(destination.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    if (descriptor_ < 0) {
        throw MediaError("Couldn’t write “" + destination.filename().string() + "” in “" +
                         destination.parent_path().string() +
                         "”: " + ff::errorText(AVERROR(errno)) + ".");
    }
    auto* buffer = static_cast<unsigned char*>(av_malloc(headerBufferBytes));
    context_ = buffer == nullptr ? nullptr
                                 : avio_alloc_context(buffer, headerBufferBytes, 1, this, nullptr,
                                                      &FileOutput::write, &FileOutput::seek);
    if (context_ == nullptr) {
        av_free(buffer);
        ::close(descriptor_);
        throw MediaError("Not enough memory to write the movie.");
    }
    context_->direct = 1;
    context_->seekable = AVIO_SEEKABLE_NORMAL;
}

FileOutput::~FileOutput() {
    if (context_ != nullptr) {
        av_freep(&context_->buffer);
        avio_context_free(&context_);
    }
    if (descriptor_ >= 0) {
        ::close(descriptor_);
    }
}

void FileOutput::close() {
    avio_flush(context_);
    const bool copied = flushCopy();
    const int copyError = copied ? 0 : AVERROR(errno);
    const int written = context_->error;
    const int closed = ::close(descriptor_);
    descriptor_ = -1;
    ff::check(written < 0 ? written : copyError, "Couldn’t write the movie");
    if (closed != 0) {
        ff::check(AVERROR(errno), "Couldn’t finish writing the movie");
    }
}

int FileOutput::write(void* opaque, std::uint8_t* data, int size) {
    auto* self = static_cast<FileOutput*>(opaque);
    const auto bytes = static_cast<std::size_t>(size);
    const std::int64_t from = self->source_ != nullptr ? self->source_->offsetOf(data, bytes) : -1;
    const bool done = from >= 0 ? self->queueCopy(from, bytes)
                                : self->flushCopy() && self->writeAll(data, bytes, self->position_);
    if (!done) {
        return AVERROR(errno);
    }
    self->position_ += size;
    self->end_ = std::max(self->end_, self->position_);
    return size;
}

bool FileOutput::queueCopy(std::int64_t from, std::size_t size) {
    const auto queued = static_cast<std::int64_t>(pending_.size);
    if (pending_.size > 0 && pending_.from + queued == from && pending_.to + queued == position_) {
        pending_.size += size;
        return pending_.size < copyChunkBytes || flushCopy();
    }
    if (!flushCopy()) {
        return false;
    }
    pending_ = {from, position_, size};
    return true;
}

bool FileOutput::flushCopy() {
    if (pending_.size == 0) {
        return true;
    }
    off_t from = pending_.from;
    off_t to = pending_.to;
    std::size_t left = pending_.size;
    pending_.size = 0;
    while (left > 0 && kernelCopies_) {
        const ssize_t copied =
            ::copy_file_range(source_->descriptor(), &from, descriptor_, &to, left, 0);
        if (copied < 0 && errno == EINTR) {
            continue;
        }
        if (copied <= 0) {
            // Refused between these file systems (or cut short): write the rest from
            // the mapping instead, and stop asking.
            kernelCopies_ = false;
            break;
        }
        left -= static_cast<std::size_t>(copied);
    }
    if (left == 0) {
        return true;
    }
    const std::uint8_t* bytes = source_->bytesAt(from, left);
    if (bytes == nullptr) {
        errno = EIO;
        return false;
    }
    return writeAll(bytes, left, to);
}

bool FileOutput::writeAll(const std::uint8_t* data, std::size_t size, std::int64_t at) {
    while (size > 0) {
        const ssize_t written = ::pwrite(descriptor_, data, size, at);
        if (written < 0 && errno == EINTR) {
            continue;
        }
        if (written <= 0) {
            if (written == 0) {
                errno = EIO;
            }
            return false;
        }
        data += written;
        at += written;
        size -= static_cast<std::size_t>(written);
    }
    return true;
}

std::int64_t FileOutput::seek(void* opaque, std::int64_t offset, int whence) {
    auto* self = static_cast<FileOutput*>(opaque);
    switch (whence & ~AVSEEK_FORCE) {
    case AVSEEK_SIZE:
        return self->end_;
    case SEEK_SET:
        self->position_ = offset;
        break;
    case SEEK_CUR:
        self->position_ += offset;
        break;
    case SEEK_END:
        self->position_ = self->end_ + offset;
        break;
    default:
        return AVERROR(EINVAL);
    }
    return self->position_;
}

} // namespace lumenvale::edit
