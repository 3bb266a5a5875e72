#include "edit/SourceBytes.h"

#include "LumenvaleMedia/MediaError.h"

#include <algorithm>
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

namespace lumenvale::edit {
namespace {

void keepMapping(void*, std::uint8_t*) {} // the mapping belongs to SourceBytes

} // namespace

SourceBytes::SourceBytes(const std::filesystem::path& path) {
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
        void* mapped =
            ::mmap(nullptr, static_cast<std::size_t>(size_), PROT_READ, MAP_SHARED, descriptor_, 0);
        if (mapped == MAP_FAILED) {
            ::close(descriptor_);
            throw MediaError("The file " + name + " cannot be read.");
        }
        base_ = static_cast<std::uint8_t*>(mapped);
        // Packets are taken in file order.
        ::madvise(mapped, static_cast<std::size_t>(size_), MADV_SEQUENTIAL);
    }
}

SourceBytes::~SourceBytes() {
    if (base_ != nullptr) {
        ::munmap(base_, static_cast<std::size_t>(size_));
    }
    ::close(descriptor_);
}

AVBufferRef* SourceBytes::reference(std::int64_t position, int size) const {
    const std::uint8_t* bytes =
        size < 0 ? nullptr : bytesAt(position, static_cast<std::size_t>(size));
    if (bytes == nullptr) {
        return nullptr;
    }
    return av_buffer_create(const_cast<std::uint8_t*>(bytes), static_cast<std::size_t>(size),
                            keepMapping, nullptr, AV_BUFFER_FLAG_READONLY);
}

const std::uint8_t* SourceBytes::bytesAt(std::int64_t position, std::size_t size) const {
    if (base_ == nullptr || position < 0 ||
        static_cast<std::uint64_t>(position) + size > static_cast<std::uint64_t>(size_)) {
        return nullptr;
    }
    populate(position, position + static_cast<std::int64_t>(size));
    return base_ + position;
}

void SourceBytes::populate(std::int64_t position, std::int64_t end) const {
    if (end <= populatedEnd_) {
        return;
    }
    // From the bytes asked for (or the end of the last step) one step ahead; bytes
    // behind populatedEnd_ (another track's run) cost nothing. Kernels before 5.14
    // refuse the advice, and the pages then come in a fault at a time as before.
    const std::int64_t page = 4096;
    const std::int64_t from = std::max(populatedEnd_, position / page * page);
    const std::int64_t to = std::min(size_, std::max(end, from + populateBytes));
    ::madvise(base_ + from, static_cast<std::size_t>(to - from), MADV_POPULATE_READ);
    populatedEnd_ = to;
}

std::int64_t SourceBytes::offsetOf(const std::uint8_t* data, std::size_t size) const {
    const auto start = reinterpret_cast<std::uintptr_t>(base_);
    const auto at = reinterpret_cast<std::uintptr_t>(data);
    if (base_ == nullptr || at < start || at - start + size > static_cast<std::uint64_t>(size_)) {
        return -1;
    }
    return static_cast<std::int64_t>(at - start);
}

} // namespace lumenvale::edit
