#include "LumenvaleKit/SoftwareVersion.h"

#include <gtest/gtest.h>

namespace lumenvale {
namespace {

SoftwareVersion version(const char* text) {
    Result<SoftwareVersion> parsed = SoftwareVersion::parse(text);
    EXPECT_TRUE(parsed.ok()) << text;
    return parsed ? std::move(parsed).value() : *SoftwareVersion::parse("0");
}

TEST(SoftwareVersion, Order) {
    // Each row: older < newer, and the reverse.
    const std::pair<const char*, const char*> olderNewer[] = {
        {"1.9.2", "1.10.0"},
        {"1.99.99", "2"},
        {"0.1.0", "0.1.1"},
        {"1.9999999", "1.99999999999999999999999"}, // longer than any integer type
        {"1.2.0-beta", "1.2.0"},
        {"1.2.0-rc.9", "1.2.0"},
        {"1.2.0", "1.2.1-alpha"},
        {"1.2.0-alpha", "1.2.0-beta"},
        {"1.2.0-beta", "1.2.0-rc.1"},
        {"1.2.0-beta.2", "1.2.0-beta.10"},
        {"1.2.0-beta2", "1.2.0-beta10"},
        {"1.2.0-beta", "1.2.0-beta.1"},
        {"1.2.0-1", "1.2.0-alpha"}, // a number before a word
        {"1.2a1", "1.2b1"},
    };
    for (const auto& [older, newer] : olderNewer) {
        EXPECT_TRUE(version(older) < version(newer)) << older << " < " << newer;
        EXPECT_TRUE(version(newer) > version(older)) << newer << " > " << older;
    }
    const std::pair<const char*, const char*> same[] = {
        {"1.2", "1.2.0"},       {"1.2.0.0", "1.2"},          {"01.02", "1.2"},
        {"v1.2", "1.2.0"},      {"1.2.0+build.5", "1.2"},    {"1.2.0-BETA", "1.2.0-beta"},
        {"1.2b3", "1.2.0-b.3"}, {"1.2 beta 3", "1.2-beta3"}, {"1.2-beta.03", "1.2-beta.3"},
        {" 1.2.0\n", "1.2.0"},
    };
    for (const auto& [a, b] : same) {
        EXPECT_TRUE(version(a) == version(b)) << a << " == " << b;
    }
    EXPECT_TRUE(version("1.0-rc1").isPreRelease());
    EXPECT_FALSE(version("1.0+rc1").isPreRelease());
}

TEST(SoftwareVersion, TextThatIsNoVersionIsRefusedWithAMessage) {
    for (const char* text : {"", " ", "beta", "v", "vbeta", ".1", "-1", "1..2", "1.2.", "1.2-",
                             "1.2-beta-", "1.2--beta", "1.2-be$ta", "1,2", "1.2/3"}) {
        const Result<SoftwareVersion> parsed = SoftwareVersion::parse(text);
        ASSERT_FALSE(parsed.ok()) << text;
        EXPECT_EQ(parsed.error(), "“" + std::string(text) + "” is not a version number.");
    }
}

} // namespace
} // namespace lumenvale
