// Reads arbitrary bytes as the desktops' shortcut settings (gsettings output and
// kglobalshortcutsrc). Every shortcut read has a key and only the four modifiers.
#include "LumenvaleKit/ShortcutText.h"

#include <cstdint>
#include <cstdlib>
#include <string_view>

namespace {

void check(const std::vector<lumenvale::ShortcutText::Binding>& bindings) {
    for (const auto& binding : bindings) {
        if (binding.key.empty() || (binding.mods.rawValue & ~std::int64_t{15}) != 0) {
            std::abort();
        }
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view input(reinterpret_cast<const char*>(data), size);
    check(lumenvale::ShortcutText::fromGsettingsListing(input));
    check(lumenvale::ShortcutText::fromKdeGlobalShortcuts(input));
    return 0;
}
