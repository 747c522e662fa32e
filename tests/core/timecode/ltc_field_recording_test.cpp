// Real recordings of LTC from hardware generators, read by libsndfile, against
// libltc's ltcdump of every frame.
#include <sndfile.h>

#include <fstream>
#include <sstream>

#include <gtest/gtest.h>

#include "core/timecode/ltc_decoder.h"
#include "core/timecode/ltc_stream_decode.h"
#include "tests/support/test_support.h"

namespace norvane {
namespace {

std::vector<float> firstChannel(const std::filesystem::path& path, std::int64_t& sampleRate) {
    SF_INFO info{};
    SNDFILE* file = sf_open(path.c_str(), SFM_READ, &info);
    if (!file) {
        ADD_FAILURE() << sf_strerror(nullptr);
        return {};
    }
    std::vector<float> interleaved(static_cast<std::size_t>(info.frames * info.channels));
    sf_readf_float(file, interleaved.data(), info.frames);
    sf_close(file);
    std::vector<float> out;
    for (sf_count_t i = 0; i < info.frames; ++i) {
        out.push_back(interleaved[static_cast<std::size_t>(i * info.channels)]);
    }
    sampleRate = info.samplerate;
    return out;
}

struct DumpFrame {
    std::string timecode;
    std::int64_t first = 0;
};

// "4f434950   00:00:03:01 |      387     2306" lines; '#' lines are comments.
std::vector<DumpFrame> readDump(const std::filesystem::path& path) {
    std::ifstream in(path);
    std::vector<DumpFrame> frames;
    std::string line;
    while (std::getline(in, line)) {
        if (line.empty() || line[0] == '#') {
            continue;
        }
        std::istringstream fields(line);
        std::string userBits;
        std::string bar;
        DumpFrame f;
        std::int64_t last = 0;
        if (fields >> userBits >> f.timecode >> bar >> f.first >> last) {
            frames.push_back(f);
        }
    }
    return frames;
}

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
        std::int64_t sampleRate = 0;
        const std::vector<float> samples = firstChannel(path, sampleRate);
        const std::vector<DumpFrame> dump = readDump(path.string() + ".ltcdump");
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

TEST(LTCFieldRecordingTest, HandheldRecorderStartsWhereLibltcSays) {
    setFrameRateDiagnosticsStream(nullptr);
    const auto path = testing::sharedFixture("field/zoomH6_ltc-recorded-clean.WAV");
    if (path.empty()) {
        return;
    }
    std::int64_t sampleRate = 0;
    const std::vector<float> samples = firstChannel(path, sampleRate);
    const LTCDecodeResult r = LTCDecoder::decodeQuietly(samples, sampleRate);
    EXPECT_EQ(r.timecode.description(), "18:34:17:03");
    EXPECT_NEAR(r.firstValidPosition, 1247, 2.0);
    EXPECT_EQ(r.frameRate, candidateFrameRates()[1]);
}

TEST(LTCFieldRecordingTest, RecordingsWithoutLTCFailClearly) {
    setFrameRateDiagnosticsStream(nullptr);
    for (const char* file : {"field/sd702T_A101_1.WAV", "field/zoomF8_TrL_R.WAV"}) {
        const auto path = testing::sharedFixture(file);
        if (path.empty()) {
            return;
        }
        std::int64_t sampleRate = 0;
        const std::vector<float> samples = firstChannel(path, sampleRate);
        EXPECT_THROW(LTCDecoder::decodeQuietly(samples, sampleRate), LTCDecodeError) << file;
    }
}

}  // namespace
}  // namespace norvane
