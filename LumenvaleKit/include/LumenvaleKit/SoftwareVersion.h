#pragma once

#include "LumenvaleKit/Result.h"

#include <compare>
#include <string>
#include <string_view>
#include <vector>

namespace lumenvale {

// A version number as Lumenvale's releases and its update feed write it, ordered so
// that the update check can tell whether a published version is newer than the one
// running.
//
// Text form: an optional "v", then release numbers separated by dots ("1.10.0"), then
// an optional pre-release suffix ("-beta.2", "-rc1", "b3", " alpha"), then optional
// build metadata after "+" (ignored). The suffix consists of letters and digits; ".",
// "-", "_", "~" and spaces separate its parts, and so does each change between letters
// and digits ("beta10" is "beta", "10").
//
// Order:
//   - release numbers compare as numbers, part by part, missing parts counting as 0
//     ("1.10.0" > "1.9.2", "1.2" == "1.2.0", "01.2" == "1.2"), of any length;
//   - a pre-release comes before its release ("1.2.0-rc.1" < "1.2.0");
//   - pre-release suffixes compare part by part: numbers as numbers, words in
//     alphabetical order ignoring case ("alpha" < "beta" < "rc"), a number before a
//     word, and a suffix before any longer suffix that starts with it ("beta" <
//     "beta.1").
class SoftwareVersion {
  public:
    // Reads the text form; a readable message when `text` is not a version number.
    static Result<SoftwareVersion> parse(std::string_view text);

    bool isPreRelease() const { return !preRelease_.empty(); }

    friend std::strong_ordering operator<=>(const SoftwareVersion& a, const SoftwareVersion& b);
    friend bool operator==(const SoftwareVersion& a, const SoftwareVersion& b) {
        return (a <=> b) == std::strong_ordering::equal;
    }

  private:
    SoftwareVersion() = default;

    // Digits without leading zeros; trailing zero parts are dropped, so equal
    // releases have equal lists.
    std::vector<std::string> release_;
    // Lower-case words and numbers (digits without leading zeros), in order.
    std::vector<std::string> preRelease_;
};

} // namespace lumenvale
