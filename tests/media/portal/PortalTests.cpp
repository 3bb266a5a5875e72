// The Wayland capture's own parts that need no desktop: the pixel orders PipeWire
// hands over, where the remembered choice of monitor is kept, which part of a
// monitor's picture an area takes, and displays without a compositor. The capture itself runs
// against a real session in tests/e2e/wayland_record_screen.sh.

#include "Harness.h"
#include "LumenvaleMedia/DisplaysWayland.h"
#include "LumenvaleMedia/MediaError.h"
#include "capture/portal/PipeWireStream.h"
#include "capture/portal/ScreenCastPortal.h"
#include "capture/portal/VisiblePart.h"

#include <cstdlib>
#include <gtest/gtest.h>
#include <optional>
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
