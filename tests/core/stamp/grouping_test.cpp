#include "core/stamp/grouping.h"

#include <gtest/gtest.h>

#include <limits>

#include "tests/support/test_support.h"

namespace norvane {
namespace {

FileDescriptor file(const std::string& path, std::int64_t frames, std::int64_t rate = 48000,
                    std::int64_t channels = 2) {
    FileDescriptor f;
    f.id = path;
    f.url = path;
    f.sampleRate = rate;
    f.channels = channels;
    f.frameCount = frames;
    f.durationSeconds = static_cast<double>(frames) / static_cast<double>(rate);
    return f;
}

GroupingConfig regexConfig(const std::string& pattern) {
    return GroupingConfig(GroupingMethod::regex, "-", 1, pattern, 50);
}

std::string ruleError(const GroupingConfig& config) {
    return testing::thrownMessage([&] { Grouping::validateRule(config); });
}

TEST(GroupingTest, RuleValidation) {
    EXPECT_EQ(ruleError(regexConfig("(a+)+")),
              "Invalid grouping regex: Nested quantifiers are not allowed.");
    EXPECT_EQ(ruleError(regexConfig("x(\\w*){2}")),
              "Invalid grouping regex: Nested quantifiers are not allowed.");
    EXPECT_EQ(ruleError(regexConfig("(ab)+")), "");
    EXPECT_EQ(ruleError(regexConfig(std::string(257, 'a'))),
              "Invalid grouping regex: Pattern must be 256 characters or fewer.");
    // The limit counts characters, not UTF-8 bytes: 256 accented letters pass,
    // also when each is a letter with a combining accent.
    std::string combining;
    for (int i = 0; i < 256; ++i) {
        combining += "e\u0301";
    }
    EXPECT_EQ(ruleError(regexConfig(combining)), "");
    EXPECT_EQ(ruleError(regexConfig(combining + "e")),
              "Invalid grouping regex: Pattern must be 256 characters or fewer.");
    // Whitespace around the pattern does not count toward the limit.
    EXPECT_EQ(ruleError(regexConfig(" " + std::string(256, 'a') + " ")), "");
    EXPECT_NE(ruleError(regexConfig("(unclosed")), "");
    // Other methods never fail, whatever the pattern.
    EXPECT_EQ(ruleError(GroupingConfig(GroupingMethod::token, "-", 1, "(a+)+", 50)), "");
}

TEST(GroupingTest, KeysByTokenAndRegex) {
    GroupingConfig token;
    EXPECT_EQ(Grouping::nameKey("A001-SC12-T03", token), "SC12");
    EXPECT_EQ(Grouping::nameKey("A001", token), "ungrouped");
    GroupingConfig multi(GroupingMethod::token, "--", 2, "", 50);
    EXPECT_EQ(Grouping::nameKey("a--b-c--d", multi), "d");

    EXPECT_EQ(Grouping::nameKey("SC12_T3", regexConfig("^(\\w+?)_")), "SC12");
    EXPECT_EQ(Grouping::nameKey("SC12_T3", regexConfig("^\\w+_")), "ungrouped");
    EXPECT_EQ(Grouping::nameKey("SC12_T3", regexConfig("(x)?SC")), "ungrouped");

    // Keys come from the name without its extension; groups keep input order.
    auto groups = Grouping::groupFiles({file("/a/D-S2-2.wav", 1), file("/a/C-S1-1.WAV", 1),
                                        file("/a/B-S2-1.wav", 1), file("/a/plain.wav", 1)},
                                       token);
    ASSERT_EQ(groups.size(), 3u);
    ASSERT_EQ(groups["S2"].size(), 2u);
    EXPECT_EQ(groups["S2"][0].url, "/a/D-S2-2.wav");
}

TEST(GroupingTest, DurationClustersWithinTolerance) {
    GroupingConfig duration(GroupingMethod::durationExact, "-", 1, "", 50);
    // 50 ms at 48 kHz is 2,400 samples: inside at 2,400, outside at 2,401.
    auto together =
        Grouping::groupFiles({file("/a.wav", 480000), file("/b.wav", 482400)}, duration);
    ASSERT_EQ(together.size(), 1u);
    EXPECT_EQ(together.begin()->first, "sr48000_f481200");
    auto apart = Grouping::groupFiles({file("/a.wav", 480000), file("/b.wav", 482401)}, duration);
    EXPECT_EQ(apart.size(), 2u);
    // Same length, different sample rates: never one cluster.
    auto rates = Grouping::groupFiles(
        {file("/a.wav", 480000, 48000), file("/b.wav", 480000, 96000)}, duration);
    EXPECT_EQ(rates.size(), 2u);

    // Two takes, three files each, shuffled: two groups in input order.
    auto takes = Grouping::groupFiles(
        {file("/t1a.wav", 100000), file("/t2a.wav", 300000), file("/t1b.wav", 100010),
         file("/t2b.wav", 299990), file("/t1c.wav", 100005), file("/t2c.wav", 300000)},
        duration);
    ASSERT_EQ(takes.size(), 2u);
    const auto& first = takes.begin()->second;
    ASSERT_EQ(first.size(), 3u);
    EXPECT_EQ(first[2].url, "/t1c.wav");
    EXPECT_EQ(takes.begin()->first, "sr48000_f100005");

    // A tolerance too large to multiply by the sample rate takes every length.
    GroupingConfig huge(GroupingMethod::durationExact, "-", 1, "",
                        std::numeric_limits<std::int64_t>::max());
    EXPECT_EQ(Grouping::groupFiles({file("/a.wav", 1000), file("/b.wav", 9000000)}, huge).size(),
              1u);
}

TEST(GroupingTest, ChannelClampingAndNoGroupIsAnInvalidRule) {
    EXPECT_EQ(Grouping::clampedChannelIndex(9, 4), 3);
    EXPECT_EQ(Grouping::clampedChannelIndex(0, 4), 0);
    EXPECT_EQ(Grouping::clampedChannelIndex(2, 4), 1);
    EXPECT_EQ(Grouping::commonChannelCount({file("/a", 1, 48000, 6), file("/b", 1, 48000, 4)}), 4);
    EXPECT_EQ(Grouping::commonChannelCount({file("/a", 1, 48000, 0)}), 1);
    ProcessingOptions options;
    options.mode = ProcessingMode::groupedBatch;
    EXPECT_EQ(testing::thrownMessage([&] { Grouping::buildGroupedJobs({}, options); }),
              "Grouping rule is invalid.");
}

}  // namespace
}  // namespace norvane
