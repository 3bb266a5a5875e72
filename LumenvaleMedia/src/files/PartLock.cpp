#include "LumenvaleMedia/PartLock.h"

#include "LumenvaleMedia/MediaError.h"
#include "ffmpeg/Handles.h"

#include <cerrno>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

namespace lumenvale {
namespace {

bool lockWithoutWaiting(int fd) {
    int locked = 0;
    do {
        locked = ::flock(fd, LOCK_EX | LOCK_NB);
    } while (locked != 0 && errno == EINTR);
    return locked == 0;
}

// Whether `path` still names the file open at `fd`: a file removed (or replaced)
// between the open and the lock is not the part any more.
bool namesFile(const std::filesystem::path& path, int fd) {
    struct stat opened {};
    struct stat named {};
    return ::fstat(fd, &opened) == 0 && ::stat(path.c_str(), &named) == 0 &&
           opened.st_dev == named.st_dev && opened.st_ino == named.st_ino;
}

} // namespace

PartLock::PartLock(const std::filesystem::path& path) {
    fd_ = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd_ < 0) {
        return;
    }
    if (!lockWithoutWaiting(fd_)) {
        state_ = State::heldElsewhere;
    } else if (namesFile(path, fd_)) {
        state_ = State::held;
        return;
    }
    ::close(fd_);
    fd_ = -1;
}

PartLock::PartLock(PartLock&& other) noexcept
    : fd_(std::exchange(other.fd_, -1)), state_(std::exchange(other.state_, State::unavailable)) {}

PartLock& PartLock::operator=(PartLock&& other) noexcept {
    if (this != &other) {
        if (fd_ >= 0) {
            ::close(fd_);
        }
        fd_ = std::exchange(other.fd_, -1);
        state_ = std::exchange(other.state_, State::unavailable);
    }
    return *this;
}

PartLock::~PartLock() {
    if (fd_ >= 0) {
        ::close(fd_); // the flock ends with the last descriptor of its open file description
    }
}

PartLock PartLock::create(const std::filesystem::path& path) {
    const std::filesystem::path hidden = path.parent_path() / ("." + path.filename().string());
    const auto failure = [&path](int error) {
        return MediaError("Couldn’t create the recording file “" + path.filename().string() +
                          "” in “" + path.parent_path().string() +
                          "”: " + ff::errorText(AVERROR(error)) + ".");
    };
    PartLock lock;
    lock.fd_ = ::open(hidden.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
    if (lock.fd_ < 0) {
        throw failure(errno);
    }
    // link() refuses an existing `path`; the hidden name goes once `path` holds the file.
    if (!lockWithoutWaiting(lock.fd_) || ::link(hidden.c_str(), path.c_str()) != 0) {
        const int error = errno;
        ::unlink(hidden.c_str());
        throw failure(error);
    }
    if (::unlink(hidden.c_str()) != 0) {
        const int error = errno;
        ::unlink(path.c_str());
        throw failure(error);
    }
    lock.state_ = State::held;
    return lock;
}

PartLock PartLock::share() const {
    PartLock copy;
    if (state_ == State::held) {
        copy.fd_ = ::fcntl(fd_, F_DUPFD_CLOEXEC, 0);
        copy.state_ = copy.fd_ >= 0 ? State::held : State::unavailable;
    }
    return copy;
}

} // namespace lumenvale
