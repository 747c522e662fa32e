#include "core/stamp/csv_logger.h"

#include <gtest/gtest.h>

#include "core/common/file_output.h"
#include "tests/support/test_support.h"

namespace norvane {
namespace {

namespace fs = std::filesystem;

TEST(CSVLoggerTest, RowsFollowTheHeaderWithGuardsAndQuoting) {
    ProcessedFileRecord ok;
    ok.sourceFile = "A.wav";
    ok.outputFile = "A_tc.wav";
    ok.ltcFile = "LTC.wav";
    ok.sampleRate = 48000;
    ok.frameRate = "29.97 DF";
    ok.firstValidLTCSample = 1000;
    ok.firstValidLTCSeconds = 1000.0 / 48000.0;
    ok.stampedStartTimecode = "01:00:00;00";
    ok.status = "ok";
    ok.warning = "Decode confidence is below ideal (54%).";
    ok.mode = "Grouped Batch";
    ok.groupID = "-take3";
    ok.segmentLengthSamples = "480000";  // never logged
    ok.timeReferenceSamples = "172972800";

    ProcessedFileRecord failed;
    failed.ltcFile = "LTC.wav";
    failed.status = "failed";
    failed.warning = "Job failed: a, b";
    failed.mode = "LTC Cut Detect";
    failed.groupID = "cut-detect";
    failed.segmentIndex = "2";
    failed.segmentStartSample = "48000";
    failed.segmentEndSample = "96000";
    failed.errorCode = "say \"hi\"\nnow";

    testing::TempDir dir;
    CSVLogger::write({ok, failed}, dir / "log.csv");
    const std::string text = testing::readText(dir / "log.csv");
    const std::string expectedRows =
        "\nA.wav,A_tc.wav,LTC.wav,48000,29.97 DF,1000,0.020833,01:00:00;00,ok,"
        "Decode confidence is below ideal (54%).,Grouped Batch,'-take3,,,,172972800,"
        "\n,,LTC.wav,0,,0,0.000000,,failed,\"Job failed: a, b\",LTC Cut Detect,cut-detect,2,"
        "48000,96000,,\"say \"\"hi\"\"\nnow\"";
    EXPECT_EQ(text, std::string(CSVLogger::kHeader) + expectedRows);

    // Writing again replaces the log; the header alone ends without a line feed.
    CSVLogger::write({}, dir / "log.csv");
    EXPECT_EQ(testing::readText(dir / "log.csv"),
              "source_file,output_file,ltc_file,sample_rate,frame_rate,first_valid_ltc_sample,"
              "first_valid_ltc_seconds,stamped_start_timecode,status,warning,mode,group_id,"
              "segment_index,segment_start_sample,segment_end_sample,time_reference_samples,"
              "error_code");
}

TEST(CSVLoggerTest, FieldGuard) {
    EXPECT_EQ(CSVLogger::escapeField("=SUM(A1)"), "'=SUM(A1)");
    EXPECT_EQ(CSVLogger::escapeField("-5"), "'-5");
    EXPECT_EQ(CSVLogger::escapeField("\tx"), "'\tx");
    // A carriage return is guarded when it leads but never quoted for.
    EXPECT_EQ(CSVLogger::escapeField("\rx"), "'\rx");
    EXPECT_EQ(CSVLogger::escapeField("a\rb"), "a\rb");
    EXPECT_EQ(CSVLogger::escapeField("=a,b"), "\"'=a,b\"");
    EXPECT_EQ(CSVLogger::escapeField("a-b"), "a-b");
}

// Two runs in one millisecond get two logs; cells that are not UTF-8 are
// written with U+FFFD so the log stays a UTF-8 text.
TEST(CSVLoggerTest, LogsNeverReplaceEachOtherAndStayUTF8) {
    testing::TempDir dir;
    ProcessedFileRecord record;
    record.sourceFile = "take\xff.wav";
    const fs::path first = CSVLogger::writeNew({record}, dir.path(), "log.csv");
    const fs::path second = CSVLogger::writeNew({}, dir.path(), "log.csv");
    EXPECT_EQ(first, dir / "log.csv");
    EXPECT_EQ(second, dir / "log_2.csv");
    const ByteBuffer bytes = readWholeFile(first);
    EXPECT_NE(std::string(bytes.begin(), bytes.end()).find("\ntake\xEF\xBF\xBD.wav,"),
              std::string::npos);
    EXPECT_EQ(CSVLogger::escapeField("-\xfe"), "'-\xEF\xBF\xBD");
}

}  // namespace
}  // namespace norvane
