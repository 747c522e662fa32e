#pragma once

#include <filesystem>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include "core/audio/riff_writer.h"
#include "core/audio/wav_file.h"
#include "core/audio/wav_reader.h"

namespace norvane {

class MonoWAVError : public Error {
  public:
    enum class Kind {
        invalidChannel,
        unsupportedBitDepth,
        unsupportedSourceFormat,
        unexpectedBlockLayout
    };

    static MonoWAVError invalidChannel(int index, int channelCount);
    static MonoWAVError unsupportedBitDepth(int bits);
    static MonoWAVError unsupportedSourceFormat();
    static MonoWAVError unexpectedBlockLayout();

    Kind kind() const { return kind_; }

  private:
    MonoWAVError(Kind kind, const std::string& message) : Error(message), kind_(kind) {}
    Kind kind_;
};

namespace MonoWAVWriter {

// The complete bytes of a one-channel WAV holding channel `channelIndex`
// (zero-based) of `file`, sample bytes copied unchanged: "fmt " (always the
// plain 16-byte form, tag 1 or 3) and "data" only. A trailing partial frame of
// the source is dropped. Throws MonoWAVError for sources it cannot split and
// RIFFWriteError when the result would not fit the 32-bit RIFF fields.
ByteBuffer build(const WAVFile& file, int channelIndex);
// The same with `metadata` chunks (bext, iXML, ...) written between "fmt " and
// "data", payloads as given.
ByteBuffer build(const WAVFile& file, int channelIndex, std::span<const RIFFChunk> metadata);

// build() written in one operation: atomically replacing an existing file
// when `overwrite`, otherwise failing with EEXIST if `url` exists.
void write(const WAVFile& file, int channelIndex, const std::filesystem::path& url, bool overwrite);

// One output of a streamed split: the channel (zero-based) and where its
// bytes go. `extraChunks` (id of four bytes, payload) are written between
// "fmt " and "data", in order.
struct ChannelOutput {
    int channel = 0;
    OutputFile* out = nullptr;
    std::vector<std::pair<std::string, ByteBuffer>> extraChunks;
};

// Every output written in one pass over the audio of `source`: each block of
// frames is read once and each output takes its channel from it. Without
// extra chunks an output holds the bytes build() gives (an RF64 file when it
// passes 4 GiB). The outputs are not committed. Throws as build() before
// anything is written; returns false when `progress` (bytes of all outputs
// written / their total) asked to stop.
bool writeChannels(const WavReader& source, std::span<const ChannelOutput> outputs,
                   const ByteProgress& progress = {});

}  // namespace MonoWAVWriter
}  // namespace norvane
