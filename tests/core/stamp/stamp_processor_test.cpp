#include "core/stamp/stamp_processor.h"

#include <cctype>

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

std::string runError(const std::function<void()>& f) {
    try {
        f();
    } catch (const std::exception& e) {
        return describeError(e);
    }
    return "no error";
}

struct RateCase {
    FrameRatePreset preset;
    Timecode atLeadIn;
    std::int64_t leadIn;
    const char* expectedStart;
};

class SingleRunTest : public ::testing::TestWithParam<RateCase> {};

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
    EXPECT_EQ(expected.timecode.description(), c.expectedStart);
    EXPECT_EQ(report.stampedStartTimecode, c.expectedStart);
    EXPECT_EQ(report.detectedFrameRate, rate.label);
    EXPECT_EQ(report.chosenLTCFile, "Take 1 LTC.wav");
    EXPECT_EQ(report.sampleRate, 48000);
    // The decoder may lock onto a later frame; it still starts on the frame grid.
    const double perFrame =
        48000.0 * static_cast<double>(rate.denominator) / static_cast<double>(rate.numerator);
    const double offGrid =
        std::remainder(static_cast<double>(report.firstValidLTCSample - c.leadIn), perFrame);
    EXPECT_LE(std::abs(offGrid), 8.0) << report.firstValidLTCSample;
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
    std::uint64_t runBytes = 0;
    for (const ProcessingProgress& p : progress) {
        if (!p.file.empty()) {
            lastFileBytes[p.file] = p.fileBytesDone;
        }
        EXPECT_GE(p.bytesDone, runBytes) << p.message;
        runBytes = p.bytesDone;
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
        RateCase{FrameRatePreset::fps24, {0, 0, 0, 0, false}, 2500, "23:59:59:23"},
        RateCase{FrameRatePreset::fps30, {12, 30, 15, 10, false}, 0, "12:30:15:10"}),
    [](const auto& testInfo) {
        std::string name = label(testInfo.param.preset) + "_" + std::to_string(testInfo.index);
        for (char& ch : name) {
            if (!std::isalnum(static_cast<unsigned char>(ch))) {
                ch = '_';
            }
        }
        return name;
    });

TEST(StampProcessorTest, AutoRateOfASingleJobIsTheDecodersOwnChoice) {
    TempDir in, out;
    const fs::path ltc =
        testing::writeLTCFile(in / "ltc.wav", FrameRatePreset::fps25, {1, 2, 3, 4, false}, 0);
    const fs::path stem = testing::writeStem(in / "stem.wav");
    const auto report = StampProcessor().run(
        describeAll({ltc, stem}), ltc,
        optionsFor(ProcessingMode::single, FrameRatePreset::auto_, out.path()));
    EXPECT_EQ(report.detectedFrameRate, "25");
    EXPECT_EQ(report.stampedStartTimecode, "01:02:03:04");
    EXPECT_EQ(testing::sndfileTimeReference(out / "stem_tc.wav"),
              static_cast<std::uint64_t>(((3600 + 120 + 3) * 25 + 4) * 1920));
}

TEST(StampProcessorTest, InputErrorsEndTheRunBeforeAnythingIsWritten) {
    TempDir in, out;
    const fs::path ltc =
        testing::writeLTCFile(in / "ltc.wav", FrameRatePreset::fps25, {1, 0, 0, 0, false}, 0);
    const fs::path stem = testing::writeStem(in / "stem.wav");
    const auto options = optionsFor(ProcessingMode::single, FrameRatePreset::fps25, out.path());
    // One file of a grouped run: refused before even the cancellation check
    // (single and cut runs take a recording alone, below).
    auto grouped = options;
    grouped.mode = ProcessingMode::groupedBatch;
    EXPECT_EQ(runError([&] {
                  StampProcessor().run(describeAll({ltc}), ltc, grouped, {}, [] { return true; });
              }),
              "Please supply at least two WAV files (one LTC + one or more stems).");
    EXPECT_EQ(
        runError([&] {
            StampProcessor().run(describeAll({ltc, stem}), ltc, options, {}, [] { return true; });
        }),
        "Operation cancelled.");
    EXPECT_EQ(runError([&] {
                  StampProcessor().run(describeAll({ltc, stem}), std::nullopt, options);
              }),
              "No LTC source file selected.");
    auto cut = options;
    cut.mode = ProcessingMode::cutDetect;
    EXPECT_EQ(runError([&] {
                  StampProcessor().run(describeAll({ltc, stem}), std::nullopt, cut);
              }),
              "No LTC source file selected.");
    EXPECT_TRUE(fs::is_empty(out.path()));
}

