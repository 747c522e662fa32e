#include "core/audio/bext.h"

#include <algorithm>

namespace norvane {

namespace {

constexpr std::size_t kFixedSize = 602;

void putField(ByteBuffer& out, std::size_t offset, std::size_t width, const std::string& text) {
    std::copy_n(text.begin(), std::min(width, text.size()),
                out.begin() + static_cast<std::ptrdiff_t>(offset));
}

std::string getField(ByteView payload, std::size_t offset, std::size_t width) {
    const auto begin = payload.begin() + static_cast<std::ptrdiff_t>(offset);
    const auto end = std::find(begin, begin + static_cast<std::ptrdiff_t>(width), 0);
    return std::string(begin, end);
}

}  // namespace

ByteBuffer encodeBext(const BextChunk& bext) {
    ByteBuffer out(kFixedSize, 0);
    putField(out, 0, 256, bext.description);
    putField(out, 256, 32, bext.originator);
    putField(out, 288, 32, bext.originatorReference);
    putField(out, 320, 10, bext.originationDate);
    putField(out, 330, 8, bext.originationTime);
    writeLE64(out.data() + 338, bext.timeReference);
    writeLE16(out.data() + 346, bext.version);
    std::copy(bext.umid.begin(), bext.umid.end(), out.begin() + 348);
    const std::int16_t loudness[] = {bext.loudnessValue, bext.loudnessRange, bext.maxTruePeakLevel,
                                     bext.maxMomentaryLoudness, bext.maxShortTermLoudness};
    for (std::size_t i = 0; i < 5; ++i) {
        writeLE16(out.data() + 412 + 2 * i, static_cast<std::uint16_t>(loudness[i]));
    }
    std::copy(bext.reserved.begin(), bext.reserved.end(), out.begin() + 422);
    appendText(out, bext.codingHistory);
    return out;
}

std::optional<BextChunk> decodeBext(ByteView payload) {
    if (payload.size() < kFixedSize) {
        return std::nullopt;
    }
    BextChunk bext;
    bext.description = getField(payload, 0, 256);
    bext.originator = getField(payload, 256, 32);
    bext.originatorReference = getField(payload, 288, 32);
    bext.originationDate = getField(payload, 320, 10);
    bext.originationTime = getField(payload, 330, 8);
    bext.timeReference = readLE64(payload, 338);
    bext.version = readLE16(payload, 346);
    std::copy_n(payload.begin() + 348, 64, bext.umid.begin());
    std::int16_t* loudness[] = {&bext.loudnessValue, &bext.loudnessRange, &bext.maxTruePeakLevel,
                                &bext.maxMomentaryLoudness, &bext.maxShortTermLoudness};
    for (std::size_t i = 0; i < 5; ++i) {
        *loudness[i] = static_cast<std::int16_t>(readLE16(payload, 412 + 2 * i));
    }
    std::copy_n(payload.begin() + 422, 180, bext.reserved.begin());
    const ByteView history = payload.subspan(kFixedSize);
    const auto end = std::find(history.begin(), history.end(), 0);
    bext.codingHistory.assign(history.begin(), end);
    return bext;
}

}  // namespace norvane
