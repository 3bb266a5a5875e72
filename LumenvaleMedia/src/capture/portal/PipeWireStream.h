#pragma once

#include "LumenvaleMedia/VideoSource.h"

// The PipeWire stream of one portal monitor or window: negotiates a packed 32-bit RGB format,
// and keeps the newest picture the compositor sent, as BGRA, for the capture thread
// to take. Internal to LumenvaleMedia.

#include "LumenvaleKit/PixelSize.h"
#include "capture/portal/ScreenCastPortal.h"
#include "capture/portal/StreamPointer.h"

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

struct pw_thread_loop;
struct pw_context;
struct pw_core;
struct pw_stream;

namespace lumenvale::portal {

// The newest picture: BGRA, rows packed (stride = width * 4).
struct Picture {
    std::vector<std::uint8_t> bgra;
    PixelSize size;
    // Counts the pictures received; 0 before the first.
    std::int64_t generation = 0;
    // The rows that changed since the reader last cleared them, from the damage the
    // compositor sends with each picture (unsorted, may overlap), or everything when a
    // picture came without it or its size changed.
    std::vector<RowSpan> damagedRows;
    bool wholeDamaged = true;
    // The pointer, where the compositor describes it beside the pictures (it may
    // change between pictures).
    StreamPointer pointer;
    void clearDamage() {
        damagedRows.clear();
        wholeDamaged = false;
    }
};

// Which byte order a negotiated format has in memory.
enum class ByteOrder { bgra, rgba };

// Converts `rows` rows of `width` pixels of a 32-bit format into packed BGRA.
void convertToBgra(const std::uint8_t* source, std::int64_t sourceStrideBytes, ByteOrder order,
                   PixelSize size, std::uint8_t* target);

class PipeWireStream {
  public:
    // Connects over `remote` (the portal's PipeWire connection, taken over) to `node`,
    // asking for about `fps` frames per second at about `size`. Throws MediaError
    // when PipeWire cannot be reached.
    PipeWireStream(OwnedFd remote, std::uint32_t node, int fps, PixelSize size);
    // Disconnects and stops PipeWire's thread.
    ~PipeWireStream();
    PipeWireStream(const PipeWireStream&) = delete;
    PipeWireStream& operator=(const PipeWireStream&) = delete;

    // Waits, for at most `limit`, until the stream runs (linked, with a format agreed).
    // Throws MediaError when it ended, agreed on no format Lumenvale reads, or did not
    // start in time.
    void waitUntilFlowing(std::chrono::milliseconds limit);
    // Waits, for at most `limit`, for the first picture; false when none came. A
    // compositor may send none while nothing on the screen changes.
    bool waitForPicture(std::chrono::milliseconds limit);
    // Runs `use` with the newest picture while the stream cannot replace it; `use`
    // clears the picture's damage once it has taken it.
    void withPicture(const std::function<void(Picture&)>& use);
    // True once the stream has ended for good (the monitor is gone, sharing stopped,
    // PipeWire went away).
    bool ended() const { return ended_.load(); }
    // Why it ended, as the user's sentence: PipeWire itself went away, or else the
    // shared monitor ("The display is gone.") or window ("The window closed.") did.
    std::string endSentence(SourceKind kind) const;
    // The pictures' size in pixels as agreed (once flowing; it may change later).
    PixelSize formatSize();

  private:
    struct Handles;
    friend struct StreamCallbacks;
    enum class Ending { streamGone, pipeWireGone, unreadableFormat };
    void end(Ending ending);

    std::unique_ptr<Handles> handles_;
    std::mutex mutex_;
    std::condition_variable changed_;
    Picture picture_;
    ByteOrder order_ = ByteOrder::bgra;
    PixelSize formatSize_;
    std::atomic<bool> ended_{false};
    std::atomic<bool> pipeWireGone_{false};
    bool flowing_ = false;
    bool unreadableFormat_ = false;
};

} // namespace lumenvale::portal
