#include "capture/ChangedRows.h"

#include <algorithm>

namespace lumenvale::x11 {

ChangedRows::ChangedRows(std::int64_t height)
    : height_(std::max<std::int64_t>(0, height)),
      pairs_(static_cast<std::size_t>((height_ + 1) / 2), 0) {}

void ChangedRows::mark(std::int64_t top, std::int64_t bottom) {
    top = std::max<std::int64_t>(0, top);
    bottom = std::min(height_, bottom);
    if (bottom <= top) {
        return;
    }
    std::fill(pairs_.begin() + top / 2, pairs_.begin() + (bottom + 1) / 2, std::uint8_t{1});
    marked_ = true;
}

const std::vector<RowSpan>& ChangedRows::spans() {
    spans_.clear();
    if (whole_) {
        spans_.push_back({0, height_});
        return spans_;
    }
    const auto pairs = static_cast<std::int64_t>(pairs_.size());
    for (std::int64_t pair = 0; pair < pairs;) {
        if (pairs_[static_cast<std::size_t>(pair)] == 0) {
            ++pair;
            continue;
        }
        const std::int64_t first = pair;
        while (pair < pairs && pairs_[static_cast<std::size_t>(pair)] != 0) {
            ++pair;
        }
        spans_.push_back({first * 2, std::min(height_, pair * 2)});
    }
    return spans_;
}

void ChangedRows::clear() {
    if (marked_) {
        std::fill(pairs_.begin(), pairs_.end(), std::uint8_t{0});
    }
    whole_ = false;
    marked_ = false;
}

} // namespace lumenvale::x11
