#include "cli/demo_rebuild.h"

#include <cmath>
#include <iostream>
#include <numbers>
#include <string>
#include <vector>

#include "cli/cli_common.h"
#include "core/audio/bwf_writer.h"
#include "core/audio/riff_writer.h"
#include "core/audio/wav_file.h"
#include "core/common/file_output.h"
#include "core/rebuild/demo_timeline.h"
#include "core/rebuild/rebuild_engine.h"
#include "core/timecode/timecode.h"

namespace norvane::cli {

namespace fs = std::filesystem;

namespace {
constexpr std::int64_t kRate = 48000;
constexpr std::int64_t kEventSeconds = 4;
}  // namespace

ByteBuffer demoToneWav(int channels, std::int64_t frames, double frequency) {
    ByteBuffer data;
    data.reserve(static_cast<std::size_t>(frames * channels) * 3);
    for (std::int64_t i = 0; i < frames; ++i) {
        for (int c = 0; c < channels; ++c) {
            const double f = frequency * (1.0 + 0.5 * c);
            const double v = 0.1 * std::sin(2.0 * std::numbers::pi * f * static_cast<double>(i) /
                                            static_cast<double>(kRate));
            const auto s = static_cast<std::int32_t>(std::lround(v * 8388607.0));
            data.push_back(static_cast<std::uint8_t>(s & 0xFF));
            data.push_back(static_cast<std::uint8_t>((s >> 8) & 0xFF));
            data.push_back(static_cast<std::uint8_t>((s >> 16) & 0xFF));
        }
    }
    ByteBuffer fmtChunk;
    appendLE16(fmtChunk, 1);  // linear PCM
    appendLE16(fmtChunk, static_cast<std::uint16_t>(channels));
    appendLE32(fmtChunk, static_cast<std::uint32_t>(kRate));
    appendLE32(fmtChunk, static_cast<std::uint32_t>(kRate * 3 * channels));
    appendLE16(fmtChunk, static_cast<std::uint16_t>(3 * channels));
    appendLE16(fmtChunk, 24);
    const RIFFChunk chunks[] = {{"fmt ", fmtChunk}, {"data", data}};
    return serializeRIFF(chunks);
}

int runRebuildDemo(const fs::path& folder) {
    const fs::path synced = folder / "synced";
    const fs::path output = folder / "output";
    fs::create_directories(synced);
    fs::create_directories(output);
    const FrameRateConfig rate = *frameRateConfig(FrameRatePreset::fps25);

    // Three takes, two tracks each, stamped with their start timecode as the
    // LTC stamp would have done.
    const std::vector<Timecode> events = {
        {10, 0, 0, 0, false}, {10, 5, 12, 10, false}, {10, 11, 40, 0, false}};
    for (std::size_t e = 0; e < events.size(); ++e) {
        for (int track = 1; track <= 2; ++track) {
            const WAVFile tone =
                WAVFile::fromBytes(demoToneWav(1, kEventSeconds * kRate, 200.0 * track));
            BWFStampInfo stamp;
            stamp.timeReferenceSamples = TimecodeMath::samplePosition(events[e], kRate, rate);
            stamp.description = "Norvane demo";
            stamp.originator = "Norvane";
            stamp.ixml =
                "<BWFXML>\n  <IXML_VERSION>1.5</IXML_VERSION>\n  <TIMECODE_RATE>25"
                "</TIMECODE_RATE>\n  <TIMECODE_FLAG>NDF</TIMECODE_FLAG>\n  <TIMECODE>" +
                events[e].description() + "</TIMECODE>\n</BWFXML>";
            const std::string name = "evt" + std::string(e < 9 ? "00" : "0") +
                                     std::to_string(e + 1) + "_trk" + std::to_string(track) +
                                     ".wav";
            BWFWriter::write(tone, stamp, synced / name, /*overwrite=*/true);
        }
    }
    const fs::path stereo = folder / "stereo_mix.wav";
    writeFile(
        stereo,
        demoToneWav(2, static_cast<std::int64_t>(events.size()) * kEventSeconds * kRate, 110.0),
        WriteMode::replaceAtomically);

    // Camera A covers every take; camera B missed the second one.
    DemoTimelineSpec cameras;
    cameras.lanes.push_back({"CamA", {{"09:59:58:00"}, {"10:05:10:00"}, {"10:11:38:00"}}});
    cameras.lanes.push_back({"CamB", {{"09:59:59:00"}, {"10:11:39:00"}}});
    const fs::path source = folder / "source_timeline.fcpxml";
    const std::string sourceText = makeDemoSourceTimeline(cameras);
    writeFile(source,
              ByteView(reinterpret_cast<const std::uint8_t*>(sourceText.data()), sourceText.size()),
              WriteMode::replaceAtomically);
    std::cout << "Wrote " << source.string() << " (cameras CamA and CamB), " << stereo.string()
              << " and " << events.size() * 2 << " synced files in " << synced.string() << "\n";

    RebuildInputs inputs;
    inputs.sourceXML = source;
    inputs.stereoMix = stereo;
    inputs.syncedFolder = synced;
    inputs.outputFolder = output;
    const RebuildBuildRun run = buildRebuild(inputs, RebuildChoices{});
    for (const TimelineRebuildValidationItem& item : run.validation.items) {
        std::cout << label(item.severity) << ": " << item.message << "\n";
    }
    std::cout << run.statusMessage << "\n";
    if (!run.report) {
        return kExitFailure;
    }
    std::cout << run.report->trackLayoutSummary << "\n"
              << run.report->fcpxmlValidationSummary << "\n";
    return kExitOk;
}

}  // namespace norvane::cli
