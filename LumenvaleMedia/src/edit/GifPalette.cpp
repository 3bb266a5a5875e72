#include "edit/GifPalette.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <numeric>
#include <queue>

namespace lumenvale::edit {
namespace {

constexpr int weights[3] = {2, 4, 3};
constexpr int refinementRounds = 3;

std::uint8_t channelMean(std::uint64_t sum, std::uint32_t count) {
    return static_cast<std::uint8_t>((sum + count / 2) / count);
}

// A box of histogram cells, to be split along its widest channel.
struct Box {
    std::vector<const ColourHistogram::Cell*> cells;
    double error = 0; // weighted squared error around the box's mean, pixels counted
    int channel = 0;  // the channel with the largest weighted spread

    void measure() {
        double count = 0;
        double sums[3] = {};
        double squares[3] = {};
        for (const auto* cell : cells) {
            const Colour colour = cell->mean;
            const double n = cell->count;
            count += n;
            for (int c = 0; c < 3; ++c) {
                sums[c] += n * colour[static_cast<std::size_t>(c)];
                squares[c] +=
                    n * colour[static_cast<std::size_t>(c)] * colour[static_cast<std::size_t>(c)];
            }
        }
        error = 0;
        double widest = -1;
        for (int c = 0; c < 3; ++c) {
            const double spread = weights[c] * (squares[c] - sums[c] * sums[c] / count);
            error += spread;
            if (spread > widest) {
                widest = spread;
                channel = c;
            }
        }
        if (cells.size() < 2) {
            error = 0; // one cell: nothing left to split
        }
    }

