#include "LumenvaleKit/Uuid.h"

#include <random>

namespace lumenvale {

namespace {

// One generator per thread, each seeded from the system's entropy source, so
// making ids needs no lock and two threads never share a sequence.
std::mt19937_64& generator() {
    thread_local std::mt19937_64 engine = [] {
        std::random_device entropy;
        std::seed_seq seed{entropy(), entropy(), entropy(), entropy(),
                           entropy(), entropy(), entropy(), entropy()};
        return std::mt19937_64(seed);
    }();
    return engine;
}

int hexValue(char digit) {
    if (digit >= '0' && digit <= '9') {
        return digit - '0';
    }
    if (digit >= 'a' && digit <= 'f') {
        return digit - 'a' + 10;
    }
    if (digit >= 'A' && digit <= 'F') {
        return digit - 'A' + 10;
    }
    return -1;
}

bool isDashPosition(std::size_t index) {
    return index == 8 || index == 13 || index == 18 || index == 23;
}

} // namespace

Uuid Uuid::random() {
    std::array<std::uint8_t, 16> bytes{};
    auto& engine = generator();
    for (std::size_t half = 0; half < 2; ++half) {
        std::uint64_t word = engine();
        for (std::size_t i = 0; i < 8; ++i) {
            bytes[half * 8 + i] = static_cast<std::uint8_t>(word >> (8 * i));
        }
    }
    bytes[6] = static_cast<std::uint8_t>((bytes[6] & 0x0F) | 0x40); // version 4
    bytes[8] = static_cast<std::uint8_t>((bytes[8] & 0x3F) | 0x80); // RFC 4122 variant
    return Uuid(bytes);
}

std::optional<Uuid> Uuid::parse(std::string_view text) {
    if (text.size() != 36) {
        return std::nullopt;
    }
    std::array<std::uint8_t, 16> bytes{};
    std::size_t byteIndex = 0;
    for (std::size_t i = 0; i < text.size();) {
        if (isDashPosition(i)) {
            if (text[i] != '-') {
                return std::nullopt;
            }
            ++i;
            continue;
        }
        const int high = hexValue(text[i]);
        const int low = hexValue(text[i + 1]);
        if (high < 0 || low < 0 || isDashPosition(i + 1)) {
            return std::nullopt;
        }
        bytes[byteIndex++] = static_cast<std::uint8_t>(high * 16 + low);
        i += 2;
    }
    return Uuid(bytes);
}

std::string Uuid::text() const {
    static constexpr char digits[] = "0123456789ABCDEF";
    std::string out;
    out.reserve(36);
    for (std::size_t i = 0; i < bytes_.size(); ++i) {
        if (i == 4 || i == 6 || i == 8 || i == 10) {
            out.push_back('-');
        }
        out.push_back(digits[bytes_[i] >> 4]);
        out.push_back(digits[bytes_[i] & 0x0F]);
    }
    return out;
}

} // namespace lumenvale

std::size_t std::hash<lumenvale::Uuid>::operator()(const lumenvale::Uuid& id) const noexcept {
    // FNV-1a over the 16 bytes.
    std::uint64_t mixed = 14695981039346656037ULL;
    for (std::uint8_t byte : id.bytes()) {
        mixed ^= byte;
        mixed *= 1099511628211ULL;
    }
    return static_cast<std::size_t>(mixed);
}
