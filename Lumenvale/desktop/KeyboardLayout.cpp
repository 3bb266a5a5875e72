#include "desktop/KeyboardLayout.h"

#include "desktop/Desktop.h"
#include "desktop/Keyboard.h"

#include <QString>
#include <memory>

namespace lumenvale::KeyboardLayout {

std::optional<std::string> label(std::int64_t keyCode) {
    static const std::unique_ptr<Keyboard> keyboard = Desktop::makeKeyboard();
    const std::optional<std::string> character = keyboard->character(keyCode);
    if (!character) {
        return std::nullopt;
    }
    return labelOf(*character);
}

std::string labelOf(const std::string& character) {
    const QString typed = QString::fromStdString(character);
    const QString upper = typed.toUpper();
    if (upper.toUcs4().size() > typed.toUcs4().size()) {
        return character;
    }
    return upper.toStdString();
}

} // namespace lumenvale::KeyboardLayout
