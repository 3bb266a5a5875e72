#pragma once

// The desktop portal's ScreenCast conversation: a session, the choice of one monitor,
// and the PipeWire connection that carries its picture. Internal to LumenvaleMedia;
// CapturePortal is its public face.

#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>

namespace lumenvale::portal {

// How the compositor is asked to show the pointer.
enum class PointerMode { drawn, hidden };

// What the user is asked to share.
enum class SourceKind { monitor, window };

// A file descriptor this process owns; closed on destruction.
class OwnedFd {
  public:
    OwnedFd() = default;
    explicit OwnedFd(int fd) : fd_(fd) {}
    ~OwnedFd();
    OwnedFd(OwnedFd&& other) noexcept : fd_(other.release()) {}
    OwnedFd& operator=(OwnedFd&& other) noexcept;
    OwnedFd(const OwnedFd&) = delete;
    OwnedFd& operator=(const OwnedFd&) = delete;

    int get() const { return fd_; }
    int release();

  private:
    int fd_ = -1;
};

// What the portal granted: a PipeWire connection holding one monitor's or window's
// stream.
struct ScreenCastGrant {
    OwnedFd pipeWire;
    std::uint32_t node = 0;
    // The monitor's place and size in the compositor's layout (a window's size), when
    // the portal says.
    std::optional<std::int64_t> x;
    std::optional<std::int64_t> y;
    std::optional<std::int64_t> width;
    std::optional<std::int64_t> height;
    // The pointer is described beside the pictures, for Lumenvale to draw (the
    // compositor cannot draw it in).
    bool pointerDescribed = false;
};

// Where the restore token of a choice of `kind` is kept:
// $XDG_STATE_HOME/lumenvale/screencast-restore-token (a monitor) or
// screencast-window-restore-token, ~/.local/state when XDG_STATE_HOME is unset.
// Absent without a home.
std::optional<std::filesystem::path> restoreTokenPath(SourceKind kind);

// One portal session, closed when destroyed. Any one thread at a time; open() waits
// for the portal's answers on a thread of its own.
class ScreenCastPortal {
  public:
    // `tokenFile`: where the choice is remembered (nothing: not at all).
    explicit ScreenCastPortal(std::optional<std::filesystem::path> tokenFile);
    ~ScreenCastPortal();
    ScreenCastPortal(const ScreenCastPortal&) = delete;
    ScreenCastPortal& operator=(const ScreenCastPortal&) = delete;

    // Creates the session, has a monitor or a window chosen (without asking when the
    // remembered choice still holds; one the desktop refuses is dropped and the user
    // is asked again, but a dialog the user cancelled is not shown again), starts it
    // and opens its PipeWire connection. Throws MediaError with the user's sentence.
    // Call once.
    ScreenCastGrant open(SourceKind kind, PointerMode pointer);

  private:
    class Conversation;
    ScreenCastGrant openHere(SourceKind kind, PointerMode pointer);
    std::optional<std::filesystem::path> tokenFile_;
    std::unique_ptr<Conversation> conversation_;
};

} // namespace lumenvale::portal
