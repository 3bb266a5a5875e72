// The portal capture's PipeWire side against a real PipeWire: a private daemon with
// its session manager, and GStreamer providing a solid-colour video source in RGBx,
// the byte order that has to be turned around; a source that hands its pictures over
// as a compositor does, in linear DMA-BUF or memfd, describing the pointer. What the desktop portal
// adds (the choice of monitor, the restricted connection) runs in
// tests/e2e/wayland_record_screen.sh.

#include "CompositorSource.h"
#include "Harness.h"
#include "LumenvaleMedia/MediaError.h"
#include "Probe.h"
#include "capture/portal/PipeWireStream.h"

#include <cstdlib>
#include <gtest/gtest.h>
#include <optional>
#include <sys/socket.h>
#include <sys/un.h>

namespace lumenvale::portal {
namespace {

using testing::ChildProcess;
using testing::ScopedEnv;
using testing::waitUntil;
using namespace std::chrono_literals;

// A connection to the PipeWire socket in `runtime`, as the portal would hand it over.
OwnedFd connectTo(const std::filesystem::path& socketPath) {
    OwnedFd fd(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    socketPath.native().copy(address.sun_path, sizeof address.sun_path - 1);
    if (connect(fd.get(), reinterpret_cast<sockaddr*>(&address), sizeof address) != 0) {
        return OwnedFd();
    }
    return fd;
}

// The id of the node named `name`, read from pw-cli's listing; 0 while there is none.
std::uint32_t nodeNamed(const std::string& name) {
    const std::string listing = testing::run("pw-cli ls Node 2>/dev/null || true");
    const std::size_t at = listing.find("node.name = \"" + name + "\"");
    // Each object's listing opens with a tab and "id N,".
    const std::size_t id = listing.rfind("\tid ", at);
    if (at == std::string::npos || id == std::string::npos) {
        return 0;
    }
    return static_cast<std::uint32_t>(std::strtoul(listing.c_str() + id + 4, nullptr, 10));
}

// A private PipeWire daemon whose socket is in a fresh runtime folder.
struct PrivatePipeWire {
    const testing::TemporaryFolder runtime;
    const ScopedEnv xdg{"XDG_RUNTIME_DIR", runtime.path().string()};
    const ScopedEnv pipewire{"PIPEWIRE_RUNTIME_DIR", runtime.path().string()};
    const ChildProcess daemon{{"pipewire"}};
    bool started() const {
        return waitUntil([&] { return std::filesystem::exists(runtime / "pipewire-0"); }, 10s);
    }
    OwnedFd connect() const { return connectTo(runtime / "pipewire-0"); }
};

TEST(PortalStream, AnRgbxSourceArrivesAsBgraOfItsSizeAndAGoneNodeEndsTheStream) {
    const PrivatePipeWire pipewire;
    ASSERT_TRUE(pipewire.started()) << "PipeWire did not start";
    const ChildProcess sessionManager({"wireplumber"});
    // Red, green and blue of 10, 200 and 90: RGBx in memory, so BGRA is 90, 200, 10.
    std::optional<ChildProcess> source;
    source.emplace(std::vector<std::string>{
        "gst-launch-1.0", "-q", "videotestsrc", "pattern=solid-color",
        "foreground-color=0xff0ac85a", "!",
        "video/x-raw,format=RGBx,width=64,height=48,framerate=30/1", "!", "pipewiresink",
        "mode=provide", "client-name=lumenvale-test-source",
        "stream-properties=props,node.name=lumenvale-test-source,media.class=Video/Source"});
    std::uint32_t node = 0;
    ASSERT_TRUE(waitUntil([&] { return (node = nodeNamed("lumenvale-test-source")) != 0; }, 10s))
        << "the GStreamer source did not appear";
    // Asked for another size, as for a window whose size the portal did not say.
    PipeWireStream stream(pipewire.connect(), node, 30, {1920, 1080});
    stream.waitUntilFlowing(std::chrono::seconds(10));
    EXPECT_EQ(stream.formatSize(), (PixelSize{64, 48}));
    ASSERT_TRUE(stream.waitForPicture(std::chrono::seconds(10)));
    stream.withPicture([](const Picture& picture) {
        EXPECT_EQ(picture.size, (PixelSize{64, 48}));
        ASSERT_EQ(picture.bgra.size(), 64u * 48u * 4u);
        const std::size_t middle = (24 * 64 + 32) * 4;
        EXPECT_NEAR(picture.bgra[middle], 90, 2);
        EXPECT_NEAR(picture.bgra[middle + 1], 200, 2);
        EXPECT_NEAR(picture.bgra[middle + 2], 10, 2);
    });
    EXPECT_FALSE(stream.ended());
    source.reset();
    EXPECT_TRUE(waitUntil([&] { return stream.ended(); }, 10s))
        << "the source went, the stream stayed";
    // PipeWire itself is still there: the display (or the window) is what went.
    EXPECT_EQ(stream.endSentence(SourceKind::monitor), "The display is gone.");
    EXPECT_EQ(stream.endSentence(SourceKind::window), "The window closed.");
}

TEST(PortalStream, ACompositorsLinearDmaBufAndMemfdPicturesArriveWithThePointerDescribed) {
    const PrivatePipeWire pipewire;
    ASSERT_TRUE(pipewire.started()) << "PipeWire did not start";
    const ChildProcess sessionManager({"wireplumber"});
    for (const auto buffers :
         {CompositorSource::Buffers::linearDmaBuf, CompositorSource::Buffers::memFd}) {
        SCOPED_TRACE(buffers == CompositorSource::Buffers::memFd ? "memfd" : "DMA-BUF");
        const CompositorSource source({64, 48}, {30, 160, 220, 0}, buffers, {40, 20});
        const std::uint32_t node = source.node();
        ASSERT_NE(node, 0u) << "the source has no node";
        PipeWireStream stream(pipewire.connect(), node, 30, {64, 48});
        stream.waitUntilFlowing(std::chrono::seconds(10));
        ASSERT_TRUE(stream.waitForPicture(std::chrono::seconds(10)));
        EXPECT_EQ(source.sentDmaBuf(), buffers == CompositorSource::Buffers::linearDmaBuf);
        stream.withPicture([](const Picture& picture) {
            ASSERT_EQ(picture.size, (PixelSize{64, 48}));
            const std::size_t middle = (24 * 64 + 32) * 4;
            EXPECT_EQ(picture.bgra[middle], 30);
            EXPECT_EQ(picture.bgra[middle + 1], 160);
            EXPECT_EQ(picture.bgra[middle + 2], 220);
            EXPECT_TRUE(picture.pointer.visible);
            EXPECT_EQ(picture.pointer.bounds(), (x11::PixelRect{40, 20, 2, 2}));
            EXPECT_EQ(picture.pointer.argb, std::vector<std::uint32_t>(4, 0xffffffff));
        });
    }
}

TEST(PortalStream, ANodeThatIsNotThereNeverFlows) {
    const PrivatePipeWire pipewire;
    ASSERT_TRUE(pipewire.started());
    PipeWireStream stream(pipewire.connect(), 999999, 30, {64, 48});
    EXPECT_THROW(stream.waitUntilFlowing(std::chrono::milliseconds(1500)), MediaError);
    EXPECT_FALSE(stream.waitForPicture(std::chrono::milliseconds(100)));
}

} // namespace
} // namespace lumenvale::portal
