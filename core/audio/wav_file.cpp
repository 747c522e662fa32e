#include "core/audio/wav_file.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <optional>

#include "core/common/file_output.h"

namespace norvane {
namespace fs = std::filesystem;

WAVError WAVError::unsupportedFormat(const std::string& text) {
    return WAVError(Kind::unsupportedFormat, "Unsupported WAV format: " + text);
}
WAVError WAVError::notRIFF() {
    return WAVError(Kind::notRIFF, "File is not RIFF/WAV.");
}
WAVError WAVError::notWAVE() {
    return WAVError(Kind::notWAVE, "RIFF file is not WAVE format.");
}
WAVError WAVError::invalidChunk() {
    return WAVError(Kind::invalidChunk, "Invalid or truncated WAV chunk.");
}
WAVError WAVError::missingFmt() {
    return WAVError(Kind::missingFmt, "WAV file is missing fmt chunk.");
}
WAVError WAVError::missingData() {
    return WAVError(Kind::missingData, "WAV file is missing data chunk.");
}

namespace {

constexpr std::uint16_t kFormatPCM = 1;
constexpr std::uint16_t kFormatFloat = 3;
constexpr std::uint16_t kFormatExtensible = 0xFFFE;

// KSDATAFORMAT_SUBTYPE_PCM / _IEEE_FLOAT as stored in WAVE_FORMAT_EXTENSIBLE.
constexpr std::array<std::uint8_t, 16> kSubFormatPCM = {
    0x01, 0x00, 0x00, 0x00, 0x00, 0x00, 0x10, 0x00, 0x80, 0x00, 0x00, 0xAA, 0x00, 0x38, 0x9B, 0x71};
constexpr std::array<std::uint8_t, 16> kSubFormatFloat = {
    0x03, 0x00, 0x00, 0x00, 0x00, 0x00, 0x10, 0x00, 0x80, 0x00, 0x00, 0xAA, 0x00, 0x38, 0x9B, 0x71};

// The chunk id as text; ids with a byte outside ASCII become "".
std::string chunkId(ByteView bytes) {
    std::string id;
    for (std::uint8_t b : bytes) {
        if (b > 0x7F) {
            return {};
        }
        id.push_back(static_cast<char>(b));
    }
    return id;
}

// The sub-format GUID of an extensible fmt payload, or nullopt when the
// payload is not a well-formed extensible one. The GUID is the last 16 bytes
// of the cbSize-long extension (bytes 24-39 for the usual cbSize of 22).
std::optional<ByteView> extensibleSubFormat(ByteView payload) {
    if (readLE16(payload, 0) != kFormatExtensible || payload.size() < 18) {
        return std::nullopt;
    }
    const std::size_t cbSize = readLE16(payload, 16);
    if (cbSize < 22 || payload.size() < cbSize + 18) {
        return std::nullopt;
    }
    return payload.subspan(cbSize + 2, 16);
}

bool sameBytes(ByteView a, const std::array<std::uint8_t, 16>& b) {
    return a.size() == b.size() && std::memcmp(a.data(), b.data(), b.size()) == 0;
}

// Four passes over the fmt candidates, first hit wins: plain PCM (any depth),
// extensible PCM, plain 32-bit float, extensible 32-bit float.
WAVFmtChunk selectFormat(const std::vector<ByteView>& candidates) {
    auto fields = [](ByteView p, std::uint16_t tag) {
        WAVFmtChunk f;
        f.audioFormat = tag;
        f.channelCount = readLE16(p, 2);
        f.sampleRate = readLE32(p, 4);
        f.byteRate = readLE32(p, 8);
        f.blockAlign = readLE16(p, 12);
        f.bitsPerSample = readLE16(p, 14);
        return f;
    };
    for (ByteView p : candidates) {
        if (readLE16(p, 0) == kFormatPCM) {
            return fields(p, kFormatPCM);
        }
    }
    for (ByteView p : candidates) {
        auto sub = extensibleSubFormat(p);
        if (sub && sameBytes(*sub, kSubFormatPCM)) {
            return fields(p, kFormatPCM);
        }
    }
    for (ByteView p : candidates) {
        if (readLE16(p, 0) == kFormatFloat && readLE16(p, 14) == 32) {
            return fields(p, kFormatFloat);
        }
    }
    for (ByteView p : candidates) {
        auto sub = extensibleSubFormat(p);
        if (sub && sameBytes(*sub, kSubFormatFloat) && readLE16(p, 14) == 32) {
            return fields(p, kFormatFloat);
        }
    }
    throw WAVError::unsupportedFormat("Only linear PCM and 32-bit float WAV are supported");
}

float pcmSample(const std::uint8_t* p, int bytesPerSample) {
    switch (bytesPerSample) {
        case 2: {
            const auto v = static_cast<std::int16_t>(p[0] | (p[1] << 8));
            return static_cast<float>(v) / 32767.0f;
        }
        case 3: {
            std::int32_t v = p[0] | (p[1] << 8) | (p[2] << 16);
            if (v & 0x800000) {
                v -= 0x1000000;  // sign-extend from bit 23
            }
            return static_cast<float>(v) / 8388607.0f;
        }
        default: {
            const auto u =
                static_cast<std::uint32_t>(p[0]) | (static_cast<std::uint32_t>(p[1]) << 8) |
                (static_cast<std::uint32_t>(p[2]) << 16) | (static_cast<std::uint32_t>(p[3]) << 24);
            return static_cast<float>(static_cast<std::int32_t>(u)) * (1.0f / 2147483648.0f);
        }
    }
}

float floatSample(const std::uint8_t* p) {
    const std::uint32_t u =
        static_cast<std::uint32_t>(p[0]) | (static_cast<std::uint32_t>(p[1]) << 8) |
        (static_cast<std::uint32_t>(p[2]) << 16) | (static_cast<std::uint32_t>(p[3]) << 24);
    float f;
    std::memcpy(&f, &u, sizeof f);
    return f;
}

}  // namespace

WAVFile::WAVFile(const fs::path& url) : url_(url) {
    storage_ = std::make_shared<const WAVStorage>(readWholeFile(url));
    parse();
}

WAVFile WAVFile::fromBytes(ByteBuffer bytes, fs::path url) {
    WAVFile file;
    file.url_ = std::move(url);
    file.storage_ = std::make_shared<const WAVStorage>(std::move(bytes));
    file.parse();
    return file;
}

void WAVFile::parse() {
    const ByteView bytes = storage_->all();
    const std::uint64_t length = bytes.size();
    if (length < 12) {
        throw WAVError::invalidChunk();
    }
    if (chunkId(bytes.subspan(0, 4)) != "RIFF") {
        throw WAVError::notRIFF();
    }
    if (chunkId(bytes.subspan(8, 4)) != "WAVE") {
        throw WAVError::notWAVE();
    }
    // The RIFF size field is ignored: the walk is bounded by the real length.
    std::vector<ByteView> fmtCandidates;
    bool haveData = false;
    std::uint64_t offset = 12;
    while (offset + 8 <= length) {
        std::string id = chunkId(bytes.subspan(offset, 4));
        const std::uint64_t size = readLE32(bytes, offset + 4);
        const std::uint64_t end = offset + 8 + size;
        if (end > length) {
            // A truncated or bogus trailing chunk is tolerated once the file
            // is usable; a data chunk is never clamped.
            if (!fmtCandidates.empty() && haveData) {
                break;
            }
            throw WAVError::invalidChunk();
        }
        const ByteView payload = storage_->view(offset + 8, size);
        if (id == "fmt ") {
            if (size < 16) {
                throw WAVError::invalidChunk();
            }
            fmtCandidates.push_back(payload);
        } else if (id == "data") {
            dataChunk_ = payload;
            haveData = true;
        }
        const ByteView idBytes = bytes.subspan(offset, 4);
        chunks_.push_back(
            WAVChunk{std::move(id), payload, std::string(idBytes.begin(), idBytes.end())});
        offset = end + (size & 1);  // RIFF pads odd chunks to an even length
    }
    if (fmtCandidates.empty()) {
        throw WAVError::missingFmt();
    }
    if (!haveData) {
        throw WAVError::missingData();
    }
    fmt_ = selectFormat(fmtCandidates);
}

double WAVFile::duration() const {
    if (fmt_.byteRate == 0) {
        return 0;
    }
    return static_cast<double>(dataChunk_.size()) / static_cast<double>(fmt_.byteRate);
}

std::int64_t WAVFile::frameCount() const {
    if (fmt_.blockAlign == 0) {
        return 0;
    }
    return static_cast<std::int64_t>(dataChunk_.size() / fmt_.blockAlign);
}

std::vector<float> WAVFile::samples(int channelIndex, bool mixDown) const {
    const std::size_t channels = fmt_.channelCount;
    const std::size_t block = fmt_.blockAlign;
    const ByteView data = dataChunk_;
    if (channels == 0 || block == 0) {
        return {};
    }
    const bool isFloat = fmt_.audioFormat == kFormatFloat && fmt_.bitsPerSample == 32;
    std::size_t bytesPerSample = 4;
    if (isFloat) {
        if (block != channels * 4 || data.size() % block != 0) {
            return {};
        }
    } else {
        if (fmt_.bitsPerSample != 16 && fmt_.bitsPerSample != 24 && fmt_.bitsPerSample != 32) {
            return {};
        }
        bytesPerSample = fmt_.bitsPerSample / 8u;
    }
    const std::size_t channel =
        static_cast<std::size_t>(std::clamp(channelIndex, 0, static_cast<int>(channels) - 1));
    // Every channel read must lie inside its block, or a read would leave the data.
    const std::size_t lastChannelRead = mixDown ? channels - 1 : channel;
    if ((lastChannelRead + 1) * bytesPerSample > block) {
        return {};
    }
    const std::size_t frames = data.size() / block;
    const int bps = static_cast<int>(bytesPerSample);
    auto read = [&](const std::uint8_t* p) { return isFloat ? floatSample(p) : pcmSample(p, bps); };

    std::vector<float> out;
    out.reserve(frames);
    for (std::size_t f = 0; f < frames; ++f) {
        const std::uint8_t* frame = data.data() + f * block;
        if (mixDown) {
            float sum = 0;
            for (std::size_t c = 0; c < channels; ++c) {
                sum += read(frame + c * bytesPerSample);
            }
            out.push_back(sum / static_cast<float>(channels));
        } else {
            out.push_back(read(frame + channel * bytesPerSample));
        }
    }
    return out;
}

WAVFile WAVFile::replacingData(ByteBuffer newData, fs::path newURL) const {
    WAVFile copy = *this;
    copy.url_ = std::move(newURL);
    copy.replacedData_ = std::make_shared<const WAVStorage>(std::move(newData));
    const ByteView replaced = copy.replacedData_->all();
    for (WAVChunk& chunk : copy.chunks_) {
        if (chunk.id == "data") {
            chunk.data = replaced;
        }
    }
    copy.dataChunk_ = replaced;
    return copy;
}

}  // namespace norvane
