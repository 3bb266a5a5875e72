#include "desktop/Desktop.h"

#include "LumenvaleMedia/CaptureX11.h"
#include "LumenvaleMedia/DisplaysX11.h"
#include "desktop/DisplaysNull.h"
#include "desktop/GlobalKeysNull.h"
#include "desktop/GlobalKeysX11.h"
#include "desktop/KeyboardNull.h"
#include "desktop/KeyboardX11.h"

#include <QtGlobal>

namespace lumenvale::Desktop {

Session session() {
    return qEnvironmentVariableIsEmpty("DISPLAY") ? Session::none : Session::x11;
}

std::unique_ptr<Displays> makeDisplays() {
    switch (session()) {
    case Session::x11:
        return std::make_unique<DisplaysX11>();
    case Session::none:
        return std::make_unique<DisplaysNull>();
    }
    return std::make_unique<DisplaysNull>();
}

std::unique_ptr<VideoSource> makeCapture(CaptureRequest request) {
    // X11 is the only capture there is; without a display its start() says so.
    return std::make_unique<CaptureX11>(std::move(request));
}

std::unique_ptr<Keyboard> makeKeyboard() {
    switch (session()) {
    case Session::x11:
        return std::make_unique<KeyboardX11>();
    case Session::none:
        return std::make_unique<KeyboardNull>();
    }
    return std::make_unique<KeyboardNull>();
}

std::unique_ptr<GlobalKeys> makeGlobalKeys() {
    switch (session()) {
    case Session::x11:
        return std::make_unique<GlobalKeysX11>(std::make_unique<KeyboardX11>());
    case Session::none:
        return std::make_unique<GlobalKeysNull>();
    }
    return std::make_unique<GlobalKeysNull>();
}

} // namespace lumenvale::Desktop