TEST(StampProcessorTest, FailedJobsAreReportedAndLogged) {
    TempDir in, out;
    const fs::path silent = in / "silent.wav";
    writeFile(silent, testing::makePcm(24, 48000, {std::vector<float>(144000, 0.0f)}),
              WriteMode::createNew);
    const fs::path stem = testing::writeStem(in / "stem.wav");
    const auto report = StampProcessor().run(
        describeAll({silent, stem}), silent,
        optionsFor(ProcessingMode::single, FrameRatePreset::fps25, out.path()));
    EXPECT_EQ(report.summary, (RunSummary{1, 0, 1, 1}));
    EXPECT_EQ(report.jobs[0].error, "LTC signal appears silent or invalid.");
    const auto rows = testing::csvRows(report.csvLogURL);
    ASSERT_EQ(rows.size(), 2u);
    EXPECT_EQ(rows[1][8], "failed");
    EXPECT_EQ(rows[1][16], "LTC signal appears silent or invalid.");

    // A stem at another sample rate fails the job.
    TempDir out2;
    const fs::path ltc =
        testing::writeLTCFile(in / "ltc.wav", FrameRatePreset::fps25, {1, 0, 0, 0, false}, 0);
    const fs::path odd = testing::writeStem(in / "odd.wav", 3, 1, 44100);
    const auto mismatch = StampProcessor().run(
        describeAll({ltc, stem, odd}), ltc,
        optionsFor(ProcessingMode::single, FrameRatePreset::fps25, out2.path()));
    EXPECT_EQ(mismatch.jobs[0].error, "All WAV files in a job must have matching sample rates.");
    EXPECT_EQ(fs::directory_iterator(out2.path())->path().extension(), ".csv");
}

TEST(StampProcessorTest, UnsafeSuffixFailsTheJobAndWritesNothing) {
    TempDir in, out;
    const fs::path ltc =
        testing::writeLTCFile(in / "ltc.wav", FrameRatePreset::fps25, {1, 0, 0, 0, false}, 0);
    const fs::path stem = testing::writeStem(in / "A.wav");
    auto options = optionsFor(ProcessingMode::single, FrameRatePreset::fps25, out.path());
    options.outputNaming.suffix = "/x";
    const auto report = StampProcessor().run(describeAll({ltc, stem}), ltc, options);
    EXPECT_EQ(report.jobs[0].error, "Unsafe output filename: A/x.wav");
    EXPECT_EQ(std::distance(fs::directory_iterator(out.path()), fs::directory_iterator()), 1);
}

TEST(StampProcessorTest, CollisionBehaviours) {
    TempDir in, out;
    fs::create_directories(in / "day2");
    const fs::path ltc =
        testing::writeLTCFile(in / "ltc.wav", FrameRatePreset::fps25, {1, 0, 0, 0, false}, 0);
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

    // Overwrite replaces what was there before the run, never an output of
    // the same run: the second A.wav takes the next free number.
    options.outputNaming.collisionBehavior = OutputCollisionBehavior::overwrite;
    const auto replaced = processor.run(files, ltc, options);
    EXPECT_EQ(replaced.outputFiles, (std::vector<std::string>{"A_tc.wav", "A_tc_3.wav"}));
    EXPECT_EQ(testing::sndfileFrames(out / "A_tc.wav"), 96000);
    EXPECT_EQ(testing::sndfileFrames(out / "A_tc_3.wav"), 144000);
    EXPECT_TRUE(replaced.warnings.empty()) << reportText(replaced);
}

