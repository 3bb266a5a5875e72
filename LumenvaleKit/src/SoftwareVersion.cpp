#include "LumenvaleKit/SoftwareVersion.h"

#include <algorithm>

namespace lumenvale {

namespace {

bool isDigit(char c) {
    return c >= '0' && c <= '9';
}

bool isLetter(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
}

bool isSeparator(char c) {
    return c == '.' || c == '-' || c == '_' || c == '~' || c == ' ';
}

std::string_view trimmed(std::string_view text) {
    const auto first = text.find_first_not_of(" \t\r\n");
    if (first == std::string_view::npos) {
        return {};
    }
    const auto last = text.find_last_not_of(" \t\r\n");
    return text.substr(first, last - first + 1);
}

// Digits without leading zeros ("0" stays), so that numbers of any length compare by
// length first and then digit by digit.
std::string number(std::string_view digits) {
    const auto first = digits.find_first_not_of('0');
    return first == std::string_view::npos ? std::string("0") : std::string(digits.substr(first));
}

std::strong_ordering compareNumbers(const std::string& a, const std::string& b) {
    if (a.size() != b.size()) {
        return a.size() <=> b.size();
    }
    return a.compare(b) <=> 0;
}

std::strong_ordering compareParts(const std::string& a, const std::string& b) {
    const bool aNumber = isDigit(a.front());
    const bool bNumber = isDigit(b.front());
    if (aNumber && bNumber) {
        return compareNumbers(a, b);
    }
    if (aNumber != bNumber) {
        return aNumber ? std::strong_ordering::less : std::strong_ordering::greater;
    }
    return a.compare(b) <=> 0;
}

// The length of the run of characters like text[0] (all digits or all letters).
std::size_t runLength(std::string_view text, bool (*same)(char)) {
    std::size_t length = 0;
    while (length < text.size() && same(text[length])) {
        ++length;
    }
    return length;
}

} // namespace

Result<SoftwareVersion> SoftwareVersion::parse(std::string_view text) {
    const DecodeError notAVersion{"“" + std::string(text) + "” is not a version number."};
    std::string_view rest = trimmed(text);
    if (rest.size() > 1 && (rest[0] == 'v' || rest[0] == 'V') && isDigit(rest[1])) {
        rest.remove_prefix(1);
    }
    rest = rest.substr(0, rest.find('+'));
    if (rest.empty() || !isDigit(rest[0])) {
        return notAVersion;
    }

    SoftwareVersion version;
    while (true) {
        const std::size_t digits = runLength(rest, isDigit);
        version.release_.push_back(number(rest.substr(0, digits)));
        rest.remove_prefix(digits);
        if (rest.size() < 2 || rest[0] != '.' || !isDigit(rest[1])) {
            break;
        }
        rest.remove_prefix(1);
    }
    while (!version.release_.empty() && version.release_.back() == "0") {
        version.release_.pop_back();
    }

    // The pre-release suffix: an optional separator, then words and numbers with at
    // most one separator between them and none at the end.
    if (!rest.empty() && isSeparator(rest[0])) {
        rest.remove_prefix(1);
        if (rest.empty()) {
            return notAVersion;
        }
    }
    while (!rest.empty()) {
        if (isDigit(rest[0])) {
            const std::size_t digits = runLength(rest, isDigit);
            version.preRelease_.push_back(number(rest.substr(0, digits)));
            rest.remove_prefix(digits);
        } else if (isLetter(rest[0])) {
            const std::size_t letters = runLength(rest, isLetter);
            std::string word(rest.substr(0, letters));
            for (char& c : word) {
                c = static_cast<char>(c >= 'A' && c <= 'Z' ? c - 'A' + 'a' : c);
            }
            version.preRelease_.push_back(std::move(word));
            rest.remove_prefix(letters);
        } else {
            return notAVersion;
        }
        if (!rest.empty() && isSeparator(rest[0])) {
            rest.remove_prefix(1);
            if (rest.empty() || isSeparator(rest[0])) {
                return notAVersion;
            }
        }
    }
    return version;
}

std::strong_ordering operator<=>(const SoftwareVersion& a, const SoftwareVersion& b) {
    const std::size_t releaseParts = std::max(a.release_.size(), b.release_.size());
    const std::string zero = "0";
    for (std::size_t i = 0; i < releaseParts; ++i) {
        const std::string& x = i < a.release_.size() ? a.release_[i] : zero;
        const std::string& y = i < b.release_.size() ? b.release_[i] : zero;
        if (const auto order = compareNumbers(x, y); order != 0) {
            return order;
        }
    }
    if (a.isPreRelease() != b.isPreRelease()) {
        return a.isPreRelease() ? std::strong_ordering::less : std::strong_ordering::greater;
    }
    const std::size_t common = std::min(a.preRelease_.size(), b.preRelease_.size());
    for (std::size_t i = 0; i < common; ++i) {
        if (const auto order = compareParts(a.preRelease_[i], b.preRelease_[i]); order != 0) {
            return order;
        }
    }
    return a.preRelease_.size() <=> b.preRelease_.size();
}

} // namespace lumenvale
