// The Wayland capture's own parts that need no desktop: the pixel orders PipeWire
// hands over, the pointer a compositor describes beside its pictures, where the
// remembered choice of monitor is kept, which part of a
// monitor's picture an area takes, and displays without a compositor. The capture itself runs
// against a real session in tests/e2e/wayland_record_screen.sh.

#include "Harness.h"
#include "LumenvaleMedia/DisplaysWayland.h"
#include "LumenvaleMedia/MediaError.h"
#include "capture/portal/PipeWireStream.h"
#include "capture/portal/ScreenCastPortal.h"
#include "capture/portal/StreamPointer.h"
#include "capture/portal/VisiblePart.h"

#include <cstdlib>
#include <cstring>
#include <gtest/gtest.h>
#include <optional>
#include <spa/buffer/buffer.h>
#include <spa/buffer/meta.h>
#include <spa/param/video/raw.h>
#include <string>
#include <vector>

namespace lumenvale::portal {
namespace {

using testing::ScopedEnv;

TEST(PortalPixels, EveryAcceptedByteOrderBecomesBgraAndRowPaddingIsLeftOut) {
    // Two pixels a row, two rows, rows padded to 12 bytes.
    const std::vector<std::uint8_t> rgba = {10, 20, 30, 255, 40, 50, 60, 255, 99, 99, 99, 99,
                                            70, 80, 90, 255, 1,  2,  3,  255, 99, 99, 99, 99};
    std::vector<std::uint8_t> out(16, 0);
    convertToBgra(rgba.data(), 12, ByteOrder::rgba, {2, 2}, out.data());
    EXPECT_EQ(out, (std::vector<std::uint8_t>{30, 20, 10, 255, 60, 50, 40, 255, 90, 80, 70, 255, 3,
                                              2, 1, 255}));

    std::vector<std::uint8_t> copied(16, 0);
    convertToBgra(rgba.data(), 12, ByteOrder::bgra, {2, 2}, copied.data());
    EXPECT_EQ(copied, (std::vector<std::uint8_t>{10, 20, 30, 255, 40, 50, 60, 255, 70, 80, 90, 255,
                                                 1, 2, 3, 255}));
}

// A buffer carrying a pointer description, as a compositor fills it in: the hotspot at
// (x, y), and, unless `image` is empty, a 2x2 RGBA image (straight alpha).
struct DescribedPointer {
    std::vector<std::uint8_t> bytes;
    spa_meta meta{};
    spa_buffer buffer{};

