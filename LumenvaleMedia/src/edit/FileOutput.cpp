#include "edit/FileOutput.h"

#include "LumenvaleMedia/MediaError.h"
#include "edit/SourceBytes.h"
#include "edit/SourceMovie.h"
#include "ffmpeg/Handles.h"

extern "C" {
#include <libavutil/mem.h>
}

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <unistd.h>

namespace lumenvale::edit {
namespace {

// Small writes (box headers) gather here; packet bytes bypass it.
constexpr int headerBufferBytes = 64 * 1024;

// Queued copies are done once they reach this size, so the file grows as the export's
// progress says and a cancellation is not kept waiting.
constexpr std::size_t copyChunkBytes = 8 * 1024 * 1024;

// Copies refused by the file systems involved, which reading and writing can do.
bool copyRefused(int error) {
    return error == EXDEV || error == EINVAL || error == ENOSYS || error == EOPNOTSUPP ||
           error == EPERM;
}

std::filesystem::path folderOf(const std::filesystem::path& destination) {
    return destination.has_parent_path() ? destination.parent_path() : std::filesystem::path(".");
}

} // namespace

FileOutput::FileOutput(const EditRenderer::Destination& destination,
                       const std::atomic<bool>* cancel)
    : destination_(destination), cancel_(cancel) {
    const std::filesystem::path& path = destination_.path;
    const std::filesystem::path folder = folderOf(path);
    const std::string stem = path.stem().string();
    std::error_code ignored;
    if (!destination_.numberingBase && std::filesystem::symlink_status(path, ignored).type() !=
                                           std::filesystem::file_type::not_found) {
        throw files::HiddenFile::nameTaken(path);
    }
    files::HiddenFile::removeStale(folder, stem);
    try {
        file_ = std::make_unique<files::HiddenFile>(folder, stem);
    } catch (const files::HiddenFile::CreateFailed& failure) {
        throw MediaError("Couldn’t write “" + path.filename().string() + "” in “" +
                         folder.string() + "”: " + std::strerror(failure.error) + ".");
    }
    descriptor_ = file_->descriptor();
    auto* buffer = static_cast<unsigned char*>(av_malloc(headerBufferBytes));
    context_ = buffer == nullptr ? nullptr
                                 : avio_alloc_context(buffer, headerBufferBytes, 1, this, nullptr,
                                                      &FileOutput::write, &FileOutput::seek);
    if (context_ == nullptr) {
        av_free(buffer);
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
}

void FileOutput::finish() {
    avio_flush(context_);
    flushCopy();
    if (failure_) {
        throw MediaError(*failure_);
    }
    ff::check(context_->error, "Couldn’t write the movie");
}

std::filesystem::path FileOutput::publish() {
    if (destination_.numberingBase) {
        std::string ext = destination_.path.extension().string();
        if (!ext.empty()) {
            ext.erase(0, 1);
        }
        return file_->publish(*destination_.numberingBase, ext, files::Durability::cached,
                              destination_.path);
    }
    file_->publishAs(destination_.path, files::Durability::cached);
    return destination_.path;
}

bool FileOutput::fail(std::string sentence) {
    if (!failure_) {
        failure_ = std::move(sentence);
    }
    return false;
}

bool FileOutput::goOn() {
    if (cancel_ != nullptr && cancel_->load(std::memory_order_relaxed)) {
        return fail(exportCancelled);
    }
    return !failure_;
}

bool FileOutput::failWriting(int error) {
    return fail(files::writeFailure(file_->folder(), error));
}

int FileOutput::write(void* opaque, std::uint8_t* data, int size) {
    auto* self = static_cast<FileOutput*>(opaque);
    const auto bytes = static_cast<std::size_t>(size);
    const std::int64_t from = self->source_ != nullptr ? self->source_->offsetOf(data, bytes) : -1;
    const bool done =
        self->goOn() &&
        (from >= 0 ? self->queueCopy(from, bytes)
                   : self->flushCopy() && self->writeAll(data, bytes, self->position_));
    if (!done) {
        return AVERROR(EIO);
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
    if (failure_) {
        return false;
    }
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
        if (copied > 0) {
            left -= static_cast<std::size_t>(copied);
        } else if (copied == 0 || copyRefused(errno)) {
            // The source ended early (reading says so), or these file systems do not
            // copy for us: read and write instead.
            kernelCopies_ = false;
        } else if (errno != EINTR) {
            return failWriting(errno);
        }
    }
    return left == 0 || copyByReading(from, to, left);
}

bool FileOutput::copyByReading(std::int64_t from, std::int64_t to, std::size_t size) {
    bounce_.resize(std::min(size, copyChunkBytes));
    while (size > 0) {
        const std::size_t chunk = std::min(size, bounce_.size());
        if (!source_->read(from, bounce_.data(), chunk)) {
            return fail(errno == ENODATA
                            ? changedWhileExporting(source_->path()).what()
                            : "Couldn’t read the movie “" + source_->path().filename().string() +
                                  "”: " + std::strerror(errno) + ".");
        }
        if (!writeAll(bounce_.data(), chunk, to)) {
            return false;
        }
        from += static_cast<std::int64_t>(chunk);
        to += static_cast<std::int64_t>(chunk);
        size -= chunk;
    }
    return true;
}

bool FileOutput::writeAll(const std::uint8_t* data, std::size_t size, std::int64_t at) {
    while (size > 0) {
        const ssize_t written = ::pwrite(descriptor_, data, size, at);
        if (written < 0 && errno == EINTR) {
            continue;
        }
        if (written <= 0) {
            return failWriting(written == 0 ? EIO : errno);
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

// MARK: reading back

namespace {

// Where a read-back stands in the file.
struct ReadBack {
    FileOutput* file = nullptr;
    std::int64_t position = 0;
};

} // namespace

void FileOutput::serveReadsTo(AVFormatContext* muxer) {
    muxer->opaque = this;
    muxer->io_open = &FileOutput::openReadBack;
    muxer->io_close2 = &FileOutput::closeReadBack;
}

int FileOutput::openReadBack(AVFormatContext* muxer, AVIOContext** reader, const char* /*url*/,
                             int flags, AVDictionary** /*options*/) {
    auto* self = static_cast<FileOutput*>(muxer->opaque);
    // The muxer's own output is the only file served, and only for reading; what is
    // queued to be copied must be in the file before it is read.
    if ((flags & AVIO_FLAG_WRITE) != 0) {
        return AVERROR(EPERM);
    }
    if (!self->flushCopy()) {
        return AVERROR(EIO);
    }
    auto* buffer = static_cast<unsigned char*>(av_malloc(headerBufferBytes));
    auto* state = new ReadBack{self, 0};
    *reader = buffer == nullptr
                  ? nullptr
                  : avio_alloc_context(buffer, headerBufferBytes, 0, state, &FileOutput::readBack,
                                       nullptr, &FileOutput::seekReadBack);
    if (*reader == nullptr) {
        av_free(buffer);
        delete state;
        return AVERROR(ENOMEM);
    }
    return 0;
}

int FileOutput::closeReadBack(AVFormatContext* /*muxer*/, AVIOContext* reader) {
    delete static_cast<ReadBack*>(reader->opaque);
    av_freep(&reader->buffer);
    avio_context_free(&reader);
    return 0;
}

int FileOutput::readBack(void* opaque, std::uint8_t* data, int size) {
    auto* state = static_cast<ReadBack*>(opaque);
    FileOutput& file = *state->file;
    if (!file.goOn()) {
        return AVERROR_EXIT;
    }
    ssize_t read = -1;
    do {
        read = ::pread(file.descriptor_, data, static_cast<std::size_t>(size), state->position);
    } while (read < 0 && errno == EINTR);
    if (read < 0) {
        file.failWriting(errno);
        return AVERROR(EIO);
    }
    if (read == 0) {
        return AVERROR_EOF;
    }
    state->position += read;
    return static_cast<int>(read);
}

std::int64_t FileOutput::seekReadBack(void* opaque, std::int64_t offset, int whence) {
    auto* state = static_cast<ReadBack*>(opaque);
    switch (whence & ~AVSEEK_FORCE) {
    case AVSEEK_SIZE:
        return state->file->end_;
    case SEEK_SET:
        state->position = offset;
        break;
    case SEEK_CUR:
        state->position += offset;
        break;
    case SEEK_END:
        state->position = state->file->end_ + offset;
        break;
    default:
        return AVERROR(EINVAL);
    }
    return state->position;
}

} // namespace lumenvale::edit
