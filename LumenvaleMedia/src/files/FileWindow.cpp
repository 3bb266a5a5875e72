#include "files/FileWindow.h"

#include <algorithm>
#include <cerrno>
#include <string_view>
#include <unistd.h>

namespace lumenvale::files {
namespace {

constexpr int windowBufferBytes = 64 * 1024;

} // namespace

std::uint64_t bigEndian(const std::uint8_t* bytes, int count) {
    std::uint64_t value = 0;
    for (int index = 0; index < count; ++index) {
        value = (value << 8) | bytes[index];
    }
    return value;
}

std::optional<std::int64_t> wholeBoxesEnd(int fd, std::int64_t fileBytes) {
    std::int64_t position = 0;
    while (position < fileBytes) {
        std::uint8_t header[16] = {};
        const ssize_t read = ::pread(fd, header, sizeof header, position);
        if (read < 8) {
            return position > 0 ? std::optional(position) : std::nullopt;
        }
        const std::string_view type(reinterpret_cast<const char*>(header + 4), 4);
        if (position == 0 && type != "ftyp") {
            return std::nullopt; // not MPEG-4: the demuxer decides
        }
        std::uint64_t size = bigEndian(header, 4);
        if (size == 1) {
            size = read >= 16 ? bigEndian(header + 8, 8) : 0;
        } else if (size == 0) {
            size = static_cast<std::uint64_t>(fileBytes - position); // to the end
        }
        if (size < 8) {
            return position; // not a box: what follows is damage
        }
        if (size > static_cast<std::uint64_t>(fileBytes - position)) {
            return type == "mdat" ? std::nullopt : std::optional(position);
        }
        position += static_cast<std::int64_t>(size);
    }
    return std::nullopt;
}

FileWindow::FileWindow(int fd, std::int64_t length) : fd_(fd), length_(length) {
    auto* buffer = static_cast<std::uint8_t*>(av_malloc(windowBufferBytes));
    io_ = buffer == nullptr ? nullptr
                            : avio_alloc_context(buffer, windowBufferBytes, 0, this,
                                                 &FileWindow::read, nullptr, &FileWindow::seek);
    if (io_ == nullptr) {
        av_free(buffer);
        throw MediaError("Not enough memory to read the recording.");
    }
}

FileWindow::~FileWindow() {
    av_freep(&io_->buffer);
    avio_context_free(&io_);
}

int FileWindow::read(void* self, std::uint8_t* bytes, int size) {
    auto* window = static_cast<FileWindow*>(self);
    const std::int64_t left = window->length_ - window->position_;
    if (left <= 0) {
        return AVERROR_EOF;
    }
    const auto wanted = static_cast<std::size_t>(std::min<std::int64_t>(size, left));
    ssize_t read = 0;
    do {
        read = ::pread(window->fd_, bytes, wanted, window->position_);
    } while (read < 0 && errno == EINTR);
    if (read <= 0) {
        return read == 0 ? AVERROR_EOF : AVERROR(errno);
    }
    window->position_ += read;
    return static_cast<int>(read);
}

std::int64_t FileWindow::seek(void* self, std::int64_t offset, int whence) {
    auto* window = static_cast<FileWindow*>(self);
    switch (whence & ~AVSEEK_FORCE) {
    case AVSEEK_SIZE:
        return window->length_;
    case SEEK_SET:
        break;
    case SEEK_CUR:
        offset += window->position_;
        break;
    case SEEK_END:
        offset += window->length_;
        break;
    default:
        return AVERROR(EINVAL);
    }
    if (offset < 0) {
        return AVERROR(EINVAL);
    }
    window->position_ = offset;
    return offset;
}

} // namespace lumenvale::files