    DescribedPointer(std::uint32_t id, std::int32_t x, std::int32_t y,
                     const std::vector<std::uint8_t>& image) {
        const std::size_t bitmapAt = sizeof(spa_meta_cursor);
        bytes.assign(bitmapAt + sizeof(spa_meta_bitmap) + image.size(), 0);
        spa_meta_cursor cursor{};
        cursor.id = id;
        cursor.position = {x, y};
        cursor.hotspot = {1, 1};
        cursor.bitmap_offset = image.empty() ? 0 : static_cast<std::uint32_t>(bitmapAt);
        std::memcpy(bytes.data(), &cursor, sizeof cursor);
        spa_meta_bitmap bitmap{};
        bitmap.format = SPA_VIDEO_FORMAT_RGBA;
        bitmap.size = {2, 2};
        bitmap.stride = 8;
        bitmap.offset = sizeof(spa_meta_bitmap);
        std::memcpy(bytes.data() + bitmapAt, &bitmap, sizeof bitmap);
        std::memcpy(bytes.data() + bitmapAt + sizeof bitmap, image.data(), image.size());
        meta = {SPA_META_Cursor, static_cast<std::uint32_t>(bytes.size()), bytes.data()};
        buffer.n_metas = 1;
        buffer.metas = &meta;
    }
};

TEST(PortalPointer, ReadFromItsDescriptionAndDrawnWithItsHotspotWhereItIs) {
    // Opaque red, half-transparent white, transparent, opaque blue.
    const std::vector<std::uint8_t> image = {255, 0, 0, 255, 255, 255, 255, 128,
                                             0,   0, 0, 0,   0,   0,   255, 255};
    StreamPointer pointer;
    readPointer(DescribedPointer(7, 3, 2, image).buffer, pointer);
    ASSERT_TRUE(pointer.visible);
    EXPECT_EQ(pointer.bounds(), (x11::PixelRect{2, 1, 2, 2}));
    EXPECT_EQ(pointer.imageSerial, 1);

    // Drawn on a grey picture whose top-left is the picture's pixel (2, 0), 2x2 big.
    std::vector<std::uint8_t> grey(2 * 2 * 4, 100);
    drawPointer(pointer, grey.data(), 8, {2, 2}, 2, 0);
    EXPECT_EQ(grey, (std::vector<std::uint8_t>{100, 100, 100, 100, 100, 100, 100, 100, //
                                               0, 0, 255, 100, 178, 178, 178, 100}));

    // A move alone keeps the image; an id of 0 hides the pointer.
    readPointer(DescribedPointer(7, 10, 10, {}).buffer, pointer);
    EXPECT_TRUE(pointer.visible);
    EXPECT_EQ(pointer.bounds(), (x11::PixelRect{9, 9, 2, 2}));
    EXPECT_EQ(pointer.imageSerial, 1);
    readPointer(DescribedPointer(0, 10, 10, {}).buffer, pointer);
    EXPECT_FALSE(pointer.visible);
    // A buffer that says nothing of the pointer changes nothing.
    const StreamPointer before = pointer;
    spa_buffer silent{};
    readPointer(silent, pointer);
    EXPECT_TRUE(pointer.sameAs(before));
}

TEST(PortalRestoreToken, KeptInTheStateFolderOrUnderHomeAndNowhereWithoutEither) {
    {
        const ScopedEnv state("XDG_STATE_HOME", "/var/state");
        const ScopedEnv home("HOME", "/home/ann");
        EXPECT_EQ(restoreTokenPath(SourceKind::monitor),
                  "/var/state/lumenvale/screencast-restore-token");
        // A chosen window is remembered apart: a monitor's token would bring back the monitor.
        EXPECT_EQ(restoreTokenPath(SourceKind::window),
                  "/var/state/lumenvale/screencast-window-restore-token");
    }
    {
        // A relative XDG_STATE_HOME is no folder: the default under HOME holds.
        const ScopedEnv state("XDG_STATE_HOME", "state");
        const ScopedEnv home("HOME", "/home/ann");
        EXPECT_EQ(restoreTokenPath(SourceKind::monitor),
                  "/home/ann/.local/state/lumenvale/screencast-restore-token");
    }
    {
        const ScopedEnv state("XDG_STATE_HOME", std::nullopt);
        const ScopedEnv home("HOME", std::nullopt);
        EXPECT_EQ(restoreTokenPath(SourceKind::window), std::nullopt);
    }
}

TEST(PortalDisplays, WithoutACompositorTheDisplayIsGone) {
    const ScopedEnv runtime("XDG_RUNTIME_DIR", "/nonexistent");
    const ScopedEnv display("WAYLAND_DISPLAY", "lumenvale-no-such-compositor");
    DisplaysWayland displays;
    const auto error = testing::thrown<MediaError>([&] { displays.screens(); });
    ASSERT_TRUE(error) << "listed the screens of no compositor";
    EXPECT_EQ(error->recError, RecError::displayGone);
    EXPECT_TRUE(displays.windows().empty());
}

TEST(PortalVisiblePart, AnAreaIsCutFromItsMonitorInThePicturesPixels) {
    ScreenCastGrant grant;
    grant.x = 1280;
    grant.y = 0;
    grant.width = 1280;
    grant.height = 720;
    const PixelSize picture{1280, 720};
    EXPECT_EQ(visiblePart(CaptureScreen{}, grant, picture), (x11::PixelRect{0, 0, 1280, 720}));
    EXPECT_EQ(visiblePart(CaptureArea{{1380, 10, 200, 100}}, grant, picture),
              (x11::PixelRect{100, 10, 200, 100}));
    // Across the monitor's left edge: only its part on this monitor.
    EXPECT_EQ(visiblePart(CaptureArea{{1200, 10, 200, 100}}, grant, picture),
              (x11::PixelRect{0, 10, 120, 100}));
    EXPECT_TRUE(visiblePart(CaptureArea{{0, 0, 200, 100}}, grant, picture).empty());
    // A monitor scaled by two sends twice the pixels of its place in the layout.
    EXPECT_EQ(visiblePart(CaptureArea{{1380.5, 10, 200, 100}}, grant, {2560, 1440}),
              (x11::PixelRect{201, 20, 400, 200}));
}

} // namespace
} // namespace lumenvale::portal
