#include "files/PartLock.h"

#include <cerrno>
#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>
#include <utility>

namespace lumenvale::files {

PartLock::PartLock(const std::filesystem::path& path) {
    fd_ = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd_ < 0) {
        return;
    }
    int locked = 0;
    do {
        locked = ::flock(fd_, LOCK_EX | LOCK_NB);
    } while (locked != 0 && errno == EINTR);
    state_ = locked == 0 ? State::held : State::heldElsewhere;
    if (state_ != State::held) {
        ::close(fd_);
        fd_ = -1;
    }
}

PartLock::PartLock(PartLock&& other) noexcept
    : fd_(std::exchange(other.fd_, -1)), state_(other.state_) {}

PartLock::~PartLock() {
    if (fd_ >= 0) {
        ::close(fd_); // releases the flock
    }
}

} // namespace lumenvale::files
