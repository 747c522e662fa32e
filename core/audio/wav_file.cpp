#include "core/audio/wav_file.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <optional>

#include "core/audio/wav_reader.h"

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
WAVError WAVError::notRegularFile() {
    return WAVError(Kind::notRegularFile,
                    "Not a regular file: a pipe or device cannot be read as WAV.");
}

namespace {

constexpr std::uint16_t kFormatFloat = 3;

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
    // The reader refuses what is not a regular file before reading anything
    // and bounds every read by the file's size.
    const WavReader reader(url);
    ByteBuffer bytes(static_cast<std::size_t>(reader.fileSize()));
    reader.readBytes(0, bytes);
    storage_ = std::make_shared<const WAVStorage>(std::move(bytes));
    parse();
}

WAVFile WAVFile::fromBytes(ByteBuffer bytes, fs::path url) {
    WAVFile file;
    file.url_ = std::move(url);
    file.storage_ = std::make_shared<const WAVStorage>(std::move(bytes));
    file.parse();
    return file;
}

WAVFile WAVFile::headersOf(const WavReader& reader) {
    WAVFile file;
    file.url_ = reader.path();
    file.fmt_ = reader.fmt();
    file.warnings_ = reader.warnings();
    file.dataSize_ = reader.dataChunk().size;
    ByteBuffer held;
    for (std::size_t i = 0; i < reader.chunks().size(); ++i) {
        if (auto payload = reader.heldPayload(i)) {
            held.insert(held.end(), payload->begin(), payload->end());
        }
    }
    file.storage_ = std::make_shared<const WAVStorage>(std::move(held));
    std::size_t at = 0;
    for (std::size_t i = 0; i < reader.chunks().size(); ++i) {
        const WavChunkInfo& chunk = reader.chunks()[i];
        ByteView payload;
        if (auto bytes = reader.heldPayload(i)) {
            payload = file.storage_->view(at, bytes->size());
            at += bytes->size();
        }
        file.chunks_.push_back(
            WAVChunk{chunk.idText, payload, std::string(chunk.id.begin(), chunk.id.end())});
    }
    return file;
}

void WAVFile::parse() {
    const ByteView bytes = storage_->all();
    const WavIndex index = indexWav(
        [bytes](std::uint64_t offset, std::span<std::uint8_t> out) -> std::size_t {
            if (offset >= bytes.size() || out.empty()) {
                return 0;  // memcpy takes no null pointer, even for no bytes
            }
            const std::size_t n = std::min<std::uint64_t>(out.size(), bytes.size() - offset);
            std::memcpy(out.data(), bytes.data() + offset, n);
            return n;
        },
        bytes.size());
    fmt_ = index.fmt;
    for (const WavChunkInfo& chunk : index.chunks) {
        chunks_.push_back(WAVChunk{chunk.idText, storage_->view(chunk.offset, chunk.size),
                                   std::string(chunk.id.begin(), chunk.id.end())});
    }
    dataChunk_ = chunks_[index.dataChunk].data;
    if (index.dataCutOff) {
        warnings_.push_back(cutOffDataWarning(url_.filename().string()));
    }
}

const WAVChunk* WAVFile::firstChunk(std::string_view id) const {
    for (const WAVChunk& chunk : chunks_) {
        if (chunk.id == id) {
            return &chunk;
        }
    }
    return nullptr;
}

double WAVFile::duration() const {
    if (fmt_.byteRate == 0) {
        return 0;
    }
    return static_cast<double>(dataSize_.value_or(dataChunk_.size())) /
           static_cast<double>(fmt_.byteRate);
}

std::int64_t WAVFile::frameCount() const {
    if (fmt_.blockAlign == 0) {
        return 0;
    }
    return static_cast<std::int64_t>(dataSize_.value_or(dataChunk_.size()) / fmt_.blockAlign);
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
    copy.dataSize_.reset();
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