TEST(StampProcessorTest, VanishingOutputFolderFailsTheJobCleanly) {
    TempDir in, out;
    const fs::path ltc =
        testing::writeLTCFile(in / "ltc.wav", FrameRatePreset::fps25, {1, 0, 0, 0, false}, 0);
    const fs::path stem = testing::writeStem(in / "A.wav");
    const fs::path folder = out / "gone";
    fs::create_directories(folder);
    const auto options = optionsFor(ProcessingMode::single, FrameRatePreset::fps25, folder);
    bool removed = false;
    const std::string error = runError([&] {
        StampProcessor().run(describeAll({ltc, stem}), ltc, options,
                             [&](const ProcessingProgress& p) {
                                 if (p.message == "Processing single..." && !removed) {
                                     fs::remove_all(folder);
                                     removed = true;
                                 }
                             });
    });
    EXPECT_THAT(error, ::testing::HasSubstr("No such file or directory"));
    EXPECT_FALSE(fs::exists(folder));
}

TEST(StampProcessorTest, CancellationDuringJobs) {
    TempDir in, out;
    std::vector<fs::path> paths;
    for (const std::string take : {"T1", "T2"}) {
        paths.push_back(testing::writeLTCFile(in / ("A-" + take + "-ltc.wav"),
                                              FrameRatePreset::fps25, {1, 0, 0, 0, false}, 0, 2));
        paths.push_back(testing::writeStem(in / ("A-" + take + "-stem.wav"), 2));
    }
    auto options = optionsFor(ProcessingMode::groupedBatch, FrameRatePreset::fps25, out.path());
    bool cancel = false;
    const std::string error = runError([&] {
        StampProcessor().run(
            describeAll(paths), std::nullopt, options,
            [&](const ProcessingProgress& p) { cancel = cancel || p.message.starts_with("Wrote"); },
            [&] { return cancel; });
    });
    EXPECT_EQ(error, "Operation cancelled.");
    // The first job's output stays; no second output, no log.
    EXPECT_TRUE(fs::exists(out / "A-T1-stem_tc.wav"));
    EXPECT_FALSE(fs::exists(out / "A-T2-stem_tc.wav"));
    EXPECT_EQ(std::distance(fs::directory_iterator(out.path()), fs::directory_iterator()), 1);
}

TEST(StampProcessorTest, ConfidenceGate) {
    EXPECT_EQ(runError([] { JobExecutor::confidenceWarnings(0.54, false); }),
              "LTC decoding confidence is low (54%). Confirm before stamping.");
    const auto forced = JobExecutor::confidenceWarnings(0.54, true);
    ASSERT_EQ(forced.size(), 1u);
    EXPECT_EQ(forced[0].message, "Decode confidence is below ideal (54%).");
    EXPECT_TRUE(JobExecutor::confidenceWarnings(0.55, false).size() == 1);
    EXPECT_TRUE(JobExecutor::confidenceWarnings(0.7, false).empty());
}

TEST(StampProcessorTest, StartBeforeMidnightWrapsAndTimeReferenceFollowsTheTimecode) {
    LTCDecodeResult decode;
    decode.frameRate = testing::rateOf(FrameRatePreset::fps25);
    decode.timecode = {0, 0, 0, 1, false};
    const Timecode start = JobExecutor::startTimecode(decode, 1920 * 3, 48000);
    EXPECT_EQ(start.description(), "23:59:59:23");
    EXPECT_EQ(JobExecutor::timeReference(start, decode.frameRate, 48000),
              static_cast<std::uint64_t>(86400 * 25 - 2) * 1920);
}

