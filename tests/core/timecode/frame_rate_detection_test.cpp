#include "core/timecode/frame_rate_detection.h"

#include <sstream>
#include <stdexcept>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "core/timecode/ltc_encoder.h"

namespace norvane {
namespace {

using LTCDecoder::AutoCandidateEvaluation;
using ::testing::EndsWith;
using ::testing::HasSubstr;

FrameRateConfig rate(FrameRatePreset p) {
    return *frameRateConfig(p);
}

// Evaluations in candidate order with the given confidences (0 = failed).
std::vector<AutoCandidateEvaluation> evaluations(const std::vector<double>& confidences) {
    std::vector<AutoCandidateEvaluation> out;
    for (std::size_t i = 0; i < candidateFrameRates().size(); ++i) {
        AutoCandidateEvaluation e;
        e.rate = candidateFrameRates()[i];
        if (i < confidences.size() && confidences[i] > 0) {
            e.success = true;
            e.confidence = confidences[i];
            e.bestScore = 1.0;
            e.validRun = 2;
            e.result = LTCDecodeResult{};
            e.result->frameRate = e.rate;
            e.result->confidence = confidences[i];
        }
        out.push_back(e);
    }
    return out;
}

class DiagnosticsCapture {
  public:
    DiagnosticsCapture() { setFrameRateDiagnosticsStream(&stream_); }
    ~DiagnosticsCapture() { setFrameRateDiagnosticsStream(nullptr); }
    std::string text() const { return stream_.str(); }

