#include "desktop/KeyboardLayout.h"

#include "desktop/Desktop.h"
#include "desktop/Keyboard.h"

#include <memory>

namespace lumenvale::KeyboardLayout {

std::optional<std::string> character(std::int64_t keyCode) {
    static const std::unique_ptr<Keyboard> keyboard = Desktop::makeKeyboard();
    return keyboard->character(keyCode);
}

} // namespace lumenvale::KeyboardLayout
