#pragma once

// The lock a part writer holds on the part it is writing: an exclusive flock on the
// file. Recovery takes the same lock, without waiting, to learn that nobody writes a
// part and to keep a second recovery away while it saves. Internal.

#include <filesystem>

namespace lumenvale::files {

class PartLock {
  public:
    enum class State { held, heldElsewhere, unopenable };

    // Tries to lock `path` exclusively without waiting.
    explicit PartLock(const std::filesystem::path& path);
    // Releases the lock.
    ~PartLock();
    PartLock(const PartLock&) = delete;
    PartLock& operator=(const PartLock&) = delete;
    PartLock(PartLock&& other) noexcept;
    PartLock& operator=(PartLock&&) = delete;

    State state() const { return state_; }

  private:
    int fd_ = -1;
    State state_ = State::unopenable;
};

} // namespace lumenvale::files