  private:
    std::ostringstream stream_;
};

TEST(FrameRateSelectionTest, HighestConfidenceTiesAndIntegerNeighbours) {
    EXPECT_FALSE(FrameRateDetection::select(evaluations({})).has_value());
    const std::pair<std::vector<double>, std::size_t> cases[] = {
        //  23.976  24    25    29.97  DF    30
        {{0, 0, 0.8}, 2},
        // The earlier candidate wins an exact tie; a higher one wins outright.
        {{0, 0.9, 0.9}, 1},
        {{0, 0.9, 0.91}, 2},
        {{0.5, 0.9, 0.95}, 2},
        // An integer rate wins a near tie against its 1000/1001 neighbour
        // (and DF, which always equals NDF); beyond the tolerance it does not.
        {{0, 0, 0, 0.95, 0.95, 0.94}, 5},
        {{0.96, 0.945}, 1},
        {{0.97, 0.945}, 0},
        {{0, 0, 0, 0.97, 0.97, 0.94}, 3},
        // 25 has no integer neighbour: the higher confidence wins.
        {{0, 0.94, 0.95}, 2},
        // Drop-frame never takes part, and never wins on its own equal confidence.
        {{0, 0, 0, 0, 0.95, 0.94}, 4},
    };
    for (const auto& [confidences, chosen] : cases) {
        EXPECT_EQ(FrameRateDetection::select(evaluations(confidences)), chosen) << chosen;
    }
    EXPECT_THAT(FrameRateDetection::candidateDiagnostics(evaluations(cases[4].first), 5),
                EndsWith("Selected: 30 (near-tie preference for exact integer rate)\n"));
    EXPECT_THAT(FrameRateDetection::candidateDiagnostics(evaluations(cases[7].first), 3),
                EndsWith("Selected: 29.97 NDF\n"));
}

// Four frames are too short to measure 0.1 %: the exact integer rate is
// preferred, and the diagnostic says so.
TEST(FrameRateSelectionTest, CodeTooShortToMeasureIsReadAtTheIntegerRate) {
    DiagnosticsCapture capture;
    LTCEncoderOptions options;
    options.rate = rate(FrameRatePreset::fps29_97NDF);
    const std::vector<float> code = encodeLTC(Timecode{1, 0, 0, 0}, 4, options);
    EXPECT_EQ(LTCDecoder::decode(code, 48000).frameRate, rate(FrameRatePreset::fps30));
    EXPECT_THAT(capture.text(), HasSubstr("Selected: 30 (near tie: measured"));
}

FrameRateDetection::VoteEntry entry(FrameRatePreset p, double sum, std::int64_t count) {
    return {rate(p), sum / static_cast<double>(count), count, sum};
}

TEST(FrameRateBatchVoteTest, AveragesAreComparedBeforeCounts) {
    using FrameRateDetection::chooseVoteWinner;
    using FrameRateDetection::sortVoteEntries;
    // Two files at 25 (0.95 each) against one at 24 (0.96).
    auto sorted = sortVoteEntries(
        {entry(FrameRatePreset::fps25, 1.9, 2), entry(FrameRatePreset::fps24, 0.96, 1)});
    EXPECT_EQ(sorted[0].rate.label, "24");
    EXPECT_EQ(chooseVoteWinner(sorted), rate(FrameRatePreset::fps24));
    // Equal averages: more votes first, then the larger sum; full ties keep order.
    sorted = sortVoteEntries({entry(FrameRatePreset::fps24, 0.9, 1),
                              entry(FrameRatePreset::fps25, 1.8, 2),
                              entry(FrameRatePreset::fps30, 0.9, 1)});
    EXPECT_EQ(sorted[0].rate.label, "25");
    EXPECT_EQ(sorted[1].rate.label, "24");
    // Near tie of 29.97 over 30: the integer rate is chosen; DF never is preferred that way.
    sorted = sortVoteEntries(
        {entry(FrameRatePreset::fps30, 0.94, 1), entry(FrameRatePreset::fps29_97NDF, 0.95, 1)});
    EXPECT_EQ(chooseVoteWinner(sorted), rate(FrameRatePreset::fps30));
    sorted = sortVoteEntries(
        {entry(FrameRatePreset::fps30, 0.94, 1), entry(FrameRatePreset::fps29_97DF, 0.95, 1)});
    EXPECT_EQ(chooseVoteWinner(sorted), rate(FrameRatePreset::fps29_97DF));
    EXPECT_FALSE(chooseVoteWinner({}).has_value());
}

using Samples = std::optional<std::pair<std::vector<float>, std::int64_t>>;

FrameRateDetection::VoteSource source(FrameRatePreset p, std::int64_t frames = 20) {
    return {[p, frames]() -> Samples {
        LTCEncoderOptions options;
        options.rate = rate(p);
        return std::pair{encodeLTC(Timecode{2, 0, 0, 0}, frames, options), 48000};
    }};
}

TEST(FrameRateBatchVoteTest, UnreadableAndUndecodableSourcesAreSkipped) {
    DiagnosticsCapture capture;
    std::vector<FrameRateDetection::VoteSource> sources = {
        {[]() -> Samples { return std::nullopt; }},
        {[]() -> Samples { throw std::runtime_error("unreadable"); }},
        {[]() -> Samples {
            return std::pair{std::vector<float>(48000, 0.0f), 48000};
        }},
        {},
    };
    EXPECT_FALSE(FrameRateDetection::batchVoteFrameRate(sources).has_value());
    EXPECT_THAT(capture.text(), ::testing::Not(HasSubstr("Auto FPS batch vote:")));

    sources.push_back(source(FrameRatePreset::fps25));
    sources.push_back(source(FrameRatePreset::fps25));
    sources.push_back(source(FrameRatePreset::fps24));
    EXPECT_EQ(FrameRateDetection::batchVoteFrameRate(sources), rate(FrameRatePreset::fps25));
    EXPECT_THAT(capture.text(), HasSubstr("Auto FPS batch vote:\n"
                                          "- 25: avgConfidence=1.000 count=2 sum=2.000\n"
                                          "- 24: avgConfidence=1.000 count=1 sum=1.000\n"
                                          "Selected (batch): 25\n"));
}

}  // namespace
}  // namespace norvane
