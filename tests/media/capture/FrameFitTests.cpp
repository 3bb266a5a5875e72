// Fitting a target's picture into the fixed movie size, the drawing helpers, and
// the small decoders the capture relies on.

#include "capture/ChangedRows.h"
#include "capture/ClickRings.h"
#include "capture/FrameFit.h"
#include "capture/PixelRect.h"
#include "capture/PointerOverlay.h"
#include "capture/XProperties.h"

#include <cmath>
#include <gtest/gtest.h>
#include <vector>

namespace lumenvale::x11 {
namespace {

TEST(FrameFit, PlansByHowTheSourceComparesToTheMovie) {
    struct Case {
        PixelSize source;
        PixelSize movie;
        FitPlan plan;
    } cases[] = {
        // Same size: handed over as it is.
        {{1920, 1080}, {1920, 1080}, {FitMode::direct, {1920, 1080}, {0, 0, 1920, 1080}}},
        // An odd side made even for the movie: the extra column and row left out.
        {{801, 601}, {800, 600}, {FitMode::direct, {800, 600}, {0, 0, 800, 600}}},
        // A window one pixel smaller than the movie: not scaled, padded.
        {{799, 600}, {800, 600}, {FitMode::pad, {799, 600}, {0, 0, 799, 600}}},
        {{801, 599}, {800, 600}, {FitMode::pad, {800, 599}, {0, 0, 800, 599}}},
        // A 5K screen into the H.264 limit: scaled down, same shape.
        {{5120, 2880}, {4096, 2304}, {FitMode::scale, {5120, 2880}, {0, 0, 4096, 2304}}},
        // A window that grew wider: scaled to fit, bars above and below.
        {{1600, 600}, {800, 600}, {FitMode::scale, {1600, 600}, {0, 150, 800, 300}}},
        // A window that shrank: enlarged to fit, bars left and right.
        {{400, 600}, {800, 600}, {FitMode::scale, {400, 600}, {200, 0, 400, 600}}},
        // Very thin: never below one pixel.
        {{10000, 1}, {800, 600}, {FitMode::scale, {10000, 1}, {0, 299, 800, 1}}},
    };
    for (const Case& c : cases) {
        EXPECT_EQ(planFit(c.source, c.movie), c.plan)
            << c.source.width << "x" << c.source.height << " into " << c.movie.width << "x"
            << c.movie.height;
    }
}

TEST(FrameFit, CanvasScalesIntoPlaceAndKeepsTheBarsBlack) {
    const PixelSize movie{8, 4};
    std::vector<std::uint8_t> white(4 * 2 * 4, 0xff); // a 4 x 2 white picture
    const SourceImage image{white.data(), 16, {4, 2}, 0, 0};
    MovieCanvas canvas(movie);
    EXPECT_EQ(canvas.view().bgra[0], 0) << "black before anything was painted";

    const FitPlan tall = planFit({4, 4}, movie); // square into 8 x 4: bars left and right
    std::vector<std::uint8_t> square(4 * 4 * 4, 0xff);
    canvas.paint({square.data(), 16, {4, 4}, 0, 0}, tall);
    SourceImage view = canvas.view();
    auto blue = [&](int x, int y) {
        return view.bgra[(y * 8 + x) * 4];
    };
    EXPECT_EQ(blue(0, 0), 0);
    EXPECT_EQ(blue(1, 3), 0);
    EXPECT_EQ(blue(2, 0), 0xff);
    EXPECT_EQ(blue(5, 3), 0xff);
    EXPECT_EQ(blue(6, 0), 0);

    // A new placement clears what the old one left behind.
    canvas.paint(image, planFit({4, 2}, movie));
    view = canvas.view();
    EXPECT_GT(blue(0, 0), 0xf0) << "a 2:1 picture fills the 2:1 movie";
    EXPECT_GT(blue(7, 3), 0xf0);
}

TEST(ChangedRows, MarksBecomeSortedSpansOfWholeRowPairsInsideTheFrame) {
    ChangedRows rows(101); // an odd height: the last pair is one row
    EXPECT_EQ(rows.change(), FrameChange::whole) << "everything, before any frame";
    EXPECT_EQ(rows.spans(), (std::vector<RowSpan>{{0, 101}}));
    rows.clear();
    EXPECT_FALSE(rows.any());
    EXPECT_EQ(rows.change(), FrameChange::rows);
    EXPECT_TRUE(rows.spans().empty());

    rows.mark(41, 44);  // odd start: widened to its pair
    rows.mark(10, 11);  // one row: its pair
    rows.mark(44, 47);  // touches the first: merged
    rows.mark(99, 300); // past the bottom: cut off
    rows.mark(-5, 0);   // above the top: nothing
    rows.mark(60, 60);  // empty: nothing
    EXPECT_TRUE(rows.any());
    EXPECT_EQ(rows.spans(), (std::vector<RowSpan>{{10, 12}, {40, 48}, {98, 101}}));

    rows.markWhole();
    EXPECT_EQ(rows.spans(), (std::vector<RowSpan>{{0, 101}}));
    rows.clear();
    rows.mark(2, 3);
    EXPECT_EQ(rows.spans(), (std::vector<RowSpan>{{2, 4}})) << "a new frame starts empty";
}

TEST(Overlays, PremultipliedBlendAndRingStayInsideTheImage) {
    std::uint8_t pixel[4] = {100, 100, 100, 0};
    blendPremultiplied(pixel, 0x00000000); // transparent: untouched
    EXPECT_EQ(pixel[0], 100);
    blendPremultiplied(pixel, 0xff102030); // opaque: replaced (B=0x30, G=0x20, R=0x10)
    EXPECT_EQ(pixel[0], 0x30);
    EXPECT_EQ(pixel[1], 0x20);
    EXPECT_EQ(pixel[2], 0x10);
    blendPremultiplied(pixel, 0x80000000); // half-transparent black: halves
    EXPECT_NEAR(pixel[0], 0x30 / 2, 1);

    // A ring near a corner must clip, and colour pixels at its radius only.
    std::vector<std::uint8_t> grey(40 * 30 * 4, 0x40);
    const SourceImage image{grey.data(), 40 * 4, {40, 30}, 0, 0};
    drawRing(image, 2.5, 2.5, 10, 1);
    auto red = [&](int x, int y) {
        return grey[static_cast<std::size_t>((y * 40 + x) * 4 + 2)];
    };
    EXPECT_GT(red(12, 2), 0xc0) << "on the ring";
    EXPECT_EQ(red(2, 2), 0x40) << "the centre stays";
    EXPECT_EQ(red(39, 29), 0x40) << "far away stays";
}

TEST(XProperties, DesktopScaleFromXftDpiAndTheEnvironment) {
    struct Case {
        std::string resources;
        std::optional<double> environment;
        double scale;
    } cases[] = {
        {"", std::nullopt, 1},
        {"Xft.antialias:\t1\nXft.dpi:\t192\nXft.hinting:\t1\n", std::nullopt, 2},
        {"Xft.dpi: 120", std::nullopt, 1.25},
        {"Xft.dpi:\tnonsense\n", std::nullopt, 1},
        {"Xft.dpi:\t0\n", std::nullopt, 1},
        {"Xft.dpi:\t96\n", 1.5, 1.5},
        {"Xft.dpi:\t144\n", 2, 3},
        {"", -2, 1},
    };
    for (const Case& c : cases) {
        EXPECT_DOUBLE_EQ(desktopScale(c.resources, c.environment), c.scale) << c.resources;
    }
}

TEST(PixelRect, AreasRoundOutwardToWholePixels) {
    EXPECT_EQ(enclosingPixels({10, 20, 30, 40}), (PixelRect{10, 20, 30, 40}));
    EXPECT_EQ(enclosingPixels({10.5, 20.2, 30, 40}), (PixelRect{10, 20, 31, 41}));
    EXPECT_EQ(enclosingPixels({40, 60, -30, -40}), (PixelRect{10, 20, 30, 40}));
    EXPECT_TRUE(enclosingPixels({std::nan(""), 0, 10, 10}).empty());
    EXPECT_EQ(intersection({0, 0, 100, 100}, {50, -10, 100, 30}), (PixelRect{50, 0, 50, 20}));
    EXPECT_TRUE(intersection({0, 0, 10, 10}, {10, 0, 5, 5}).empty());
}

} // namespace
} // namespace lumenvale::x11
