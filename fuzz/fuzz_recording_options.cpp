// Decodes arbitrary bytes as recording options; whatever decodes must survive
// encoding and decoding again unchanged.
#include "LumenvaleKit/RecordingOptions.h"

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string_view>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view input(reinterpret_cast<const char*>(data), size);
    const auto first = lumenvale::decodeRecordingOptions(input);
    if (!first.ok()) {
        if (first.error().empty()) {
            std::abort();
        }
        return 0;
    }
    const std::string encoded = lumenvale::encode(first.value());
    const auto second = lumenvale::decodeRecordingOptions(encoded);
    if (!second.ok() || !(second.value() == first.value())) {
        std::fprintf(stderr, "options changed in a round trip: %s\n", encoded.c_str());
        std::abort();
    }
    return 0;
}
