#include "edit/SourceBytes.h"

#include "LumenvaleMedia/MediaError.h"
#include "edit/SourceMovie.h"
#include "ffmpeg/Handles.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

namespace lumenvale::edit {
namespace {

void keepStandIns(void*, std::uint8_t*) {} // the reservation belongs to SourceBytes

MediaError unreadable(const std::filesystem::path& path, int error) {
    return MediaError("Couldn’t read the movie “" + path.filename().string() +
                      "”: " + std::strerror(error) + ".");
}

} // namespace

SourceBytes::SourceBytes(const std::filesystem::path& path) : path_(path) {
    const std::string name = "“" + path.filename().string() + "”";
    descriptor_ = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    struct stat status {};
    if (descriptor_ < 0 || ::fstat(descriptor_, &status) != 0) {
        if (descriptor_ >= 0) {
            ::close(descriptor_);
        }
        throw MediaError("The file " + name + " cannot be read.");
    }
    size_ = status.st_size;
    if (size_ > 0) {
        // Address space only: untouched pages cost nothing, read ones are the one
        // shared page of zeros.
        void* reserved = ::mmap(nullptr, static_cast<std::size_t>(size_), PROT_READ,
                                MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
        if (reserved == MAP_FAILED) {
            ::close(descriptor_);
            throw MediaError("Not enough memory to export " + name + ".");
        }
        standIns_ = static_cast<std::uint8_t*>(reserved);
    }
}

SourceBytes::~SourceBytes() {
    if (standIns_ != nullptr) {
        ::munmap(standIns_, static_cast<std::size_t>(size_));
    }
    ::close(descriptor_);
}

AVBufferRef* SourceBytes::reference(std::int64_t position, int size) const {
    if (standIns_ == nullptr || position < 0 || size < 0 ||
        static_cast<std::uint64_t>(position) + static_cast<std::uint64_t>(size) >
            static_cast<std::uint64_t>(size_)) {
        return nullptr;
    }
    return av_buffer_create(standIns_ + position, static_cast<std::size_t>(size), keepStandIns,
                            nullptr, AV_BUFFER_FLAG_READONLY);
}

std::int64_t SourceBytes::offsetOf(const std::uint8_t* data, std::size_t size) const {
    const auto start = reinterpret_cast<std::uintptr_t>(standIns_);
    const auto at = reinterpret_cast<std::uintptr_t>(data);
    if (standIns_ == nullptr || at < start ||
        at - start + size > static_cast<std::uint64_t>(size_)) {
        return -1;
    }
    return static_cast<std::int64_t>(at - start);
}

bool SourceBytes::read(std::int64_t position, std::uint8_t* into, std::size_t size) const {
    while (size > 0) {
        const ssize_t got = ::pread(descriptor_, into, size, position);
        if (got < 0 && errno == EINTR) {
            continue;
        }
        if (got <= 0) {
            if (got == 0) {
                errno = ENODATA; // the file ends before these bytes
            }
            return false;
        }
        into += got;
        position += got;
        size -= static_cast<std::size_t>(got);
    }
    return true;
}

void SourceBytes::load(AVPacket& packet) const {
    const auto size = static_cast<std::size_t>(std::max(0, packet.size));
    const std::int64_t position = offsetOf(packet.data, size);
    if (position < 0) {
        return;
    }
    ff::Packet real = ff::makePacket();
    ff::check(av_new_packet(real.get(), packet.size), "Not enough memory to read the movie");
    if (!read(position, real->data, size)) {
        throw errno == ENODATA ? changedWhileExporting(path_) : unreadable(path_, errno);
    }
    ff::check(av_packet_copy_props(real.get(), &packet), "Not enough memory to read the movie");
    av_packet_unref(&packet);
    av_packet_move_ref(&packet, real.get());
}

} // namespace lumenvale::edit
