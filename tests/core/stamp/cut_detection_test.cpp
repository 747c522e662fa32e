#include "core/stamp/cut_detection.h"

#include <gtest/gtest.h>

#include <limits>

#include "core/common/file_output.h"
#include "tests/core/stamp/stamp_fixtures.h"
#include "tests/core/timecode/libltc_signal.h"
#include "tests/support/test_support.h"

namespace norvane {
namespace {

const FrameRateConfig kFps25 = testing::rateOf(FrameRatePreset::fps25);

// A verified run at 48 kHz: `frames` frames of `rate` whose first, counting
// `firstCount`, begins at `first`.
LTCRun run(std::int64_t first, int frames, std::int64_t firstCount,
           const FrameRateConfig& rate = kFps25) {
    LTCRun r;
    r.rate = rate;
    r.samplesPerFrame =
        48000.0 * static_cast<double>(rate.denominator) / static_cast<double>(rate.numerator);
    r.startPosition = static_cast<double>(first);
    for (int i = 0; i < frames; ++i) {
        LTCFrame f;
        f.timecode = TimecodeMath::timecodeFromFrameCount(firstCount + i, rate);
        f.firstPosition = r.startPosition + i * r.samplesPerFrame;
        f.endPosition = f.firstPosition + r.samplesPerFrame;
        f.firstSample = std::llround(f.firstPosition);
        f.endSample = std::llround(f.endPosition);
        r.firstFrame = i == 0 ? f : r.firstFrame;
        r.lastFrame = f;
    }
    r.length = static_cast<std::size_t>(frames);
    return r;
}

std::vector<SegmentBoundary> segments(const std::vector<LTCRun>& runs, std::int64_t frameCount,
                                      std::int64_t minFrames = 24, std::int64_t threshold = 1) {
    return CutDetection::segmentsFromRuns(runs, frameCount, 48000, minFrames, threshold);
}

TEST(CutDetectionTest, SegmentsStartWhereARunBreaksTheCountingOfTheOneBefore) {
    // One run from sample 100: one segment over the file, its count and its
    // exact position projected back to sample 0.
    auto one = segments({run(100, 50, 90000)}, 200000);
    ASSERT_EQ(one.size(), 1u);
    EXPECT_EQ(one[0].startSample, 0);
    EXPECT_EQ(one[0].endSample, 200000);
    EXPECT_EQ(one[0].startFrameCount, 90000);  // 100 / 1920 rounds to 0 frames back
    EXPECT_DOUBLE_EQ(*one[0].startSamplesSinceMidnight, 90000.0 * 1920 - 100);
    EXPECT_EQ(one[0].rate, kFps25);
    EXPECT_TRUE(segments({}, 200000).empty());

    struct Case {
        std::int64_t jump;  // frames the second run's count lies off its projection
        std::int64_t threshold;
        bool cut;
    };
    for (const Case c : {Case{0, 1, false}, Case{1, 1, true}, Case{-1, 1, true}, Case{11, 1, true},
                         Case{-500, 1, true}, Case{39, 40, false}, Case{40, 40, true}}) {
        SCOPED_TRACE(c.jump);
        // Run two begins 50 frames after run one (a dropout between them).
        const auto found =
            segments({run(100, 20, 1000), run(96100, 50, 1050 + c.jump)}, 200000, 24, c.threshold);
        ASSERT_EQ(found.size(), c.cut ? 2u : 1u);
        if (c.cut) {
            EXPECT_EQ(found[0].endSample, 96100);
            EXPECT_EQ(found[1].startSample, 96100);
            EXPECT_EQ(found[1].segmentIndex, 2);
            EXPECT_EQ(found[1].startFrameCount, 1050 + c.jump);
            EXPECT_DOUBLE_EQ(*found[1].startSamplesSinceMidnight, (1050.0 + c.jump) * 1920);
        }
    }

    // A run at another rate is a new take even where its count would fit,
    // and its segment counts at its own rate.
    const FrameRateConfig df = testing::rateOf(FrameRatePreset::fps29_97DF);
    const auto rates = segments({run(0, 20, 1000), run(96000, 50, 1050, df)}, 200000);
    ASSERT_EQ(rates.size(), 2u);
    EXPECT_EQ(rates[1].rate, df);
    EXPECT_EQ(rates[1].startFrameCount, 1050);
    EXPECT_DOUBLE_EQ(*rates[1].startSamplesSinceMidnight, 1050 * 48000.0 * 1001 / 30000);
}

TEST(CutDetectionTest, MinimumSpacingIsHalvedAndFlooredAtTenFrames) {
    // minSegmentFrames 24 at 25 fps, 48 kHz: 12 x 1,920 = 23,040 samples. A
    // cut 19,300 samples (about 10 frames) from the start replaces the start.
    const std::vector<LTCRun> early = {run(100, 10, 0), run(19300, 90, 5000)};
    auto found = segments(early, 200000);
    ASSERT_EQ(found.size(), 1u);
    EXPECT_EQ(found[0].startSample, 19300);
    EXPECT_EQ(found[0].startFrameCount, 5000);
    // With minSegmentFrames 10 the spacing is 10 frames (19,200), not 5: kept.
    EXPECT_EQ(segments(early, 200000, 10).size(), 2u);
    // A cut close to the end is absorbed into the final segment.
    const auto late = segments({run(100, 90, 0), run(182500, 9, 5000)}, 200000);
    ASSERT_EQ(late.size(), 1u);
    EXPECT_EQ(late[0].endSample, 200000);
    // A minimum far beyond any file keeps no boundary but the last: no segments.
    EXPECT_TRUE(segments(early, 200000, std::numeric_limits<std::int64_t>::max()).empty());
}

// Takes recorded back to back on one roll, each libltc-encoded at its own
// rate; the analysis must place every cut at libltc's first sample of the
// take's first frame and read each take at its own rate.
TEST(CutDetectionTest, TakesOfARollAreFoundAtTheirFirstFrameAtTheirOwnRate) {
    struct Take {
        FrameRatePreset preset;
        Timecode start;
        int frames;
    };
    const std::vector<Take> takes = {{FrameRatePreset::fps25, {10, 0, 0, 0, false}, 60},
                                     {FrameRatePreset::fps29_97DF, {14, 31, 0, 2, true}, 75},
                                     {FrameRatePreset::fps24, {1, 0, 0, 0, false}, 60}};
    for (const std::int64_t sampleRate : {44100, 48000}) {
        SCOPED_TRACE(sampleRate);
        const std::int64_t leadIn = 1001;
        std::vector<float> samples(static_cast<std::size_t>(leadIn), 0.0f);
        std::vector<std::int64_t> takeStarts;
        for (const Take& take : takes) {
            const auto signal = testing::libltcSignal(testing::rateOf(take.preset), sampleRate,
                                                      take.start, take.frames);
            takeStarts.push_back(static_cast<std::int64_t>(samples.size()) +
                                 signal.frameStarts.front());
            samples.insert(samples.end(), signal.samples.begin(), signal.samples.end());
        }
        testing::TempDir dir;
        const auto path = dir / "roll.wav";
        writeFile(path, testing::makeFloat32(static_cast<std::uint32_t>(sampleRate), {samples}),
                  WriteMode::replaceAtomically);

        ProcessingOptions options;
        options.frameRatePreset = FrameRatePreset::auto_;
        std::int64_t lastDone = 0;
        const CutDetection::CutAnalysis analysis =
            CutDetection::analyze(path, std::nullopt, options, [&](const ProcessingProgress& p) {
                EXPECT_GE(p.completedUnits, lastDone);
                lastDone = p.completedUnits;
            });
        EXPECT_EQ(lastDone, static_cast<std::int64_t>(samples.size()));
        ASSERT_EQ(analysis.segments.size(), takes.size());
        for (std::size_t i = 0; i < takes.size(); ++i) {
            SCOPED_TRACE(i);
            const SegmentBoundary& s = analysis.segments[i];
            const FrameRateConfig rate = testing::rateOf(takes[i].preset);
            const double perFrame = static_cast<double>(sampleRate) *
                                    static_cast<double>(rate.denominator) /
                                    static_cast<double>(rate.numerator);
            ASSERT_TRUE(s.rate.has_value());
            EXPECT_EQ(s.rate->label, rate.label);
            const std::int64_t first = TimecodeMath::frameCount(takes[i].start, rate);
            if (i == 0) {
                EXPECT_EQ(s.startSample, 0);
                EXPECT_EQ(s.startFrameCount, first - 1);  // 1,001 samples is over half a frame
            } else {
                EXPECT_NEAR(static_cast<double>(s.startSample), takeStarts[i], 2.0);
                EXPECT_EQ(s.startFrameCount, first);
            }
            // The exact position of the segment's first sample on the take's clock.
            EXPECT_NEAR(*s.startSamplesSinceMidnight,
                        static_cast<double>(first) * perFrame +
                            static_cast<double>(s.startSample - takeStarts[i]),
                        2.0);
        }
    }
}

TEST(CutDetectionTest, ScanOfSilenceHasNoRunsAndStopsWhenCancelled) {
    testing::TempDir dir;
    const auto path = dir / "silence.wav";
    writeFile(path, testing::makeFloat32(48000, {std::vector<float>(3 * 48000, 0.0f)}),
              WriteMode::replaceAtomically);
    const WavReader reader(path);
    std::int64_t lastDone = 0;
    EXPECT_TRUE(
        CutDetection::scanRuns(reader, 0, kFps25, {}, [&](std::int64_t done, std::int64_t total) {
            EXPECT_EQ(total, 3 * 48000);
            lastDone = done;
        }).empty());
    EXPECT_EQ(lastDone, 3 * 48000);
    EXPECT_EQ(testing::thrownMessage(
                  [&] { CutDetection::scanRuns(reader, 0, std::nullopt, [] { return true; }); }),
              "Operation cancelled.");
}

}  // namespace
}  // namespace norvane
