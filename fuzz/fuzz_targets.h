#pragma once

// What the fuzzers beside the WAV one drive, each from one buffer of untrusted
// bytes: the source timeline reader, the LTC decoder, the bext/iXML readers
// and the settings loader. Typed errors are the expected outcome for bad
// input; a crash, a sanitizer report, a hang or any other exception is a bug.
// Shared by the fuzzers and the regression test that replays their findings.

#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <span>
#include <string>
#include <vector>

#include "core/audio/bext.h"
#include "core/audio/bwf_reader.h"
#include "core/audio/bwf_writer.h"
#include "core/audio/ixml.h"
#include "core/audio/riff_writer.h"
#include "core/audio/wav_file.h"
#include "core/common/file_output.h"
#include "core/rebuild/source_timeline.h"
#include "core/rebuild/synced_audio.h"
#include "core/settings/app_settings_store.h"
#include "core/timecode/ltc_decoder.h"
#include "core/timecode/ltc_frame_decoder.h"

namespace norvane::fuzz {

// The bytes as an FCPXML source timeline.
inline void exerciseSourceTimeline(ByteView bytes) {
    try {
        const SourceContext context = readSourceTimeline(
            std::string_view(reinterpret_cast<const char*>(bytes.data()), bytes.size()));
        (void)context;
    } catch (const SourceTimelineError&) {
    }
}

// The first byte picks the sample rate and the frame rate to try (or none:
// the automatic choice over all six); the rest are 16-bit samples, fed to the
// push decoder in blocks of uneven size (with one jump back in position, which
// restarts its reader) and to the whole-span decoders.
inline void exerciseLTCDecoder(ByteView bytes) {
    if (bytes.empty()) {
        return;
    }
    static constexpr std::int64_t kRates[] = {48000, 44100, 96000, 8000};
    const std::int64_t sampleRate = kRates[bytes[0] & 3];
    std::optional<FrameRateConfig> rate;
    const int preset = (bytes[0] >> 2) % 7;
    if (preset > 0) {
        rate = frameRateConfig(static_cast<FrameRatePreset>(preset));
    }
    std::vector<float> samples((bytes.size() - 1) / 2);
    for (std::size_t i = 0; i < samples.size(); ++i) {
        const auto value = static_cast<std::int16_t>(bytes[1 + 2 * i] | (bytes[2 + 2 * i] << 8));
        samples[i] = static_cast<float>(value) / 32768.0F;
    }
    LTCFrameDecoder push(sampleRate);
    std::size_t offset = 0;
    for (std::size_t block = 1 + (bytes[0] % 61); offset < samples.size(); block = block * 3 + 7) {
        const std::size_t n = std::min(block, samples.size() - offset);
        const auto position = static_cast<std::int64_t>(offset == 0 || block != 10 ? offset : 0);
        push.push(std::span<const float>(samples).subspan(offset, n), position);
        offset += n;
        for (const LTCFrame& frame : push.takeFrames()) {
            (void)frame.timecode.description();
        }
    }
    try {
        (void)LTCDecoder::decode(samples, sampleRate, rate);
    } catch (const LTCDecodeError&) {
    }
    (void)LTCDecoder::decodeTimeline(samples, sampleRate, rate, 0.05, 0.02, 8);
}

// The first two bytes give the length of a bext payload taken from the rest;
// what follows is an iXML document. Both go into a WAV read back by the
// readers, the rebuild's timecode lookup and the stamp's writer.
inline void exerciseBWFMetadata(ByteView bytes) {
    if (bytes.size() < 2) {
        return;
    }
    const std::size_t bextSize =
        std::min<std::size_t>(bytes[0] | (bytes[1] << 8), bytes.size() - 2);
    const ByteBuffer bext(bytes.begin() + 2,
                          bytes.begin() + 2 + static_cast<std::ptrdiff_t>(bextSize));
    const ByteBuffer ixml(bytes.begin() + 2 + static_cast<std::ptrdiff_t>(bextSize), bytes.end());
    ByteBuffer fmt(16);
    const std::uint8_t plain[16] = {1, 0, 2, 0, 0x80, 0xBB, 0, 0, 0, 0xEE, 2, 0, 4, 0, 16, 0};
    std::copy(std::begin(plain), std::end(plain), fmt.begin());
    const ByteBuffer data(16, 0);
    const RIFFChunk chunks[] = {{"fmt ", fmt}, {"bext", bext}, {"iXML", ixml}, {"data", data}};
    const ByteBuffer riff = serializeRIFF(chunks);
    std::optional<WAVFile> file;
    try {
        file = WAVFile::fromBytes(riff, "fuzz.wav");
    } catch (const WAVError&) {
        return;
    }
    (void)BWFReader::info(*file);
    (void)BWFReader::ixmlText(*file);
    if (const std::optional<BextChunk> decoded = decodeBext(bext)) {
        (void)encodeBext(*decoded);
    }
    if (std::optional<IXMLElement> root = IXML::parse(
            std::string_view(reinterpret_cast<const char*>(ixml.data()), ixml.size()))) {
        (void)IXML::timecodeRate(*root);
        (void)IXML::samplesSinceMidnight(*root);
        (void)IXML::tracks(*root);
        (void)IXML::trackName(*root, 2);
        (void)IXML::forSingleChannel(*root, 1);
        IXML::mergeStamp(*root, IXMLStampValues{*frameRateConfig(FrameRatePreset::fps25),
                                                Timecode{1, 0, 0, 0, false}, 172800000, 48000});
        // What is written must read back as the same tree.
        const std::string text = IXML::serialize(*root);
        if (IXML::parse(text) != root) {
            std::abort();
        }
    }
    for (auto priority :
         {TimecodeSourcePriority::bwfIXMLThenFilename, TimecodeSourcePriority::inputXMLOnly}) {
        (void)eventTimecode(*file, "A001_T01.wav", priority,
                            *frameRateConfig(FrameRatePreset::fps23_976));
    }
    BWFStampInfo stamp;
    stamp.timeReferenceSamples = 1;
    stamp.ixml = std::string(ixml.begin(), ixml.end());
    try {
        (void)BWFWriter::build(*file, stamp);
    } catch (const RIFFWriteError&) {
    }
}

// The bytes as the settings file: loaded, read back whole, changed and saved.
inline void exerciseSettings(ByteView bytes) {
    static const std::filesystem::path folder = [] {
        std::string pattern =
            (std::filesystem::temp_directory_path() / "norvane-settings-fuzz-XXXXXX").string();
        return std::filesystem::path(::mkdtemp(pattern.data()));
    }();
    const std::filesystem::path file = folder / "settings.json";
    writeFile(file, bytes, WriteMode::replaceAtomically);
    {
        AppSettingsStore store(file);
        (void)store.snapshot();
        store.setOutputFilenameSuffix("_z");
        (void)store.lastWriteError();
    }
    std::error_code ec;
    for (const auto& entry : std::filesystem::directory_iterator(folder, ec)) {
        std::filesystem::remove(entry.path(), ec);  // corrupt files kept aside
    }
}

}  // namespace norvane::fuzz