TEST(StampProcessorTest, ARecordingAloneIsStampedFromItsOwnCode) {
    TempDir in, out;
    // Two takes in one roll: 10:00:00:00 from sample 1000, 14:30:00:00 from
    // 1.6 s (sample 76,800, a frame start).
    const fs::path roll =
        testing::writeLTCFile(in / "roll.wav", FrameRatePreset::fps25, {10, 0, 0, 0, false}, 1000,
                              4, 1, 1, {LTCRecordingJump{1.6, Timecode{14, 30, 0, 0, false}}});
    const FrameRateConfig fps25 = testing::rateOf(FrameRatePreset::fps25);

    for (const FrameRatePreset preset : {FrameRatePreset::fps25, FrameRatePreset::auto_}) {
        TempDir single;
        const ProcessingReport report =
            StampProcessor().run(describeAll({roll}), std::nullopt,
                                 optionsFor(ProcessingMode::single, preset, single.path()));
        ASSERT_EQ(report.outputFiles.size(), 1u);
        EXPECT_EQ(report.detectedFrameRate, "25");
        const auto expected = testing::expectedStart({10, 0, 0, 0, false}, 1000, fps25);
        EXPECT_EQ(testing::sndfileTimeReference(single / report.outputFiles[0]),
                  expected.timeReference);
    }

    auto cut = optionsFor(ProcessingMode::cutDetect, FrameRatePreset::auto_, out.path());
    const ProcessingReport report = StampProcessor().run(describeAll({roll}), std::nullopt, cut);
    ASSERT_EQ(report.outputFiles.size(), 2u);
    const fs::path second = out / report.outputFiles[1];
    // The second take begins at its own first frame, to the sample, and is
    // stamped with its own code.
    EXPECT_NEAR(static_cast<double>(testing::sndfileFrames(out / report.outputFiles[0])), 76800, 2);
    EXPECT_EQ(
        testing::sndfileTimeReference(second),
        static_cast<std::uint64_t>(TimecodeMath::frameCount({14, 30, 0, 0, false}, fps25)) * 1920);
    EXPECT_EQ(testing::sndfileTimeReference(out / report.outputFiles[0]),
              testing::expectedStart({10, 0, 0, 0, false}, 1000, fps25).timeReference);

    // In sample mode each segment's TimeReference is its first sample exactly:
    // 1,000 samples before 10:00:00:00 (not the whole frame the frame mode
    // steps back), and the second take's first frame.
    TempDir exact;
    cut.outputFolder = exact.path();
    cut.timeReferenceMode = TimeReferenceMode::sample;
    const ProcessingReport sampled = StampProcessor().run(describeAll({roll}), std::nullopt, cut);
    ASSERT_EQ(sampled.outputFiles.size(), 2u);
    const double tenOClock =
        static_cast<double>(TimecodeMath::frameCount({10, 0, 0, 0, false}, fps25)) * 1920;
    const double halfPast =
        static_cast<double>(TimecodeMath::frameCount({14, 30, 0, 0, false}, fps25)) * 1920;
    EXPECT_NEAR(static_cast<double>(*testing::sndfileTimeReference(exact / sampled.outputFiles[0])),
                tenOClock - 1000, 2.0);
    EXPECT_NEAR(static_cast<double>(*testing::sndfileTimeReference(exact / sampled.outputFiles[1])),
                halfPast, 2.0);
}

TEST(StampProcessorTest, SampleTimeReferenceIsTheExactFirstSample) {
    // 10:00:00:00 begins 1,000 samples into the file (0.52 of a frame at
    // 25 fps): frame mode steps back a whole frame, sample mode writes the
    // exact samples since midnight of sample 0.
    TempDir in;
    const fs::path ltc =
        testing::writeLTCFile(in / "ltc.wav", FrameRatePreset::fps25, {10, 0, 0, 0, false}, 1000);
    const fs::path stem = testing::writeStem(in / "stem.wav");
    const FrameRateConfig fps25 = testing::rateOf(FrameRatePreset::fps25);
    const std::uint64_t midnightToCode =
        static_cast<std::uint64_t>(TimecodeMath::frameCount({10, 0, 0, 0, false}, fps25)) * 1920;
    for (const TimeReferenceMode mode : {TimeReferenceMode::frame, TimeReferenceMode::sample}) {
        TempDir out;
        auto options = optionsFor(ProcessingMode::single, FrameRatePreset::auto_, out.path());
        options.timeReferenceMode = mode;
        const ProcessingReport report =
            StampProcessor().run(describeAll({ltc, stem}), ltc, options);
        ASSERT_EQ(report.outputFiles.size(), 1u);
        const auto written = testing::sndfileTimeReference(out / report.outputFiles[0]);
        ASSERT_TRUE(written.has_value());
        // Either way the report shows where sample 0 lies against its frame.
        EXPECT_NEAR(report.subFrameOffsetSamples, 1920 - 1000, 1.0);
        EXPECT_EQ(report.stampedStartTimecode, "09:59:59:24");
        if (mode == TimeReferenceMode::frame) {
            EXPECT_EQ(*written, midnightToCode - 1920);
        } else {
            EXPECT_NEAR(static_cast<double>(*written), static_cast<double>(midnightToCode - 1000),
                        1.0);
        }
    }
}

}  // namespace
}  // namespace norvane
