#include "CaptureTestSupport.h"

#include "LumenvaleMedia/DisplaysX11.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <sys/uio.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <xcb/randr.h>
#include <xcb/xcbext.h>

namespace lumenvale::testing {

const x11::XConnection& testConnection() {
    static const x11::XConnection connection;
    return connection;
}

bool near(const Colour& a, const Colour& b, int tolerance) {
    return std::abs(a.red - b.red) <= tolerance && std::abs(a.green - b.green) <= tolerance &&
           std::abs(a.blue - b.blue) <= tolerance;
}

std::string describe(const Colour& colour) {
    char text[32];
    std::snprintf(text, sizeof text, "#%02x%02x%02x", colour.red, colour.green, colour.blue);
    return text;
}

int countAround(const Picture& picture, std::int64_t x, std::int64_t y, std::int64_t radius,
                const std::function<bool(const Colour&)>& wanted) {
    int count = 0;
    for (std::int64_t row = y - radius; row <= y + radius; ++row) {
        for (std::int64_t column = x - radius; column <= x + radius; ++column) {
            count += wanted(picture.at(column, row)) ? 1 : 0;
        }
    }
    return count;
}

CaptureRequest captureRequest(CaptureTarget target, PixelSize size, OwnWindows ownWindows,
                              std::vector<std::uint32_t> kept) {
    CaptureRequest request;
    request.target = std::move(target);
    request.size = size;
    request.showsPointer = false;
    request.ownWindows = ownWindows;
    request.keptWindows = std::move(kept);
    return request;
}

Colour Picture::at(std::int64_t x, std::int64_t y) const {
    const std::uint8_t* pixel = bgra.data() + (y * size.width + x) * 4;
    return {pixel[2], pixel[1], pixel[0]};
}

bool Picture::rowChanged(std::int64_t y) const {
    return change == FrameChange::whole ||
           std::any_of(changedRows.begin(), changedRows.end(),
                       [y](const RowSpan& span) { return y >= span.top && y < span.bottom; });
}

// MARK: FrameCatcher

VideoSource::FrameHandler FrameCatcher::frames() {
    return [this](const VideoFrame& frame) {
        std::lock_guard lock(mutex_);
        latest_.size = frame.size;
        latest_.index = frame.index;
        latest_.time = frame.time;
        latest_.change = frame.change;
        latest_.changedRows.assign(frame.changedRows.begin(), frame.changedRows.end());
        const auto rowBytes = static_cast<std::size_t>(frame.size.width * 4);
        latest_.bgra.resize(rowBytes * static_cast<std::size_t>(frame.size.height));
        for (std::int64_t row = 0; row < frame.size.height; ++row) {
            std::memcpy(latest_.bgra.data() + static_cast<std::size_t>(row) * rowBytes,
                        frame.bgra + row * frame.strideBytes, rowBytes);
        }
        indexes_.push_back(frame.index);
        times_.push_back(frame.time);
        if (!stopReasons_.empty()) {
            ++framesAfterStop_;
        }
        ++count_;
        changed_.notify_all();
    };
}

VideoSource::StoppedHandler FrameCatcher::stopped() {
    return [this](const std::string& reason) {
        std::lock_guard lock(mutex_);
        stopReasons_.push_back(reason);
        changed_.notify_all();
    };
}

std::optional<Picture> FrameCatcher::waitFor(const std::function<bool(const Picture&)>& wanted,
                                             std::chrono::milliseconds timeout) {
    const auto deadline = std::chrono::steady_clock::now() + timeout;
    std::unique_lock lock(mutex_);
    std::int64_t seen = count_;
    while (changed_.wait_until(lock, deadline, [&] { return count_ != seen; })) {
        seen = count_;
        if (wanted(latest_)) {
            return latest_;
        }
    }
    return std::nullopt;
}

std::optional<Picture> FrameCatcher::next(std::chrono::milliseconds timeout) {
    return waitFor([](const Picture&) { return true; }, timeout);
}

std::optional<std::string> FrameCatcher::waitStopped(std::chrono::milliseconds timeout) {
    std::unique_lock lock(mutex_);
    if (!changed_.wait_for(lock, timeout, [&] { return !stopReasons_.empty(); })) {
        return std::nullopt;
    }
    return stopReasons_.front();
}

std::vector<std::int64_t> FrameCatcher::indexes() const {
    std::lock_guard lock(mutex_);
    return indexes_;
}

std::vector<std::chrono::steady_clock::duration> FrameCatcher::times() const {
    std::lock_guard lock(mutex_);
    return times_;
}

int FrameCatcher::stopCalls() const {
    std::lock_guard lock(mutex_);
    return static_cast<int>(stopReasons_.size());
}

std::int64_t FrameCatcher::framesAfterStop() const {
    std::lock_guard lock(mutex_);
    return framesAfterStop_;
}

// MARK: windows

namespace {

xcb_window_t createWindow(xcb_connection_t* c, const xcb_screen_t* screen, x11::PixelRect rect,
                          Colour colour, Management management) {
    const xcb_window_t id = xcb_generate_id(c);
    const std::uint32_t values[] = {colour.pixel(), management == Management::unmanaged ? 1u : 0u};
    xcb_create_window(c, XCB_COPY_FROM_PARENT, id, screen->root, static_cast<std::int16_t>(rect.x),
                      static_cast<std::int16_t>(rect.y), static_cast<std::uint16_t>(rect.width),
                      static_cast<std::uint16_t>(rect.height), 0, XCB_WINDOW_CLASS_INPUT_OUTPUT,
                      screen->root_visual, XCB_CW_BACK_PIXEL | XCB_CW_OVERRIDE_REDIRECT, values);
    return id;
}

void setPid(xcb_connection_t* c, xcb_window_t window, xcb_atom_t pidAtom) {
    const auto pid = static_cast<std::uint32_t>(getpid());
    xcb_change_property(c, XCB_PROP_MODE_REPLACE, window, pidAtom, XCB_ATOM_CARDINAL, 32, 1, &pid);
}

bool viewable(xcb_connection_t* c, xcb_window_t window) {
    x11::Reply<xcb_get_window_attributes_reply_t> attributes{
        xcb_get_window_attributes_reply(c, xcb_get_window_attributes(c, window), nullptr)};
    return attributes && attributes->map_state == XCB_MAP_STATE_VIEWABLE;
}

} // namespace

void waitViewable(const x11::XConnection& connection, xcb_window_t window, Management management) {
    xcb_connection_t* c = connection.get();
    for (int attempt = 0; attempt < 200; ++attempt) {
        bool ready = viewable(c, window);
        if (ready && management == Management::managed) {
            x11::Reply<xcb_query_tree_reply_t> tree{
                xcb_query_tree_reply(c, xcb_query_tree(c, window), nullptr)};
            ready = tree && tree->parent != connection.root();
        }
        if (ready) {
            // Let the window manager finish placing and painting its frame.
            std::this_thread::sleep_for(management == Management::managed ? 150ms : 20ms);
            return;
        }
        std::this_thread::sleep_for(10ms);
    }
}

void setShadow(const x11::XConnection& connection, xcb_window_t window, std::uint32_t left,
               std::uint32_t right, std::uint32_t top, std::uint32_t bottom) {
    const std::uint32_t extents[] = {left, right, top, bottom};
    xcb_change_property(connection.get(), XCB_PROP_MODE_REPLACE, window,
                        connection.atom(x11::Atom::gtkFrameExtents), XCB_ATOM_CARDINAL, 32, 4,
                        extents);
    sync(connection);
}

void paintChild(const x11::XConnection& connection, xcb_window_t parent, x11::PixelRect rect,
                Colour colour) {
    xcb_connection_t* c = connection.get();
    const xcb_window_t id = xcb_generate_id(c);
    const std::uint32_t background = colour.pixel();
    xcb_create_window(c, XCB_COPY_FROM_PARENT, id, parent, static_cast<std::int16_t>(rect.x),
                      static_cast<std::int16_t>(rect.y), static_cast<std::uint16_t>(rect.width),
                      static_cast<std::uint16_t>(rect.height), 0, XCB_WINDOW_CLASS_INPUT_OUTPUT,
                      connection.screen()->root_visual, XCB_CW_BACK_PIXEL, &background);
    xcb_map_window(c, id);
    waitViewable(connection, id, Management::unmanaged);
}

TestWindow::TestWindow(const x11::XConnection& connection, x11::PixelRect rect, Colour colour,
                       Management management, const std::string& title)
    : connection_(connection) {
    xcb_connection_t* c = connection.get();
    id_ = createWindow(c, connection.screen(), rect, colour, management);
    setPid(c, id_, connection.atom(x11::Atom::netWmPid));
    xcb_change_property(c, XCB_PROP_MODE_REPLACE, id_, XCB_ATOM_WM_NAME, XCB_ATOM_STRING, 8,
                        static_cast<std::uint32_t>(title.size()), title.data());
    if (management == Management::managed) {
        // Ask the window manager to keep the position and size given (USPosition, USSize).
        std::uint32_t hints[18] = {};
        hints[0] = 1 | 2;
        hints[1] = static_cast<std::uint32_t>(rect.x);
        hints[2] = static_cast<std::uint32_t>(rect.y);
        hints[3] = static_cast<std::uint32_t>(rect.width);
        hints[4] = static_cast<std::uint32_t>(rect.height);
        xcb_change_property(c, XCB_PROP_MODE_REPLACE, id_, XCB_ATOM_WM_NORMAL_HINTS,
                            XCB_ATOM_WM_SIZE_HINTS, 32, 18, hints);
    }
    xcb_map_window(c, id_);
    connection.flush();
    waitViewable(connection, id_, management);
}

TestWindow::~TestWindow() {
    destroy();
}

void TestWindow::move(std::int64_t x, std::int64_t y) {
    const std::uint32_t values[] = {static_cast<std::uint32_t>(x), static_cast<std::uint32_t>(y)};
    xcb_configure_window(connection_.get(), id_, XCB_CONFIG_WINDOW_X | XCB_CONFIG_WINDOW_Y, values);
    connection_.flush();
}

void TestWindow::resize(std::int64_t width, std::int64_t height) {
    const std::uint32_t values[] = {static_cast<std::uint32_t>(width),
                                    static_cast<std::uint32_t>(height)};
    xcb_configure_window(connection_.get(), id_, XCB_CONFIG_WINDOW_WIDTH | XCB_CONFIG_WINDOW_HEIGHT,
                         values);
    connection_.flush();
}

void TestWindow::raise() {
    const std::uint32_t above = XCB_STACK_MODE_ABOVE;
    xcb_configure_window(connection_.get(), id_, XCB_CONFIG_WINDOW_STACK_MODE, &above);
    connection_.flush();
}

void TestWindow::destroy() {
    if (id_ != XCB_NONE) {
        xcb_destroy_window(connection_.get(), id_);
        connection_.flush();
        id_ = XCB_NONE;
    }
}

ForeignWindow::ForeignWindow(x11::PixelRect rect, Colour colour) {
    int ready[2];
    int stop[2];
    if (pipe(ready) != 0 || pipe(stop) != 0) {
        throw std::runtime_error("pipe failed");
    }
    child_ = fork();
    if (child_ == 0) {
        // The child: its own connection, its own pid on the window; nothing of the
        // parent's state is touched, and it leaves with _exit.
        close(ready[0]);
        close(stop[1]);
        xcb_connection_t* c = xcb_connect(nullptr, nullptr);
        const xcb_screen_t* screen = xcb_setup_roots_iterator(xcb_get_setup(c)).data;
        const xcb_window_t window = createWindow(c, screen, rect, colour, Management::unmanaged);
        const char name[] = "_NET_WM_PID";
        x11::Reply<xcb_intern_atom_reply_t> atom{
            xcb_intern_atom_reply(c, xcb_intern_atom(c, 0, sizeof name - 1, name), nullptr)};
        setPid(c, window, atom ? atom->atom : xcb_atom_t{XCB_ATOM_NONE});
        xcb_map_window(c, window);
        xcb_flush(c);
        for (int attempt = 0; attempt < 200 && !viewable(c, window); ++attempt) {
            usleep(10000);
        }
        const char byte = 1;
        [[maybe_unused]] auto written = write(ready[1], &byte, 1);
        char ignored;
        [[maybe_unused]] auto got = read(stop[0], &ignored, 1);
        _exit(0);
    }
    close(ready[1]);
    close(stop[0]);
    stopPipe_ = stop[1];
    char byte = 0;
    [[maybe_unused]] auto got = read(ready[0], &byte, 1);
    close(ready[0]);
    std::this_thread::sleep_for(20ms);
}

ForeignWindow::~ForeignWindow() {
    close(stopPipe_);
    int status = 0;
    waitpid(child_, &status, 0);
}

// MARK: monitors and pointer

TestMonitor::TestMonitor(const x11::XConnection& connection, const std::string& name,
                         x11::PixelRect rect)
    : connection_(connection) {
    xcb_connection_t* c = connection.get();
    x11::Reply<xcb_intern_atom_reply_t> atom{xcb_intern_atom_reply(
        c, xcb_intern_atom(c, 0, static_cast<std::uint16_t>(name.size()), name.data()), nullptr)};
    name_ = atom->atom;
    // RRSetMonitor written out by hand: the packaged xcb-randr encodes its length wrongly.
    struct {
        std::uint8_t major, minor;
        std::uint16_t length;
        std::uint32_t window;
        xcb_randr_monitor_info_t info;
    } request{};
    request.window = connection.root();
    request.info.name = name_;
    request.info.x = static_cast<std::int16_t>(rect.x);
    request.info.y = static_cast<std::int16_t>(rect.y);
    request.info.width = static_cast<std::uint16_t>(rect.width);
    request.info.height = static_cast<std::uint16_t>(rect.height);
    iovec parts[3];
    parts[2].iov_base = &request;
    parts[2].iov_len = sizeof request;
    xcb_protocol_request_t protocol{1, &xcb_randr_id, XCB_RANDR_SET_MONITOR, 1};
    const unsigned int sequence = xcb_send_request(c, XCB_REQUEST_CHECKED, parts + 2, &protocol);
    x11::Error error{xcb_request_check(c, xcb_void_cookie_t{sequence})};
    if (error) {
        throw std::runtime_error("RRSetMonitor failed");
    }
}

TestMonitor::~TestMonitor() {
    remove();
}

void TestMonitor::remove() {
    if (name_ != XCB_NONE) {
        x11::Error error{xcb_request_check(
            connection_.get(),
            xcb_randr_delete_monitor_checked(connection_.get(), connection_.root(), name_))};
        name_ = XCB_NONE;
    }
}

std::optional<DesktopWindow> findWindow(const std::vector<DesktopWindow>& windows,
                                        std::uint32_t id) {
    const auto found = std::find_if(windows.begin(), windows.end(),
                                    [id](const DesktopWindow& window) { return window.id == id; });
    return found == windows.end() ? std::nullopt : std::optional(*found);
}

std::optional<DesktopWindow> findWindow(std::uint32_t id) {
    return findWindow(DisplaysX11().windows(), id);
}

void sync(const x11::XConnection& connection) {
    x11::Reply<xcb_get_input_focus_reply_t> reply{xcb_get_input_focus_reply(
        connection.get(), xcb_get_input_focus(connection.get()), nullptr)};
}

void warpPointer(const x11::XConnection& connection, std::int64_t x, std::int64_t y) {
    xcb_warp_pointer(connection.get(), XCB_NONE, connection.root(), 0, 0, 0, 0,
                     static_cast<std::int16_t>(x), static_cast<std::int16_t>(y));
    sync(connection);
}

} // namespace lumenvale::testing
