// Real recordings of LTC from hardware generators, read by libsndfile, against
// libltc's ltcdump of every frame.
#include <gtest/gtest.h>

#include "core/timecode/ltc_decoder.h"
#include "core/timecode/ltc_stream_decode.h"
#include "tests/support/ltcdump.h"
#include "tests/support/sndfile_check.h"
#include "tests/support/test_support.h"

namespace norvane {
namespace {

struct Recording {
    const char* file;
    FrameRateConfig rate;
};

TEST(LTCFieldRecordingTest, EveryFrameAndTheStartMatchLtcdump) {
    setFrameRateDiagnosticsStream(nullptr);
    const Recording recordings[] = {
        {"field/atem_24fps.wav", candidateFrameRates()[1]},
        {"field/atem_25fps.wav", candidateFrameRates()[2]},
        {"field/atem_2997fps_ndf.wav", candidateFrameRates()[3]},
        {"field/atem_30fps_ndf.wav", candidateFrameRates()[5]},
    };
    for (const Recording& rec : recordings) {
        SCOPED_TRACE(rec.file);
        const auto path = testing::sharedFixture(rec.file);
        if (path.empty()) {
            return;
        }
        const testing::SndfileView view = testing::openWithSndfile(path);
        const std::int64_t sampleRate = view.sampleRate;
        const std::vector<float> samples = view.channel(0);
        const auto dump = testing::readLtcDump(path);
        ASSERT_GT(dump.size(), 400u);

        // Every frame, in blocks of a streaming reader's size. libltc's first
        // frame after a discontinuity is placed late; it is compared from the
        // second on.
        LTCFrameDecoder decoder(sampleRate);
        for (std::size_t at = 0; at < samples.size(); at += 8192) {
            decoder.push(
                std::span(samples).subspan(at, std::min<std::size_t>(8192, samples.size() - at)),
                static_cast<std::int64_t>(at));
        }
        const std::vector<LTCFrame> frames = decoder.takeFrames();
        ASSERT_EQ(frames.size(), dump.size());
        for (std::size_t i = 1; i < frames.size(); ++i) {
            ASSERT_EQ(frames[i].timecode.description(), dump[i].timecode) << i;
            EXPECT_NEAR(frames[i].firstSample, dump[i].first, 2) << i;
            EXPECT_EQ(frames[i].bitErrors, 0) << i;
        }

        // The start under Auto: the rate measured, the first frame's timecode
        // at the first frame's start (one period before libltc's second frame).
        const LTCDecodeResult r = LTCDecoder::decodeQuietly(samples, sampleRate);
        EXPECT_EQ(r.frameRate, rec.rate) << r.rateEvidence;
        EXPECT_EQ(r.timecode.description(), dump[0].timecode);
        const double period = static_cast<double>(sampleRate) *
                              static_cast<double>(rec.rate.denominator) /
                              static_cast<double>(rec.rate.numerator);
        EXPECT_NEAR(r.firstValidPosition, static_cast<double>(dump[1].first) - period, 2.0);
        EXPECT_DOUBLE_EQ(r.confidence, 1.0);

        // One run over the whole recording: no cut.
        LTCRunScanner scanner(sampleRate, std::nullopt);
        scanner.push(samples, 0);
        EXPECT_EQ(scanner.finish().size(), 1u);
    }
}

// A handheld recorder's LTC track starts where libltc says it does; recorder
// takes without LTC fail clearly.
TEST(LTCFieldRecordingTest, RecorderFilesStartWhereLibltcSaysOrFailClearly) {
    struct Case {
        const char* file;
        const char* timecode;  // nullptr: no LTC
        double first;
    };
    for (const Case& c : {Case{"field/zoomH6_ltc-recorded-clean.WAV", "18:34:17:03", 1247},
                          Case{"field/sd702T_A101_1.WAV", nullptr, 0},
                          Case{"field/zoomF8_TrL_R.WAV", nullptr, 0}}) {
        SCOPED_TRACE(c.file);
        const auto path = testing::sharedFixture(c.file);
        if (path.empty()) {
            return;
        }
        const testing::SndfileView view = testing::openWithSndfile(path);
        const std::int64_t sampleRate = view.sampleRate;
        const std::vector<float> samples = view.channel(0);
        if (c.timecode == nullptr) {
            EXPECT_THROW(LTCDecoder::decodeQuietly(samples, sampleRate), LTCDecodeError);
            continue;
        }
        const LTCDecodeResult r = LTCDecoder::decodeQuietly(samples, sampleRate);
        EXPECT_EQ(r.timecode.description(), c.timecode);
        EXPECT_NEAR(r.firstValidPosition, c.first, 2.0);
        EXPECT_EQ(r.frameRate, candidateFrameRates()[1]);
    }
}

}  // namespace
}  // namespace norvane
