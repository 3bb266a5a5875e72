#include "capture/portal/ScreenCastPortal.h"

#include <cstdlib>
#include <unistd.h>

namespace lumenvale::portal {

OwnedFd::~OwnedFd() {
    if (fd_ >= 0) {
        ::close(fd_);
    }
}

OwnedFd& OwnedFd::operator=(OwnedFd&& other) noexcept {
    if (this != &other) {
        if (fd_ >= 0) {
            ::close(fd_);
        }
        fd_ = other.release();
    }
    return *this;
}

int OwnedFd::release() {
    const int fd = fd_;
    fd_ = -1;
    return fd;
}

std::optional<std::filesystem::path> restoreTokenPath(SourceKind kind) {
    std::filesystem::path state;
    if (const char* xdgState = std::getenv("XDG_STATE_HOME"); xdgState && *xdgState == '/') {
        state = xdgState;
    } else if (const char* home = std::getenv("HOME"); home && *home == '/') {
        state = std::filesystem::path(home) / ".local" / "state";
    } else {
        return std::nullopt;
    }
    return state / "lumenvale" /
           (kind == SourceKind::window ? "screencast-window-restore-token"
                                       : "screencast-restore-token");
}

} // namespace lumenvale::portal
