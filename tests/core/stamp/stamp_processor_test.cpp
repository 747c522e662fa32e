#include "core/stamp/stamp_processor.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <map>

#include "core/audio/bwf_reader.h"
#include "tests/core/stamp/stamp_fixtures.h"
#include "tests/support/test_support.h"

namespace norvane {
namespace {

namespace fs = std::filesystem;
using testing::describeAll;
using testing::optionsFor;
using testing::TempDir;

fs::path ltc25(const TempDir& in, const std::string& name = "ltc.wav") {
    return testing::writeLTCFile(in / name, FrameRatePreset::fps25, {1, 0, 0, 0, false}, 0);
}

struct RateCase {
    FrameRatePreset preset;
    Timecode atLeadIn;
    std::int64_t leadIn;
    const char* expectedStart;
};

class SingleRunTest : public ::testing::TestWithParam<RateCase> {};

// A single run at each rate: every target gets the start of the file set, to
// the frame, with its audio untouched, and the sources stay as they were.
TEST_P(SingleRunTest, StampsEveryTargetWithTheStartOfTheFileSet) {
    const RateCase& c = GetParam();
    const FrameRateConfig rate = testing::rateOf(c.preset);
    TempDir in, out;
    // LTC on the last of two tracks: found without naming the channel.
    const fs::path ltc =
        testing::writeLTCFile(in / "Take 1 LTC.wav", c.preset, c.atLeadIn, c.leadIn, 3, 2, 2);
    const fs::path stemA = testing::writeStem(in / "Take 1 A.WAV");
    const fs::path stemB = testing::writeStem(in / "Take 1 B.wav", 3, 1, 48000, true);
    const auto sourcesBefore =
        std::vector{readWholeFile(ltc), readWholeFile(stemA), readWholeFile(stemB)};

    ProcessingOptions options = optionsFor(ProcessingMode::single, c.preset, out.path());
    options.includeLTCOutputs = true;
    std::vector<ProcessingProgress> progress;
    const ProcessingReport report =
        StampProcessor().run(describeAll({stemA, ltc, stemB}), ltc, options,
                             [&](const ProcessingProgress& p) { progress.push_back(p); });

    const testing::ExpectedStart expected = testing::expectedStart(c.atLeadIn, c.leadIn, rate);
    EXPECT_EQ(report.stampedStartTimecode, c.expectedStart);
    EXPECT_EQ(report.detectedFrameRate, rate.label);
    EXPECT_EQ(report.chosenLTCFile, "Take 1 LTC.wav");
    // The decoder may lock onto a later frame; it still starts on the frame grid.
    const double perFrame =
        48000.0 * static_cast<double>(rate.denominator) / static_cast<double>(rate.numerator);
    EXPECT_LE(std::abs(std::remainder(static_cast<double>(report.firstValidLTCSample - c.leadIn),
                                      perFrame)),
              8.0);
    EXPECT_EQ(report.outputFiles, (std::vector<std::string>{"Take 1 A_tc.wav", "Take 1 B_tc.wav",
                                                            "Take 1 LTC_tc.wav"}));
    EXPECT_EQ(report.summary, (RunSummary{1, 1, 0, 0}));
    EXPECT_TRUE(report.warnings.empty());

    const std::vector<std::pair<fs::path, fs::path>> pairs = {{stemA, out / "Take 1 A_tc.wav"},
                                                              {stemB, out / "Take 1 B_tc.wav"},
                                                              {ltc, out / "Take 1 LTC_tc.wav"}};
    for (const auto& [source, output] : pairs) {
        SCOPED_TRACE(output.string());
        EXPECT_EQ(testing::sndfileTimeReference(output), expected.timeReference);
        EXPECT_EQ(testing::sndfileFrames(output), testing::sndfileFrames(source));
        EXPECT_EQ(testing::audioBytes(output), testing::audioBytes(source));
        EXPECT_EQ(BWFReader::ixmlText(WAVFile(output)),
                  testing::ixmlFor(rate, c.expectedStart, expected.timeReference));
    }
    EXPECT_EQ((std::vector{readWholeFile(ltc), readWholeFile(stemA), readWholeFile(stemB)}),
              sourcesBefore);

    const auto rows = testing::csvRows(report.csvLogURL);
    EXPECT_EQ(report.csvLogURL.parent_path(), out.path());
    EXPECT_THAT(
        report.csvLogURL.filename().string(),
        ::testing::MatchesRegex("ltc_stamp_log_[0-9]{4}-[0-9]{2}-[0-9]{2}T[0-9]{2}-[0-9]{2}-"
                                "[0-9]{2}\\.[0-9]{3}Z\\.csv"));
    ASSERT_EQ(rows.size(), 4u);
    EXPECT_EQ(rows[1][1], "Take 1 A_tc.wav");
    EXPECT_EQ(rows[1][7], c.expectedStart);
    EXPECT_EQ(rows[1][15], std::to_string(expected.timeReference));

    // Each output's bytes end at its size on disk; the run's bytes (known
    // from the start: the three sources' sizes) only grow, ending at their total.
    ASSERT_FALSE(progress.empty());
    std::map<std::string, std::uint64_t> lastFileBytes;
    for (std::size_t i = 0; i < progress.size(); ++i) {
        if (!progress[i].file.empty()) {
            lastFileBytes[progress[i].file] = progress[i].fileBytesDone;
        }
        EXPECT_GE(progress[i].bytesDone, i > 0 ? progress[i - 1].bytesDone : 0);
    }
    for (const auto& [source, output] : pairs) {
        EXPECT_EQ(lastFileBytes[source.filename().string()], fs::file_size(output));
    }
    EXPECT_EQ(progress.back().phase, "Complete");
    EXPECT_EQ(progress.back().bytesTotal,
              fs::file_size(ltc) + fs::file_size(stemA) + fs::file_size(stemB));
    EXPECT_EQ(progress.back().fraction(), 1.0);
}

INSTANTIATE_TEST_SUITE_P(
    Rates, SingleRunTest,
    ::testing::Values(
        // 1,000 samples is 0.52 of a 25 fps frame: one frame back.
        RateCase{FrameRatePreset::fps25, {10, 0, 0, 0, false}, 1000, "09:59:59:24"},
        // 900 samples is 0.47 of a frame: no step back.
        RateCase{FrameRatePreset::fps25, {10, 0, 0, 5, false}, 900, "10:00:00:05"},
        RateCase{FrameRatePreset::fps29_97DF, {1, 0, 0, 0, true}, 1000, "00:59:59;29"},
        RateCase{FrameRatePreset::fps23_976, {10, 0, 0, 0, false}, 500, "10:00:00:00"},
        // Stepping back over midnight wraps to the day before.
        RateCase{FrameRatePreset::fps24, {0, 0, 0, 0, false}, 2500, "23:59:59:23"},
        RateCase{FrameRatePreset::fps30, {12, 30, 15, 10, false}, 0, "12:30:15:10"}));

TEST(StampProcessorTest, InputErrorsEndTheRunBeforeAnythingIsWritten) {
    TempDir in, out;
    const fs::path ltc = ltc25(in);
    const fs::path stem = testing::writeStem(in / "stem.wav");
    const auto options = optionsFor(ProcessingMode::single, FrameRatePreset::fps25, out.path());
    const auto files = describeAll({ltc, stem});
    const auto cancelled = [] { return true; };
    // One file of a grouped run: refused before even the cancellation check
    // (single and cut runs take a recording alone, below).
    auto grouped = options;
    grouped.mode = ProcessingMode::groupedBatch;
    EXPECT_EQ(testing::thrownMessage(
                  [&] { StampProcessor().run(describeAll({ltc}), ltc, grouped, {}, cancelled); }),
              "Please supply at least two WAV files (one LTC + one or more stems).");
    EXPECT_EQ(
        testing::thrownMessage([&] { StampProcessor().run(files, ltc, options, {}, cancelled); }),
        "Operation cancelled.");
    auto cut = options;
    cut.mode = ProcessingMode::cutDetect;
    for (const auto& o : {options, cut}) {
        EXPECT_EQ(testing::thrownMessage([&] { StampProcessor().run(files, std::nullopt, o); }),
                  "No LTC source file selected.");
    }
    EXPECT_TRUE(fs::is_empty(out.path()));
}

// A failing job is reported and logged; it writes nothing but the log.
TEST(StampProcessorTest, FailedJobsAreReportedAndLogged) {
    TempDir in;
    const fs::path silent = in / "silent.wav";
    writeFile(silent, testing::makePcm(24, 48000, {std::vector<float>(144000, 0.0f)}),
              WriteMode::createNew);
    const fs::path ltc = ltc25(in);
    const fs::path stem = testing::writeStem(in / "A.wav");
    const fs::path odd = testing::writeStem(in / "odd.wav", 3, 1, 44100);
    struct Case {
        std::vector<fs::path> files;
        fs::path ltc;
        std::string suffix;
        std::string error;
    };
    for (const Case& c :
         {Case{{silent, stem}, silent, "_tc", "LTC signal appears silent or invalid."},
          Case{{ltc, stem, odd},
               ltc,
               "_tc",
               "All WAV files in a job must have matching sample rates."},
          Case{{ltc, stem}, ltc, "/x", "Unsafe output filename: A/x.wav"}}) {
        SCOPED_TRACE(c.error);
        TempDir out;
        auto options = optionsFor(ProcessingMode::single, FrameRatePreset::fps25, out.path());
        options.outputNaming.suffix = c.suffix;
        const auto report = StampProcessor().run(describeAll(c.files), c.ltc, options);
        EXPECT_EQ(report.summary, (RunSummary{1, 0, 1, 1}));
        EXPECT_EQ(report.jobs[0].error, c.error);
        const auto rows = testing::csvRows(report.csvLogURL);
        ASSERT_EQ(rows.size(), 2u);
        EXPECT_EQ(rows[1][8], "failed");
        EXPECT_EQ(rows[1][16], c.error);
        EXPECT_EQ(testing::entryCount(out.path()), 1u);
    }
}

TEST(StampProcessorTest, CollisionBehaviours) {
    TempDir in, out;
    fs::create_directories(in / "day2");
    const fs::path ltc = ltc25(in);
    const fs::path a1 = testing::writeStem(in / "A.wav", 2);
    const fs::path a2 = testing::writeStem(in / "day2" / "A.wav", 3);
    const auto files = describeAll({ltc, a1, a2});
    auto options = optionsFor(ProcessingMode::single, FrameRatePreset::fps25, out.path());
    StampProcessor processor;

    // Ask: the second output of the same name fails the job, and the job takes
    // back the first, so the disk agrees with the report.
    const auto asked = processor.run(files, ltc, options);
    EXPECT_EQ(asked.jobs[0].error, "Output file already exists: A_tc.wav");
    EXPECT_TRUE(asked.outputFiles.empty());
    EXPECT_FALSE(fs::exists(out / "A_tc.wav"));
    const auto jobs = processor.buildJobs(files, ltc, options);
    EXPECT_TRUE(processor.existingOutputs(jobs, options).empty());

    options.outputNaming.collisionBehavior = OutputCollisionBehavior::keepBoth;
    const auto kept = processor.run(files, ltc, options);
    EXPECT_EQ(kept.outputFiles, (std::vector<std::string>{"A_tc.wav", "A_tc_2.wav"}));
    EXPECT_EQ(testing::sndfileFrames(out / "A_tc_2.wav"), 144000);
    EXPECT_EQ(processor.existingOutputs(jobs, options), (std::vector<fs::path>{out / "A_tc.wav"}));
    // Overwrite within a run is the output naming's test.
}

// An output folder removed mid-run fails the run cleanly; a cancel keeps the
// outputs of finished jobs and writes nothing more, not even the log.
TEST(StampProcessorTest, VanishingFolderAndCancellationDuringJobs) {
    TempDir in, out;
    const fs::path folder = out / "gone";
    fs::create_directories(folder);
    const fs::path ltc = ltc25(in);
    const auto files = describeAll({ltc, testing::writeStem(in / "A.wav")});
    const std::string error = testing::thrownMessage([&] {
        StampProcessor().run(files, ltc,
                             optionsFor(ProcessingMode::single, FrameRatePreset::fps25, folder),
                             [&](const ProcessingProgress& p) {
                                 if (p.message == "Processing single...") {
                                     fs::remove_all(folder);
                                 }
                             });
    });
    EXPECT_THAT(error, ::testing::HasSubstr("No such file or directory"));
    EXPECT_FALSE(fs::exists(folder));

    std::vector<fs::path> paths;
    for (const std::string take : {"T1", "T2"}) {
        paths.push_back(testing::writeLTCFile(in / ("A-" + take + "-ltc.wav"),
                                              FrameRatePreset::fps25, {1, 0, 0, 0, false}, 0, 2));
        paths.push_back(testing::writeStem(in / ("A-" + take + "-stem.wav"), 2));
    }
    bool cancel = false;
    EXPECT_EQ(testing::thrownMessage([&] {
                  StampProcessor().run(
                      describeAll(paths), std::nullopt,
                      optionsFor(ProcessingMode::groupedBatch, FrameRatePreset::fps25, out.path()),
                      [&](const ProcessingProgress& p) {
                          cancel = cancel || p.message.starts_with("Wrote");
                      },
                      [&] { return cancel; });
              }),
              "Operation cancelled.");
    EXPECT_TRUE(fs::exists(out / "A-T1-stem_tc.wav"));
    EXPECT_EQ(testing::entryCount(out.path()), 1u);
}

TEST(StampProcessorTest, ConfidenceGate) {
    EXPECT_EQ(testing::thrownMessage([] { JobExecutor::confidenceWarnings(0.54, false); }),
              "LTC decoding confidence is low (54%). Confirm before stamping.");
    const auto forced = JobExecutor::confidenceWarnings(0.54, true);
    ASSERT_EQ(forced.size(), 1u);
    EXPECT_EQ(forced[0].message, "Decode confidence is below ideal (54%).");
    EXPECT_EQ(JobExecutor::confidenceWarnings(0.55, false).size(), 1u);
    EXPECT_TRUE(JobExecutor::confidenceWarnings(0.7, false).empty());
}

// A recording alone is stamped from its own code: as one file under a given
// rate or Auto, or cut at its takes. 10:00:00:00 begins 1,000 samples in (0.52
// of a 25 fps frame): the frame mode steps back a whole frame, the sample mode
// writes the exact samples since midnight of sample 0. The second take,
// 14:30:00:00, begins at 1.6 s (sample 76,800, a frame start).
TEST(StampProcessorTest, ARecordingAloneIsStampedFromItsOwnCode) {
    TempDir in;
    const fs::path roll =
        testing::writeLTCFile(in / "roll.wav", FrameRatePreset::fps25, {10, 0, 0, 0, false}, 1000,
                              4, 1, 1, {LTCRecordingJump{1.6, Timecode{14, 30, 0, 0, false}}});
    const FrameRateConfig fps25 = testing::rateOf(FrameRatePreset::fps25);
    const auto midnightTo = [&](const Timecode& t) {
        return static_cast<double>(TimecodeMath::frameCount(t, fps25)) * 1920;
    };
    const double tenOClock = midnightTo({10, 0, 0, 0, false});
    const double halfPast = midnightTo({14, 30, 0, 0, false});

    struct Case {
        ProcessingMode mode;
        FrameRatePreset preset;
        TimeReferenceMode reference;
        std::vector<double> timeReferences;
    };
    using enum ProcessingMode;
    using enum TimeReferenceMode;
    const auto fps25Preset = FrameRatePreset::fps25;
    const auto autoRate = FrameRatePreset::auto_;
    for (const Case& c : {Case{single, fps25Preset, frame, {tenOClock - 1920}},
                          Case{single, autoRate, sample, {tenOClock - 1000}},
                          Case{cutDetect, autoRate, frame, {tenOClock - 1920, halfPast}},
                          Case{cutDetect, autoRate, sample, {tenOClock - 1000, halfPast}}}) {
        SCOPED_TRACE(label(c.mode) + " " + label(c.preset) + " " +
                     std::to_string(c.reference == sample));
        TempDir out;
        auto options = optionsFor(c.mode, c.preset, out.path());
        options.timeReferenceMode = c.reference;
        const ProcessingReport report =
            StampProcessor().run(describeAll({roll}), std::nullopt, options);
        ASSERT_EQ(report.outputFiles.size(), c.timeReferences.size());
        EXPECT_EQ(report.detectedFrameRate, "25");
        for (std::size_t i = 0; i < c.timeReferences.size(); ++i) {
            EXPECT_NEAR(
                static_cast<double>(*testing::sndfileTimeReference(out / report.outputFiles[i])),
                c.timeReferences[i], c.reference == TimeReferenceMode::frame ? 0.0 : 2.0);
        }
        if (c.mode == ProcessingMode::single) {
            // Either way the report shows where sample 0 lies against its frame.
            EXPECT_EQ(report.stampedStartTimecode, "09:59:59:24");
            EXPECT_NEAR(report.subFrameOffsetSamples, 1920 - 1000, 1.0);
        } else {
            // The second take begins at its own first frame, to the sample.
            EXPECT_NEAR(static_cast<double>(testing::sndfileFrames(out / report.outputFiles[0])),
                        76800, 2);
        }
    }
}

}  // namespace
}  // namespace norvane
