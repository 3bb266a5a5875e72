#pragma once

// Choosing the colours of a GIF frame: a histogram of the picture, a palette of up to
// 255 colours made by median cut and refined by k-means, and a fast search for the
// palette colour nearest to any colour. Distances weigh red, green and blue 2 : 4 : 3,
// roughly as the eye does. Internal to the edit area; used by one thread.

#include <array>
#include <cstdint>
#include <vector>

namespace lumenvale::edit {

using Colour = std::array<std::uint8_t, 3>; // red, green, blue

// Weighted squared distance of two colours given as integers.
inline int colourDistance(int r1, int g1, int b1, int r2, int g2, int b2) {
    const int dr = r1 - r2;
    const int dg = g1 - g2;
    const int db = b1 - b2;
    return 2 * dr * dr + 4 * dg * dg + 3 * db * db;
}

// The colours of a picture, counted in cells of 5 bits per channel; each cell keeps
// the exact mean of the colours that fell into it.
class ColourHistogram {
  public:
    struct Cell {
        std::uint32_t count = 0;
        std::uint64_t red = 0;
        std::uint64_t green = 0;
        std::uint64_t blue = 0;
        Colour mean{}; // set once counting is done
        Colour average() const;
    };

    // `rgb` is packed 8-bit RGB, `stride` bytes per row.
    void count(const std::uint8_t* rgb, int width, int height, int stride);
    // Counts only the pixels whose colour lies farther than `unchangedDistance` from
    // the matching colour in `reference` (packed RGB, width x 3 bytes per row).
    void countChanged(const std::uint8_t* rgb, int width, int height, int stride,
                      const std::uint8_t* reference, int unchangedDistance);
    // The cells that hold at least one pixel.
    const std::vector<Cell>& cells() const { return used_; }
    std::uint64_t pixels() const { return pixels_; }

  private:
    void collect(const std::vector<Cell>& grid, std::uint64_t pixels);

    std::vector<Cell> used_;
    std::uint64_t pixels_ = 0;
};

// A palette with a fast nearest-colour search (results are cached per cell of 6
// bits per channel).
class Palette {
  public:
    explicit Palette(std::vector<Colour> colours);

    const std::vector<Colour>& colours() const { return colours_; }
    // The index of the palette colour nearest to (r, g, b), each 0 ... 255.
    std::uint8_t nearest(int r, int g, int b);
    // Mean weighted squared distance of the histogram's colours to their nearest
    // palette colours.
    double meanError(const ColourHistogram& histogram);

  private:
    std::uint8_t search(int r, int g, int b) const;

    std::vector<Colour> colours_;
    std::vector<std::uint8_t> byGreen_; // palette indices sorted by green
    std::vector<std::int16_t> cache_;   // per 6-bit cell: nearest index, or -1
};

// Up to `maxColours` colours that represent the histogram well.
std::vector<Colour> choosePalette(const ColourHistogram& histogram, int maxColours);

} // namespace lumenvale::edit
