// Decodes arbitrary bytes as an edit; whatever decodes must survive encoding and
// decoding again unchanged.
#include "LumenvaleKit/EditDecision.h"

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string_view>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view input(reinterpret_cast<const char*>(data), size);
    const auto first = lumenvale::decodeEditDecision(input);
    if (!first.ok()) {
        if (first.error().empty()) {
            std::abort();
        }
        return 0;
    }
    const std::string encoded = lumenvale::encode(first.value());
    const auto second = lumenvale::decodeEditDecision(encoded);
    if (!second.ok() || !(second.value() == first.value())) {
        std::fprintf(stderr, "edit changed in a round trip: %s\n", encoded.c_str());
        std::abort();
    }
    return 0;
}
