#include "core/common/regex.h"

#include <gtest/gtest.h>

#include <chrono>

#include "core/common/error.h"

namespace norvane {
namespace {

TEST(RegexTest, CapturesOptionalGroupsBadAndCatastrophicPatterns) {
    Regex re("(T\\d+)_(?:(A)|(B))");
    EXPECT_EQ(re.captureCount(), 3);
    auto m = re.firstMatch("x_T12_B_T3_A");
    ASSERT_TRUE(m);
    ASSERT_EQ(m->size(), 4u);
    EXPECT_EQ((*m)[0], "T12_B");
    EXPECT_EQ((*m)[1], "T12");
    EXPECT_FALSE((*m)[2].has_value());
    EXPECT_EQ((*m)[3], "B");
    EXPECT_EQ(re.allMatches("x_T12_B_T3_A", 1), (std::vector<std::string>{"T12", "T3"}));
    EXPECT_FALSE(re.firstMatch("nothing"));
    EXPECT_FALSE(Regex("take").matches("TAKE 1"));
    EXPECT_TRUE(Regex("take", Regex::Options{true}).matches("TAKE 1"));
    EXPECT_THROW(Regex("(unclosed"), Error);
    const auto start = std::chrono::steady_clock::now();
    Regex evil("^(a+)+$");
    EXPECT_FALSE(evil.matches(std::string(40, 'a') + "!"));
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(5));
}

}  // namespace
}  // namespace norvane
