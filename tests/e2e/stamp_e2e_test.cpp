// Whole stamp runs over generated recordings: grouped batches by every
// grouping method, LTC cut detection, and the failure paths of a batch.
#include <gtest/gtest.h>

#include "core/stamp/stamp_processor.h"
#include "tests/core/stamp/stamp_fixtures.h"
#include "tests/support/test_support.h"

namespace norvane {
namespace {

namespace fs = std::filesystem;
using testing::describeAll;
using testing::optionsFor;
using testing::TempDir;
using testing::thrownMessage;

// Two scenes, each an LTC recording (the code on the second of two tracks,
// after a lead-in) and a stem, grouped by each method: every stem carries its
// own scene's start, in the bext time reference and the CSV. (What a stamp
// does to the audio and the iXML is the single run's test.)
TEST(GroupedRunTest, EachGroupIsStampedFromItsOwnLTCFile) {
    struct Case {
        GroupingConfig grouping;
        std::string ltc[2], stem[2];  // per scene
        double seconds[2];
        FrameRatePreset preset;
    };
    const Case cases[] = {
        {{GroupingMethod::token, "-", 1, "", 50},
         {"A001-SC1-ltc.wav", "A001-SC2-ltc.wav"},
         {"A002-SC1-boom.wav", "A002-SC2-boom.wav"},
         {2, 2},
         FrameRatePreset::fps29_97DF},
        {{GroupingMethod::regex, "-", 1, "^(SC\\d+)_", 50},
         {"SC1_T1_a.wav", "SC2_T1_a.wav"},
         {"SC1_T1_b.wav", "SC2_T1_b.wav"},
         {2, 2},
         FrameRatePreset::fps23_976},
        {{GroupingMethod::durationExact, "-", 1, "", 50},
         {"take one recorder.wav", "take two recorder.wav"},
         {"take one boom.wav", "take two boom.wav"},
         {2, 3},
         FrameRatePreset::auto_},
    };
    for (const Case& c : cases) {
        // The recordings of the Auto case run at 25 fps; Auto votes one rate for the batch.
        const FrameRatePreset recorded =
            c.preset == FrameRatePreset::auto_ ? FrameRatePreset::fps25 : c.preset;
        const FrameRateConfig rate = testing::rateOf(recorded);
        SCOPED_TRACE(rate.label);
        TempDir in, out;
        const Timecode starts[] = {{10, 0, 0, 0, rate.dropFrame}, {11, 30, 0, 12, rate.dropFrame}};
        const std::int64_t leadIn = 1000;
        std::vector<fs::path> paths;
        for (std::size_t scene = 0; scene < 2; ++scene) {
            paths.push_back(testing::writeLTCFile(in / c.ltc[scene], recorded, starts[scene],
                                                  leadIn, c.seconds[scene], 2, 2));
            paths.push_back(testing::writeStem(in / c.stem[scene], c.seconds[scene]));
        }
        ProcessingOptions options = optionsFor(ProcessingMode::groupedBatch, c.preset, out.path());
        options.groupingConfig = c.grouping;
        const auto report = StampProcessor().run(describeAll(paths), std::nullopt, options);
        ASSERT_EQ(report.summary, (RunSummary{2, 2, 0, 0})) << reportText(report);
        EXPECT_EQ(report.detectedFrameRate, rate.label);
        const auto rows = testing::csvRows(report.csvLogURL);
        ASSERT_EQ(rows.size(), 3u);
        for (std::size_t scene = 0; scene < 2; ++scene) {
            const auto expected = testing::expectedStart(starts[scene], leadIn, rate);
            const std::string output = fs::path(c.stem[scene]).stem().string() + "_tc.wav";
            EXPECT_EQ(testing::sndfileTimeReference(out / output), expected.timeReference);
            const auto row = std::find_if(rows.begin(), rows.end(),
                                          [&](const auto& r) { return r[1] == output; });
            ASSERT_NE(row, rows.end()) << output;
            EXPECT_EQ((*row)[2], c.ltc[scene]);
            EXPECT_EQ((*row)[7], expected.timecode.description());
        }
    }
}

// A group whose files do not match fails alone; a group without an LTC file,
// or an Auto batch without decodable code, ends the run before writing.
TEST(GroupedRunTest, FailuresOfABatch) {
    TempDir in, out;
    std::vector<fs::path> paths;
    for (const std::string scene : {"SC1", "SC2", "SC3"}) {
        paths.push_back(testing::writeLTCFile(in / ("A-" + scene + "-ltc.wav"),
                                              FrameRatePreset::fps25, {1, 0, 0, 0, false}, 0, 1));
        paths.push_back(testing::writeStem(in / ("A-" + scene + "-boom.wav"), 1, 1,
                                           scene == "SC2" ? 44100 : 48000));
    }
    auto options = optionsFor(ProcessingMode::groupedBatch, FrameRatePreset::fps25, out.path());
    const auto report = StampProcessor().run(describeAll(paths), std::nullopt, options);
    EXPECT_EQ(report.summary, (RunSummary{3, 2, 1, 1}));
    EXPECT_EQ(report.warnings[0].message,
              "Job failed: All WAV files in a job must have matching sample rates.");
    EXPECT_EQ(report.jobs.at(1).groupID, "SC2");
    const auto rows = testing::csvRows(report.csvLogURL);
    ASSERT_EQ(rows.size(), 4u);
    EXPECT_EQ(rows[2][8], "failed");
    EXPECT_EQ(rows[3][1], "A-SC3-boom_tc.wav");

    TempDir empty;
    options.outputFolder = empty.path();
    const auto errorOf = [&](const std::vector<fs::path>& files) {
        return thrownMessage(
            [&] { StampProcessor().run(describeAll(files), std::nullopt, options); });
    };
    // No LTC anywhere and no name hint: the group cannot be resolved.
    options.groupingConfig = GroupingConfig(GroupingMethod::token, "-", 1, "", 50);
    const std::vector<fs::path> stems = {testing::writeStem(in / "a.wav", 1),
                                         testing::writeStem(in / "b.wav", 1)};
    EXPECT_EQ(errorOf(stems), "Could not resolve a single LTC file for group: auto");
    // Auto rate over two undecodable groups: the batch vote fails.
    options.frameRatePreset = FrameRatePreset::auto_;
    options.manualLTCByGroup = {{"ungrouped", in / "a.wav"}, {"k", in / "x-k-1.wav"}};
    EXPECT_EQ(errorOf({in / "a.wav", in / "b.wav", testing::writeStem(in / "x-k-1.wav", 1),
                       testing::writeStem(in / "x-k-2.wav", 1)}),
              "Auto frame-rate batch vote failed: no decodable LTC source in this run.");
    EXPECT_TRUE(fs::is_empty(empty.path()));
}

struct CutCase {
    FrameRatePreset preset;
    Timecode first, second, third;
};

class CutRunTest : public ::testing::TestWithParam<CutCase> {};

// A six-second roll whose code jumps at 2 s and 4 s, stamped with a stem:
// segments follow each other, each carries the code at its first sample (in
// the bext time reference and the CSV) and the stem's own audio.
TEST_P(CutRunTest, SegmentsAtTheJumpsCarryTheirOwnStart) {
    const CutCase& c = GetParam();
    const FrameRateConfig rate = testing::rateOf(c.preset);
    TempDir in, out;
    const fs::path ltc = testing::writeLTCFile(in / "roll.wav", c.preset, c.first, 0, 6, 1, 1,
                                               {{2.0, c.second}, {4.0, c.third}});
    const fs::path stem = testing::writeStem(in / "roll boom.wav", 6);
    const auto stemAudio = testing::audioBytes(stem);
    auto options = optionsFor(ProcessingMode::cutDetect, c.preset, out.path());
    options.includeLTCOutputs = true;
    const auto report = StampProcessor().run(describeAll({ltc, stem}), ltc, options);
    ASSERT_EQ(report.summary, (RunSummary{3, 3, 0, 0})) << reportText(report);
    EXPECT_EQ(report.outputFiles,
              (std::vector<std::string>{"roll boom_seg001_tc.wav", "roll_seg001_tc.wav",
                                        "roll boom_seg002_tc.wav", "roll_seg002_tc.wav",
                                        "roll boom_seg003_tc.wav", "roll_seg003_tc.wav"}));
    EXPECT_TRUE(report.warnings.empty()) << reportText(report);

    const std::pair<std::int64_t, Timecode> program[] = {
        {0, c.first}, {96000, c.second}, {192000, c.third}};
    const auto rows = testing::csvRows(report.csvLogURL);
    ASSERT_EQ(rows.size(), 7u);
    std::int64_t previousEnd = 0;
    for (std::size_t i = 1; i < rows.size(); i += 2) {
        const auto& row = rows[i];
        SCOPED_TRACE(row[1]);
        const std::int64_t start = std::stoll(row[13]);
        const std::int64_t end = std::stoll(row[14]);
        EXPECT_EQ(start, previousEnd);
        previousEnd = end;
        // Each cut lies within the hop of the scan after its jump.
        const auto& [at, code] = program[i / 2];
        EXPECT_GE(start, at);
        EXPECT_LT(start, at + 12000);
        const auto expected = testing::expectedStart(code, at - start, rate);
        EXPECT_EQ(row[7], expected.timecode.description());
        const fs::path output = out / row[1];
        EXPECT_EQ(testing::sndfileTimeReference(output), expected.timeReference);
        EXPECT_EQ(testing::sndfileFrames(output), end - start);
        const auto audio = testing::audioBytes(output);
        const std::ptrdiff_t block = 6;  // 24-bit stereo
        EXPECT_TRUE(std::equal(audio.begin(), audio.end(), stemAudio.begin() + start * block));
    }
    EXPECT_EQ(previousEnd, 288000);
}

INSTANTIATE_TEST_SUITE_P(Rates, CutRunTest,
                         ::testing::Values(CutCase{FrameRatePreset::fps25,
                                                   {10, 0, 0, 0, false},
                                                   {10, 5, 0, 0, false},
                                                   {9, 0, 0, 0, false}},  // back
                                           CutCase{FrameRatePreset::fps29_97DF,
                                                   {1, 0, 0, 0, true},
                                                   {1, 9, 59, 20, true},
                                                   {2, 0, 0, 0, true}}));

// Continuous code is one segment of the whole stem; a roll without code has
// no segments; a cancel while the first segment is copied leaves nothing, not
// even a temporary file or the log.
TEST(CutRunTest, ContinuousCodeSilenceAndACancelWhileRendering) {
    TempDir in, out;
    const fs::path ltc =
        testing::writeLTCFile(in / "roll.wav", FrameRatePreset::fps25, {1, 0, 0, 0, false}, 0, 3);
    const fs::path stem = testing::writeStem(in / "boom.wav", 3);
    const auto options = optionsFor(ProcessingMode::cutDetect, FrameRatePreset::auto_, out.path());
    const auto report = StampProcessor().run(describeAll({ltc, stem}), ltc, options);
    EXPECT_EQ(report.outputFiles, (std::vector<std::string>{"boom_seg001_tc.wav"}));
    EXPECT_EQ(testing::sndfileFrames(out / "boom_seg001_tc.wav"), 144000);
    EXPECT_EQ(testing::sndfileTimeReference(out / "boom_seg001_tc.wav"), 90000u * 1920u);

    const fs::path silent = in / "silent.wav";
    writeFile(silent, testing::makePcm(24, 48000, {std::vector<float>(48000, 0.0f)}),
              WriteMode::replaceAtomically);
    EXPECT_EQ(thrownMessage([&] {
                  StampProcessor().run(describeAll({silent, stem}), silent, options);
              }),
              "No cut boundaries were detected from LTC discontinuities.");

    TempDir out2;
    bool rendering = false;
    EXPECT_EQ(thrownMessage([&] {
                  StampProcessor().run(
                      describeAll({ltc, stem}), ltc,
                      optionsFor(ProcessingMode::cutDetect, FrameRatePreset::fps25, out2.path()),
                      [&](const ProcessingProgress& p) {
                          rendering = rendering || p.message == "Rendering segment 1";
                      },
                      [&] { return rendering; });
              }),
              "Operation cancelled.");
    EXPECT_TRUE(fs::is_empty(out2.path()));
}

}  // namespace
}  // namespace norvane
