#pragma once

// Everything that reads untrusted WAV bytes, driven from one buffer: the
// parser, sample reading, the bext/iXML readers and both writers' in-memory
// builders. Typed errors are the expected outcome for bad input; a crash, a
// sanitizer report or any other exception is a bug. Shared by the fuzzer and
// the regression test that replays its findings.

#include <algorithm>

#include "core/audio/bext.h"
#include "core/audio/bwf_reader.h"
#include "core/audio/bwf_writer.h"
#include "core/audio/ixml.h"
#include "core/audio/mono_wav_writer.h"
#include "core/audio/riff_writer.h"
#include "core/audio/wav_file.h"

namespace norvane::fuzz {

inline void exerciseWAV(ByteView bytes) {
    std::optional<WAVFile> file;
    try {
        file = WAVFile::fromBytes(ByteBuffer(bytes.begin(), bytes.end()), "fuzz.wav");
    } catch (const WAVError&) {
        return;
    }
    (void)file->duration();
    (void)file->frameCount();
    const int channels = file->fmt().channelCount;
    for (int c : {0, channels - 1, channels + 3}) {
        (void)file->samples(c);
    }
    (void)file->samples(0, true);
    if (auto info = BWFReader::info(*file)) {
        (void)BWFReader::timecode(info->timeReferenceSamples, info->sampleRate, 30000, 1001, true);
        (void)BWFReader::startTime(info->timeReferenceSamples, info->sampleRate, 24000, 1001);
    }
    for (const WAVChunk& chunk : file->chunks()) {
        if (chunk.id == "bext") {
            if (auto bext = decodeBext(chunk.data)) {
                (void)encodeBext(*bext);
            }
        }
    }
    if (auto text = BWFReader::ixmlText(*file)) {
        if (auto doc = IXML::parse(*text)) {
            (void)IXML::timecodeRate(*doc);
            (void)IXML::samplesSinceMidnight(*doc);
            (void)IXML::serialize(IXML::forSingleChannel(*doc, 2));
            IXML::mergeStamp(*doc, {FrameRateConfig{}, Timecode{}, 1, 48000});
            (void)IXML::parse(IXML::serialize(*doc));
        }
    }
    try {
        BWFStampInfo stamp;
        stamp.timeReferenceSamples = 1;
        stamp.ixml = "<BWFXML/>";
        (void)BWFWriter::build(*file, stamp);
    } catch (const RIFFWriteError&) {
    }
    for (int c = -1; c <= std::min(channels, 3); ++c) {
        try {
            (void)MonoWAVWriter::build(*file, c);
        } catch (const MonoWAVError&) {
        } catch (const RIFFWriteError&) {
        }
    }
    (void)file->replacingData(ByteBuffer(7, 1), "copy.wav").samples(1, true);
}

}  // namespace norvane::fuzz
