#include "LumenvaleKit/Uuid.h"

#include <gtest/gtest.h>
#include <set>
#include <thread>
#include <vector>

namespace lumenvale {
namespace {

TEST(Uuid, RandomIsVersion4WithUpperCaseText) {
    std::set<Uuid> seen;
    for (int i = 0; i < 1000; ++i) {
        const Uuid id = Uuid::random();
        EXPECT_EQ(id.bytes()[6] >> 4, 4);
        EXPECT_EQ(id.bytes()[8] & 0xC0, 0x80);
        const std::string text = id.text();
        ASSERT_EQ(text.size(), 36u);
        EXPECT_EQ(text.find_first_not_of("0123456789ABCDEF-"), std::string::npos) << text;
        EXPECT_EQ(Uuid::parse(text), id);
        seen.insert(id);
    }
    EXPECT_EQ(seen.size(), 1000u);
}

TEST(Uuid, ParsesEitherCaseAndRejectsAnythingElse) {
    const auto upper = Uuid::parse("E621E1F8-C36C-495A-93FC-0C247A3E6E5F");
    ASSERT_TRUE(upper);
    EXPECT_EQ(upper->bytes()[0], 0xE6);
    EXPECT_EQ(upper->bytes()[15], 0x5F);
    EXPECT_EQ(Uuid::parse("e621e1f8-c36c-495a-93fc-0c247a3e6e5f"), upper);
    EXPECT_EQ(upper->text(), "E621E1F8-C36C-495A-93FC-0C247A3E6E5F");
    EXPECT_EQ(Uuid().text(), "00000000-0000-0000-0000-000000000000");
    for (const char* bad : {
             "",
             "E621E1F8C36C495A93FC0C247A3E6E5F",
             "E621E1F8-C36C-495A-93FC-0C247A3E6E5",
             "E621E1F8-C36C-495A-93FC-0C247A3E6E5FF",
             "{E621E1F8-C36C-495A-93FC-0C247A3E6E5F}",
             "E621E1F8-C36C-495A-93FC+0C247A3E6E5F",
             "E621E1F-8C36C-495A-93FC-0C247A3E6E5F",
             "G621E1F8-C36C-495A-93FC-0C247A3E6E5F",
             " 621E1F8-C36C-495A-93FC-0C247A3E6E5F",
         }) {
        EXPECT_FALSE(Uuid::parse(bad)) << bad;
    }
}

TEST(Uuid, ThreadsMakeDistinctIds) {
    std::vector<std::vector<Uuid>> made(4);
    std::vector<std::thread> threads;
    for (auto& list : made) {
        threads.emplace_back([&list] {
            for (int i = 0; i < 500; ++i) {
                list.push_back(Uuid::random());
            }
        });
    }
    for (auto& thread : threads) {
        thread.join();
    }
    std::set<Uuid> all;
    for (const auto& list : made) {
        all.insert(list.begin(), list.end());
    }
    EXPECT_EQ(all.size(), 2000u);
}

} // namespace
} // namespace lumenvale
