// norvane demo: a small shoot day made on the spot, stamped, split and rebuilt,
// so a new user sees every tool work end to end without material of their own.
#include <filesystem>
#include <iostream>
#include <string>
#include <vector>

#include <fmt/format.h>

#include "cli/cli_common.h"
#include "cli/demo_rebuild.h"
#include "core/audio/bwf_reader.h"
#include "core/audio/ltc_recording.h"
#include "core/audio/wav_file.h"
#include "core/common/file_output.h"
#include "core/split/poly_wav_split_processor.h"
#include "core/stamp/stamp_processor.h"
#include "core/timecode/frame_rate_detection.h"
#include "core/timecode/timecode.h"

namespace norvane::cli {

namespace fs = std::filesystem;

namespace {

constexpr std::int64_t kSampleRate = 48000;
constexpr double kSeconds = 6.0;
// Not a whole number of 25 fps frames (1,920 samples each): 0.64 of a frame,
// which the stamp rounds to one frame before the first decoded frame.
constexpr std::int64_t kLeadInSamples = 1234;

void printHeading(const std::string& text) {
    std::cout << "\n== " << text << " ==\n";
}

// What `norvane info` shows about an output's timecode metadata.
void printReadBack(const fs::path& path, const FrameRateConfig& rate) {
    const WAVFile file{path};
    std::cout << path.filename().string() << ": " << file.fmt().channelCount << " ch, "
              << file.fmt().sampleRate << " Hz, " << file.fmt().bitsPerSample << "-bit, "
              << fmt::format("{:.3f}", file.duration()) << " s\n";
    std::cout << "  chunks:";
    for (const WAVChunk& chunk : file.chunks()) {
        std::cout << " " << chunk.id;
    }
    std::cout << "\n";
    if (auto info = BWFReader::info(file)) {
        const auto tc = BWFReader::timecode(info->timeReferenceSamples, info->sampleRate,
                                            rate.numerator, rate.denominator, rate.dropFrame);
        std::cout << "  bext TimeReference: " << info->timeReferenceSamples << " samples ("
                  << tc.value_or("none") << " at " << rate.label << " fps)\n";
    }
    if (auto ixml = BWFReader::ixmlText(file)) {
        const auto begin = ixml->find("<TIMECODE>");
        const auto end = ixml->find("</TIMECODE>");
        if (begin != std::string::npos && end != std::string::npos) {
            std::cout << "  iXML TIMECODE: " << ixml->substr(begin + 10, end - begin - 10) << "\n";
        }
    }
}

int runDemo(const fs::path& folder) {
    setFrameRateDiagnosticsStream(nullptr);
    const fs::path inputs = folder / "shoot_day";
    const fs::path stamped = folder / "stamped";
    const fs::path split = folder / "split";
    fs::create_directories(inputs);
    fs::create_directories(stamped);
    fs::create_directories(split);

    const FrameRateConfig rate = *frameRateConfig(FrameRatePreset::fps25);
    const Timecode ltcStart{14, 23, 5, 12, false};

    printHeading("Shoot day");
    LTCRecordingOptions recording;
    recording.rate = rate;
    recording.start = ltcStart;
    recording.seconds = kSeconds;
    recording.sampleRate = kSampleRate;
    recording.channels = 4;
    recording.ltcChannel = 4;
    recording.format = LTCRecordingFormat::pcm24;
    recording.leadInSamples = kLeadInSamples;
    const fs::path poly = inputs / "A012_T03.wav";
    const LTCRecordingSummary summary = writeLTCRecording(poly, recording, /*overwrite=*/true);
    writeFile(inputs / "A012_T03_boom.wav", demoToneWav(1, summary.frameCount, 220.0),
              WriteMode::replaceAtomically);
    writeFile(inputs / "A012_T03_lav1.wav", demoToneWav(1, summary.frameCount, 330.0),
              WriteMode::replaceAtomically);
    const std::int64_t samplesPerFrame = kSampleRate / 25;
    const std::int64_t offsetFrames =
        (kLeadInSamples + samplesPerFrame / 2) / samplesPerFrame;  // nearest whole frame
    const Timecode expected = TimecodeMath::timecodeMinusFrames(ltcStart, offsetFrames, rate);
    std::cout << "Wrote " << poly.string() << " (4 channels, LTC " << ltcStart.description()
              << " at 25 fps on channel 4 after " << kLeadInSamples << " samples of silence)\n"
              << "Wrote two mono stems beside it (boom, lav1)\n"
              << "Expected start timecode of the file set: " << expected.description() << "\n";

    printHeading("LTC stamp (Single mode, Auto frame rate, LTC channel found automatically)");
    std::vector<FileDescriptor> files;
    for (const char* name : {"A012_T03.wav", "A012_T03_boom.wav", "A012_T03_lav1.wav"}) {
        files.push_back(StampProcessor::describeFile(inputs / name));
    }
    ProcessingOptions options;
    options.mode = ProcessingMode::single;
    options.frameRatePreset = FrameRatePreset::auto_;
    options.outputFolder = stamped;
    options.includeLTCOutputs = true;
    options.outputNaming.collisionBehavior = OutputCollisionBehavior::overwrite;
    const ProcessingReport report = StampProcessor{}.run(files, poly, options);
    std::cout << reportText(report) << "\n";
    const bool match = report.stampedStartTimecode == expected.description();
    std::cout << (match ? "Stamped start timecode matches the generated signal.\n"
                        : "Stamped start timecode DIFFERS from the generated signal.\n");

    printHeading("Read back from a stamped file");
    if (!report.outputFiles.empty()) {
        fs::path first = report.outputFiles.front();
        if (first.is_relative()) {
            first = stamped / first;
        }
        printReadBack(first, rate);
    }

    printHeading("Poly WAV split");
    const PolyWavSplitReport splitReport =
        PolyWavSplitProcessor::split({poly}, split, /*overwriteExisting=*/true);
    for (const PolyWavSplitFileResult& result : splitReport.fileResults) {
        std::cout << "Wrote " << result.outputURLs.size() << " channel file(s) for "
                  << result.inputURL.filename().string() << ".\n";
    }
    for (const fs::path& path : splitReport.outputPaths) {
        std::cout << "- " << path.string() << "\n";
    }

    printHeading("Timeline rebuild");
    const int rebuildExit = runRebuildDemo(folder / "rebuild");

    std::cout << "\nDemo files are in " << fs::absolute(folder).string() << "\n";
    if (!match || report.summary.failedJobs > 0) {
        return kExitJobsFailed;
    }
    return rebuildExit;
}

}  // namespace

Command addDemoCommand(CLI::App& parent) {
    auto folder = std::make_shared<std::string>("norvane-demo");
    Command command;
    command.app = parent.add_subcommand(
        "demo",
        "Make a small shoot day in DIR (default ./norvane-demo), stamp, split and rebuild it");
    command.app->add_option("DIR", *folder, "Folder for the demo's inputs and outputs");
    command.run = [folder] { return runDemo(fs::path(*folder)); };
    return command;
}

}  // namespace norvane::cli
