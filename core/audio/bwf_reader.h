#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <utility>

#include "core/audio/wav_file.h"

namespace norvane {

// The Broadcast Wave time reference of a file. `timeReferenceSamples` is the
// bext TimeReference (EBU Tech 3285: samples since midnight); `sampleRate`
// comes from the file's fmt chunk, not from the bext chunk.
struct BWFInfo {
    std::uint64_t timeReferenceSamples = 0;
    std::uint32_t sampleRate = 0;

    friend bool operator==(const BWFInfo&, const BWFInfo&) = default;
};

// Pure functions over an already parsed WAVFile; nothing here opens files or throws.
namespace BWFReader {

// The first "bext" chunk's TimeReference (64-bit LE at payload offset 338);
// nullopt without a bext chunk or when it is shorter than 346 bytes.
std::optional<BWFInfo> info(const WAVFile& file);

// The timecode text of a time reference at a rate given as
// numerator/denominator (30000/1001 for 29.97). A time reference of 0 counts as
// "not stamped" and gives nullopt, as does a sample rate of 0 or an unusable
// rate. Frames = round(timeReference / samplesPerFrame), halves away from zero.
std::optional<std::string> timecode(std::uint64_t timeReferenceSamples, std::uint32_t sampleRate,
                                    std::int64_t rateNumerator, std::int64_t rateDenominator,
                                    bool dropFrame);

// The same frame count as a start time in seconds: (frames x denominator,
// numerator), not normalised. nullopt as for timecode(), and on overflow.
std::optional<std::pair<std::int64_t, std::int64_t>> startTime(std::uint64_t timeReferenceSamples,
                                                               std::uint32_t sampleRate,
                                                               std::int64_t rateNumerator,
                                                               std::int64_t rateDenominator);

// The text of the first "iXML" chunk, without the zero bytes some recorders
// pad it with; nullopt when the file has none.
std::optional<std::string> ixmlText(const WAVFile& file);

}  // namespace BWFReader
}  // namespace norvane
