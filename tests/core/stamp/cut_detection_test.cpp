#include "core/stamp/cut_detection.h"

#include <gtest/gtest.h>

#include <limits>

namespace norvane {
namespace {

// Points every 9,600 samples (0.2 s at 48 kHz) of continuous code at 25 fps
// from frame `startFrame`, with a jump of `jump` frames after `jumpAt` points.
std::vector<LTCTimelinePoint> points25(int count, std::int64_t startFrame, int jumpAt = -1,
                                       std::int64_t jump = 0) {
    std::vector<LTCTimelinePoint> points;
    std::int64_t offset = 0;
    for (int i = 0; i < count; ++i) {
        if (i == jumpAt) {
            offset = jump;
        }
        LTCTimelinePoint p;
        p.sample = 100 + i * 9600;
        p.frameCount = startFrame + i * 5 + offset;
        points.push_back(p);
    }
    return points;
}

std::vector<SegmentBoundary> detect25(const std::vector<LTCTimelinePoint>& points,
                                      std::int64_t frameCount, std::int64_t minFrames = 24,
                                      std::int64_t threshold = 1) {
    return CutDetection::detectBoundaries(points, frameCount, 48000, 25, 1, minFrames, threshold);
}

TEST(CutDetectionTest, ContinuousCodeIsOneSegmentOverTheFile) {
    auto segments = detect25(points25(20, 90000), 200000);
    ASSERT_EQ(segments.size(), 1u);
    EXPECT_EQ(segments[0].segmentIndex, 1);
    EXPECT_EQ(segments[0].startSample, 0);
    EXPECT_EQ(segments[0].endSample, 200000);
    // Nearest point is at 100 samples: 100 / 1920 rounds to 0 frames back.
    EXPECT_EQ(segments[0].startFrameCount, 90000);
    EXPECT_TRUE(detect25(points25(1, 90000), 200000).empty());
    EXPECT_TRUE(detect25({}, 200000).empty());
}

TEST(CutDetectionTest, EveryJumpOfAFrameCutsWhereTheNewRunBegins) {
    // Jump after point 10 (sample 96,100, a frame start): the cut is there.
    EXPECT_EQ(detect25(points25(20, 0, 10, 0), 200000).size(), 1u);
    for (const std::int64_t jump : {1, 11, 12, -500}) {
        auto cut = detect25(points25(20, 1000, 10, jump), 200000);
        ASSERT_EQ(cut.size(), 2u) << jump;
        EXPECT_EQ(cut[0].endSample, 96100);
        EXPECT_EQ(cut[1].startSample, 96100);
        EXPECT_EQ(cut[1].endSample, 200000);
        EXPECT_EQ(cut[1].segmentIndex, 2);
        // The new take's own first frame.
        EXPECT_EQ(cut[1].startFrameCount, 1000 + 50 + jump);
    }
    // The threshold still asks for larger jumps when set.
    EXPECT_EQ(detect25(points25(20, 0, 10, 39), 200000, 24, 40).size(), 1u);
    EXPECT_EQ(detect25(points25(20, 0, 10, 40), 200000, 24, 40).size(), 2u);
}

TEST(CutDetectionTest, TwoJumpsGiveThreeSegments) {
    auto points = points25(30, 0, 10, 100);
    for (std::size_t i = 20; i < points.size(); ++i) {
        points[i].frameCount += 1000;
    }
    auto segments = detect25(points, 300000);
    ASSERT_EQ(segments.size(), 3u);
    EXPECT_EQ(segments[0].startSample, 0);
    EXPECT_EQ(segments[1].startSample, 96100);
    EXPECT_EQ(segments[2].startSample, 192100);
    EXPECT_EQ(segments[2].endSample, 300000);
}

TEST(CutDetectionTest, MinimumSpacingIsHalvedAndFlooredAtTenFrames) {
    // minSegmentFrames 24 at 25 fps, 48 kHz: 12 x 1,920 = 23,040 samples.
    // A cut 19,300 samples (10 frames) from the start moves the start to it.
    auto early = points25(20, 0, 2, 100);
    auto segments = detect25(early, 200000);
    ASSERT_EQ(segments.size(), 1u);
    EXPECT_EQ(segments[0].startSample, 19300);
    // With minSegmentFrames 10 the spacing is 10 frames (19,200), not 5: kept.
    EXPECT_EQ(detect25(early, 200000, 10).size(), 2u);
    // A cut close to the end is absorbed into the final segment.
    auto late = points25(20, 0, 19, 100);  // cut at 182,500 in a file of 200,000
    auto lastSegments = detect25(late, 200000);
    ASSERT_EQ(lastSegments.size(), 1u);
    EXPECT_EQ(lastSegments[0].endSample, 200000);
    // A minimum far beyond any file keeps no boundary but the last: no segments.
    EXPECT_TRUE(detect25(early, 200000, std::numeric_limits<std::int64_t>::max()).empty());
}

TEST(CutDetectionTest, ScanOfShortOrSilentAudioHasNoPoints) {
    EXPECT_TRUE(
        CutDetection::scanTimeline(std::vector<float>(35999, 0.5f), 48000, std::nullopt).empty());
    int progressCalls = 0;
    auto points = CutDetection::scanTimeline(std::vector<float>(3 * 48000, 0.0f), 48000,
                                             frameRateConfig(FrameRatePreset::fps25), {},
                                             [&](std::int64_t done, std::int64_t total) {
                                                 ++progressCalls;
                                                 EXPECT_EQ(total, 3);  // blocks of 65,536
                                                 EXPECT_EQ(done, progressCalls);
                                             });
    EXPECT_TRUE(points.empty());
    EXPECT_EQ(progressCalls, 3);
    try {
        CutDetection::scanTimeline(std::vector<float>(48000, 0.0f), 48000, std::nullopt,
                                   [] { return true; });
        ADD_FAILURE() << "expected cancellation";
    } catch (const ProcessingError& e) {
        EXPECT_EQ(e.message(), "Operation cancelled.");
    }
}

}  // namespace
}  // namespace norvane