    Colour mean() const {
        std::uint64_t count = 0;
        std::uint64_t sums[3] = {};
        for (const auto* cell : cells) {
            count += cell->count;
            sums[0] += cell->red;
            sums[1] += cell->green;
            sums[2] += cell->blue;
        }
        return {channelMean(sums[0], static_cast<std::uint32_t>(count)),
                channelMean(sums[1], static_cast<std::uint32_t>(count)),
                channelMean(sums[2], static_cast<std::uint32_t>(count))};
    }
};

std::pair<Box, Box> split(Box box) {
    const int channel = box.channel;
    std::sort(box.cells.begin(), box.cells.end(), [channel](const auto* a, const auto* b) {
        return a->mean[static_cast<std::size_t>(channel)] <
               b->mean[static_cast<std::size_t>(channel)];
    });
    std::uint64_t total = 0;
    for (const auto* cell : box.cells) {
        total += cell->count;
    }
    // The first cell past half of the pixels starts the second box.
    std::uint64_t running = 0;
    std::size_t at = 1;
    for (; at < box.cells.size() - 1; ++at) {
        running += box.cells[at - 1]->count;
        if (running * 2 >= total) {
            break;
        }
    }
    Box low;
    Box high;
    low.cells.assign(box.cells.begin(), box.cells.begin() + static_cast<std::ptrdiff_t>(at));
    high.cells.assign(box.cells.begin() + static_cast<std::ptrdiff_t>(at), box.cells.end());
    low.measure();
    high.measure();
    return {std::move(low), std::move(high)};
}

} // namespace

Colour ColourHistogram::Cell::average() const {
    return {channelMean(red, count), channelMean(green, count), channelMean(blue, count)};
}

namespace {

std::size_t cellOf(const std::uint8_t* pixel) {
    return static_cast<std::size_t>((pixel[0] >> 3) << 10 | (pixel[1] >> 3) << 5 | (pixel[2] >> 3));
}

void add(ColourHistogram::Cell& cell, const std::uint8_t* pixel) {
    ++cell.count;
    cell.red += pixel[0];
    cell.green += pixel[1];
    cell.blue += pixel[2];
}

} // namespace

void ColourHistogram::count(const std::uint8_t* rgb, int width, int height, int stride) {
    std::vector<Cell> grid(1 << 15);
    for (int y = 0; y < height; ++y) {
        const std::uint8_t* pixel = rgb + static_cast<std::ptrdiff_t>(y) * stride;
        for (int x = 0; x < width; ++x, pixel += 3) {
            add(grid[cellOf(pixel)], pixel);
        }
    }
    collect(grid, static_cast<std::uint64_t>(width) * static_cast<std::uint64_t>(height));
}

void ColourHistogram::countChanged(const std::uint8_t* rgb, int width, int height, int stride,
                                   const std::uint8_t* reference, int unchangedDistance) {
    std::vector<Cell> grid(1 << 15);
    std::uint64_t changed = 0;
    for (int y = 0; y < height; ++y) {
        const std::uint8_t* pixel = rgb + static_cast<std::ptrdiff_t>(y) * stride;
        const std::uint8_t* before = reference + static_cast<std::ptrdiff_t>(y) * width * 3;
        for (int x = 0; x < width; ++x, pixel += 3, before += 3) {
            if (colourDistance(pixel[0], pixel[1], pixel[2], before[0], before[1], before[2]) >
                unchangedDistance) {
                add(grid[cellOf(pixel)], pixel);
                ++changed;
            }
        }
    }
    collect(grid, changed);
}

void ColourHistogram::collect(const std::vector<Cell>& grid, std::uint64_t pixels) {
    used_.clear();
    for (const Cell& cell : grid) {
        if (cell.count > 0) {
            used_.push_back(cell);
            used_.back().mean = cell.average();
        }
    }
    pixels_ = pixels;
}

Palette::Palette(std::vector<Colour> colours)
    : colours_(std::move(colours)), byGreen_(colours_.size()), cache_(1 << 18, -1) {
    std::iota(byGreen_.begin(), byGreen_.end(), std::uint8_t{0});
    std::sort(byGreen_.begin(), byGreen_.end(),
              [this](std::uint8_t a, std::uint8_t b) { return colours_[a][1] < colours_[b][1]; });
}

std::uint8_t Palette::nearest(int r, int g, int b) {
    const auto key = static_cast<std::size_t>((r >> 2) << 12 | (g >> 2) << 6 | (b >> 2));
    std::int16_t& cached = cache_[key];
    if (cached < 0) {
        // The cell's centre stands for every colour in it.
        cached = search((r & ~3) + 2, (g & ~3) + 2, (b & ~3) + 2);
    }
    return static_cast<std::uint8_t>(cached);
}

std::uint8_t Palette::search(int r, int g, int b) const {
    // Walk outwards from the palette colours of the nearest green; a colour whose
    // green alone is farther than the best distance ends that direction.
    const auto start =
        static_cast<std::ptrdiff_t>(std::lower_bound(byGreen_.begin(), byGreen_.end(), g,
                                                     [this](std::uint8_t index, int green) {
                                                         return colours_[index][1] < green;
                                                     }) -
                                    byGreen_.begin());
    int best = std::numeric_limits<int>::max();
    std::uint8_t bestIndex = byGreen_.empty() ? 0 : byGreen_.front();
    const auto size = static_cast<std::ptrdiff_t>(byGreen_.size());
    for (std::ptrdiff_t up = start, down = start - 1; up < size || down >= 0;) {
        if (up < size) {
            const Colour& c = colours_[byGreen_[static_cast<std::size_t>(up)]];
            if (colourDistance(0, c[1], 0, 0, g, 0) >= best) {
                up = size;
            } else {
                const int distance = colourDistance(r, g, b, c[0], c[1], c[2]);
                if (distance < best) {
                    best = distance;
                    bestIndex = byGreen_[static_cast<std::size_t>(up)];
                }
                ++up;
            }
        }
        if (down >= 0) {
            const Colour& c = colours_[byGreen_[static_cast<std::size_t>(down)]];
            if (colourDistance(0, c[1], 0, 0, g, 0) >= best) {
                down = -1;
            } else {
                const int distance = colourDistance(r, g, b, c[0], c[1], c[2]);
                if (distance < best) {
                    best = distance;
                    bestIndex = byGreen_[static_cast<std::size_t>(down)];
                }
                --down;
            }
        }
    }
    return bestIndex;
}

double Palette::meanError(const ColourHistogram& histogram) {
    double total = 0;
    for (const auto& cell : histogram.cells()) {
        const Colour c = cell.mean;
        const Colour& p = colours_[nearest(c[0], c[1], c[2])];
        total +=
            static_cast<double>(cell.count) * colourDistance(c[0], c[1], c[2], p[0], p[1], p[2]);
    }
    return histogram.pixels() == 0 ? 0 : total / static_cast<double>(histogram.pixels());
}

std::vector<Colour> choosePalette(const ColourHistogram& histogram, int maxColours) {
    if (histogram.cells().empty()) {
        return {Colour{0, 0, 0}};
    }
    // Median cut: always split the box with the largest error.
    auto larger = [](const Box& a, const Box& b) {
        return a.error < b.error;
    };
    std::priority_queue<Box, std::vector<Box>, decltype(larger)> boxes(larger);
    Box all;
    for (const auto& cell : histogram.cells()) {
        all.cells.push_back(&cell);
    }
    all.measure();
    boxes.push(std::move(all));
    std::vector<Box> done;
    while (!boxes.empty() && static_cast<int>(boxes.size() + done.size()) < maxColours) {
        Box box = boxes.top();
        boxes.pop();
        if (box.error <= 0) {
            done.push_back(std::move(box));
            continue;
        }
        auto [low, high] = split(std::move(box));
        boxes.push(std::move(low));
        boxes.push(std::move(high));
    }
    std::vector<Colour> colours;
    for (; !boxes.empty(); boxes.pop()) {
        colours.push_back(boxes.top().mean());
    }
    for (const Box& box : done) {
        colours.push_back(box.mean());
    }

    // K-means: move every colour to the mean of the cells nearest to it.
    for (int round = 0; round < refinementRounds; ++round) {
        Palette palette(colours);
        std::vector<std::array<std::uint64_t, 4>> sums(colours.size(), {0, 0, 0, 0});
        for (const auto& cell : histogram.cells()) {
            const Colour c = cell.mean;
            auto& sum = sums[palette.nearest(c[0], c[1], c[2])];
            sum[0] += cell.red;
            sum[1] += cell.green;
            sum[2] += cell.blue;
            sum[3] += cell.count;
        }
        for (std::size_t i = 0; i < colours.size(); ++i) {
            if (sums[i][3] > 0) {
                const auto count = static_cast<std::uint32_t>(sums[i][3]);
                colours[i] = {channelMean(sums[i][0], count), channelMean(sums[i][1], count),
                              channelMean(sums[i][2], count)};
            }
        }
    }
    // Each colour once: FFmpeg's GIF encoder maps a repeated palette entry to entry 0
    // when it shrinks a frame's palette.
    std::sort(colours.begin(), colours.end());
    colours.erase(std::unique(colours.begin(), colours.end()), colours.end());
    return colours;
}

} // namespace lumenvale::edit
