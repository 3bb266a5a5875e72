#pragma once

#include <array>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

namespace lumenvale {

// A 128-bit universally unique identifier (RFC 4122 version 4 when random).
class Uuid {
  public:
    Uuid() = default; // the nil UUID
    explicit Uuid(const std::array<std::uint8_t, 16>& bytes) : bytes_(bytes) {}

    // A new random version-4 UUID.
    static Uuid random();

    // Reads the 8-4-4-4-12 form with hexadecimal digits in either case;
    // nothing for any other text.
    static std::optional<Uuid> parse(std::string_view text);

    // The standard text form: 36 characters, upper-case hexadecimal, 8-4-4-4-12.
    std::string text() const;

    const std::array<std::uint8_t, 16>& bytes() const { return bytes_; }
    friend auto operator<=>(const Uuid&, const Uuid&) = default;

  private:
    std::array<std::uint8_t, 16> bytes_{};
};

} // namespace lumenvale

template <> struct std::hash<lumenvale::Uuid> {
    std::size_t operator()(const lumenvale::Uuid& id) const noexcept;
};
