#pragma once

// The rows of a movie frame that changed since the frame before, gathered from the
// damage the display reports and from what Lumenvale draws itself (pointer, click
// rings), and handed over as sorted spans. Rows are kept in pairs, as the encoder's
// 4:2:0 chroma pairs them: a span never splits a pair. Internal to LumenvaleMedia.

#include "LumenvaleMedia/VideoSource.h"

#include <cstdint>
#include <vector>

namespace lumenvale::x11 {

class ChangedRows {
  public:
    // For frames `height` rows high; everything counts as changed at first.
    explicit ChangedRows(std::int64_t height);

    // Rows [top, bottom) changed; the part outside the frame is ignored.
    void mark(std::int64_t top, std::int64_t bottom);
    // Anything may have changed.
    void markWhole() { whole_ = true; }

    bool whole() const { return whole_; }
    bool any() const { return whole_ || marked_; }

    // What the frame handed over now says about itself; the spans stay valid until
    // the next call to clear().
    FrameChange change() const { return whole_ ? FrameChange::whole : FrameChange::rows; }
    const std::vector<RowSpan>& spans();
    // Starts the next frame: nothing changed yet.
    void clear();

  private:
    std::int64_t height_;
    std::vector<std::uint8_t> pairs_; // 1 where the pair of rows changed
    std::vector<RowSpan> spans_;
    bool whole_ = true;
    bool marked_ = false;
};

} // namespace lumenvale::x11
