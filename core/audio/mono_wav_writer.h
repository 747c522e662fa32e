#pragma once

#include <filesystem>
#include <string>

#include <span>

#include "core/audio/riff_writer.h"
#include "core/audio/wav_file.h"

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

}  // namespace MonoWAVWriter
}  // namespace norvane
