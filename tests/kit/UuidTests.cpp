#include "LumenvaleKit/Uuid.h"

#include <gtest/gtest.h>
#include <set>
#include <thread>
#include <vector>

namespace lumenvale {
namespace {

TEST(Uuid, RandomIdsAreVersion4DistinctAcrossThreadsAndReadBack) {
    std::vector<std::vector<Uuid>> made(4);
    std::vector<std::thread> threads;
    for (auto& list : made) {
        threads.emplace_back([&list] {
            for (int i = 0; i < 500; ++i) {
                list.push_back(Uuid::random());
            }
        });
    }
    std::set<Uuid> all;
    for (std::size_t i = 0; i < made.size(); ++i) {
        threads[i].join();
        for (const Uuid& id : made[i]) {
            EXPECT_TRUE(id.bytes()[6] >> 4 == 4 && (id.bytes()[8] & 0xC0) == 0x80);
            EXPECT_EQ(id.text().find_first_not_of("0123456789ABCDEF-"), std::string::npos);
            EXPECT_EQ(Uuid::parse(id.text()), id);
            all.insert(id);
        }
    }
    EXPECT_EQ(all.size(), 2000u);
}

TEST(Uuid, ParsesEitherCaseAndRejectsAnythingElse) {
    const auto upper = Uuid::parse("E621E1F8-C36C-495A-93FC-0C247A3E6E5F");
    ASSERT_TRUE(upper);
    EXPECT_EQ(upper->bytes()[0], 0xE6);
    EXPECT_EQ(upper->bytes()[15], 0x5F);
    EXPECT_EQ(Uuid::parse("e621e1f8-c36c-495a-93fc-0c247a3e6e5f"), upper);
    EXPECT_EQ(upper->text(), "E621E1F8-C36C-495A-93FC-0C247A3E6E5F");
    const std::string good = upper->text();
    for (const std::string& bad :
         {std::string(), good.substr(1), good + "0", "{" + good + "}",
          good.substr(0, 7) + "-" + good.substr(7, 1) + good.substr(9), "G" + good.substr(1),
          " " + good.substr(1), good.substr(0, 23) + "+" + good.substr(24)}) {
        EXPECT_FALSE(Uuid::parse(bad)) << bad;
    }
}

} // namespace
} // namespace lumenvale
