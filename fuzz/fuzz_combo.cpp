// Decodes arbitrary bytes as a stored shortcut; whatever decodes must survive
// encoding and decoding again unchanged, and must be nameable.
#include "LumenvaleKit/KeyNames.h"
#include "LumenvaleKit/Shortcuts.h"

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string_view>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view input(reinterpret_cast<const char*>(data), size);
    const auto first = lumenvale::decodeCombo(input);
    if (!first.ok()) {
        if (first.error().empty()) {
            std::abort();
        }
        return 0;
    }
    const std::string encoded = lumenvale::encode(first.value());
    const auto second = lumenvale::decodeCombo(encoded);
    if (!second.ok() || !(second.value() == first.value())) {
        std::fprintf(stderr, "shortcut changed in a round trip: %s\n", encoded.c_str());
        std::abort();
    }
    const auto& combo = first.value();
    if (lumenvale::KeyNames::display(combo.keyCode, combo.mods, std::string(input)).empty() ||
        lumenvale::KeyNames::linuxDisplay(combo.keyCode, combo.mods, std::nullopt).empty()) {
        std::abort();
    }
    return 0;
}
