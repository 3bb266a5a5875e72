#pragma once

#include <filesystem>

namespace lumenvale {

// The lock that marks a part file as belonging to a recording that is still alive
// (docs/recording-format.md, "Part files"): an exclusive flock on one open file
// description of the file. A recording holds the lock of each of its parts from
// before the file appears under its name until the saved movie exists and the parts
// are removed; recovery takes the same lock, without waiting, and touches only files
// whose lock it got.
//
// flock locks belong to the open file description, not to the process: a second
// PartLock(path) on a file this process already holds is refused like anyone
// else's. Holds made with share() are the same lock.
//
// Threads: one thread at a time per object; objects may move between threads.
class PartLock {
  public:
    enum class State {
        held,          // this object holds the lock
        heldElsewhere, // someone else holds it: the file's recording is alive
        unavailable,   // no such file, it cannot be opened, or it was removed meanwhile
    };

    // Holds nothing (State::unavailable).
    PartLock() = default;
    // Tries to lock the existing file `path` without waiting. Held only while `path`
    // still names the locked file (not when it was removed before the lock was taken).
    explicit PartLock(const std::filesystem::path& path);
    // Releases this hold; the lock ends with its last hold.
    ~PartLock();
    PartLock(const PartLock&) = delete;
    PartLock& operator=(const PartLock&) = delete;
    PartLock(PartLock&& other) noexcept;
    PartLock& operator=(PartLock&& other) noexcept;

    // Creates the empty file `path`, mode 0600, never over an existing file, and
    // returns it held and open for writing (descriptor()). The file is made under a
    // hidden name ("." + its name, which recovery ignores), locked, and only then
    // linked to `path`, so nobody ever sees `path` unlocked. Throws MediaError, and
    // leaves no file, when it cannot.
    static PartLock create(const std::filesystem::path& path);

    // Another hold on the same lock (a duplicate of the descriptor); unavailable when
    // this one holds nothing or the descriptor cannot be duplicated.
    PartLock share() const;

    State state() const { return state_; }
    // The descriptor the lock is held on; -1 unless held. Owned by this object.
    int descriptor() const { return fd_; }

  private:
    int fd_ = -1;
    State state_ = State::unavailable;
};

} // namespace lumenvale
