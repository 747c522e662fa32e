#include "core/audio/wav_reader.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <limits>
#include <stdexcept>
#include <system_error>
#include <utility>

namespace norvane {
namespace fs = std::filesystem;

namespace {

constexpr std::uint16_t kFormatPCM = 1;
constexpr std::uint16_t kFormatFloat = 3;
constexpr std::uint16_t kFormatExtensible = 0xFFFE;
constexpr std::uint32_t kUnknownSize = 0xFFFFFFFF;

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

// Whether 8 bytes look like a chunk header: a printable id whose size fits
// in the rest of the file. Audio samples rarely do.
bool plausibleChunkHeader(ByteView header, std::uint64_t at, std::uint64_t length) {
    for (std::size_t i = 0; i < 4; ++i) {
        if (header[i] < 0x20 || header[i] > 0x7E) {
            return false;
        }
    }
    return at + 8 + readLE32(header, 4) <= length;
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
WAVFmtChunk selectFormat(const std::vector<ByteBuffer>& candidates) {
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

// Exactly out.size() bytes at `offset`, or invalidChunk.
void readExactly(const WavReadAt& readAt, std::uint64_t offset, std::span<std::uint8_t> out) {
    if (readAt(offset, out) != out.size()) {
        throw WAVError::invalidChunk();
    }
}

// The 64-bit sizes of an RF64 file's ds64 chunk.
struct DS64 {
    std::uint64_t dataSize = 0;
    std::vector<std::pair<std::string, std::uint64_t>> table;
};

DS64 parseDS64(ByteView payload) {
    // riffSize (8), dataSize (8), sampleCount (8), table length (4), table.
    if (payload.size() < 28) {
        throw WAVError::invalidChunk();
    }
    DS64 ds;
    ds.dataSize = readLE64(payload, 8);
    const std::uint64_t entries = readLE32(payload, 24);
    for (std::uint64_t i = 0; i < entries && 28 + (i + 1) * 12 <= payload.size(); ++i) {
        const std::size_t at = static_cast<std::size_t>(28 + i * 12);
        ds.table.emplace_back(chunkId(payload.subspan(at, 4)), readLE64(payload, at + 4));
    }
    return ds;
}

}  // namespace

std::string cutOffDataWarning(const std::string& fileName) {
    return fileName +
           ": the data chunk size does not match the file (a cut-off recording); the audio was "
           "read to the last whole frame.";
}

WavIndex indexWav(const WavReadAt& readAt, std::uint64_t length) {
    WavIndex index;
    index.length = length;
    if (length < 12) {
        throw WAVError::invalidChunk();
    }
    std::array<std::uint8_t, 12> header{};
    readExactly(readAt, 0, header);
    const std::string form = chunkId(ByteView(header).subspan(0, 4));
    if (form == "RF64" || form == "BW64") {
        index.container = WavContainer::rf64;
    } else if (form != "RIFF") {
        throw WAVError::notRIFF();
    }
    if (chunkId(ByteView(header).subspan(8, 4)) != "WAVE") {
        throw WAVError::notWAVE();
    }
    // The RIFF size field is ignored: the walk is bounded by the real length.
    std::optional<DS64> ds64;
    std::vector<ByteBuffer> fmtCandidates;
    bool haveData = false;
    std::uint64_t offset = 12;
    while (offset + 8 <= length) {
        std::array<std::uint8_t, 8> head{};
        readExactly(readAt, offset, head);
        WavChunkInfo chunk;
        std::copy_n(head.begin(), 4, chunk.id.begin());
        chunk.idText = chunkId(ByteView(head).subspan(0, 4));
        chunk.offset = offset + 8;
        const std::uint32_t size32 = readLE32(head, 4);
        std::uint64_t size = size32;
        const bool isData = chunk.idText == "data";
        if (index.container == WavContainer::rf64) {
            if (!ds64) {
                // An RF64 file starts with its 64-bit sizes.
                if (chunk.idText != "ds64" || size > (1u << 16) || offset + 8 + size > length) {
                    throw WAVError::invalidChunk();
                }
                ByteBuffer payload(size);
                readExactly(readAt, chunk.offset, payload);
                ds64 = parseDS64(payload);
            } else if (size32 == kUnknownSize) {
                if (isData) {
                    size = ds64->dataSize;
                } else {
                    for (const auto& [id, big] : ds64->table) {
                        if (id == chunk.idText) {
                            size = big;
                            break;
                        }
                    }
                }
            }
        }
        const std::uint64_t rest = length - chunk.offset;
        if (isData && !haveData) {
            // A data chunk whose size is unknown (0xFFFFFFFF in a RIFF file),
            // runs past the end, or is 0 while audio follows was cut off:
            // the audio runs to the end of the file.
            const bool unknown = index.container == WavContainer::riff && size == kUnknownSize;
            bool zeroWithAudio = false;
            if (size == 0 && rest >= 8) {
                std::array<std::uint8_t, 8> next{};
                readExactly(readAt, chunk.offset, next);
                zeroWithAudio = !plausibleChunkHeader(next, chunk.offset, length);
            }
            if ((unknown || size > rest || zeroWithAudio) && size != rest) {
                chunk.size = rest;
                index.dataCutOff = true;
                index.dataChunk = index.chunks.size();
                index.chunks.push_back(std::move(chunk));
                haveData = true;
                break;
            }
        }
        if (size > rest) {
            // A truncated or bogus trailing chunk is tolerated once the file
            // is usable.
            if (!fmtCandidates.empty() && haveData) {
                break;
            }
            throw WAVError::invalidChunk();
        }
        chunk.size = size;
        if (chunk.idText == "fmt ") {
            if (size < 16) {
                throw WAVError::invalidChunk();
            }
            // Only the fields the selection reads; an extensible tail is short.
            ByteBuffer payload(static_cast<std::size_t>(std::min<std::uint64_t>(size, 1u << 16)));
            readExactly(readAt, chunk.offset, payload);
            fmtCandidates.push_back(std::move(payload));
        } else if (isData) {
            index.dataChunk = index.chunks.size();
            haveData = true;
        }
        index.chunks.push_back(std::move(chunk));
        offset = offset + 8 + size + (size & 1);  // RIFF pads odd chunks to an even length
    }
    if (fmtCandidates.empty()) {
        throw WAVError::missingFmt();
    }
    if (!haveData) {
        throw WAVError::missingData();
    }
    index.fmt = selectFormat(fmtCandidates);
    if (index.dataCutOff && index.fmt.blockAlign > 0) {
        WavChunkInfo& data = index.chunks[index.dataChunk];
        data.size -= data.size % index.fmt.blockAlign;
    }
    return index;
}

void convertChannel(const WAVFmtChunk& fmt, int channel, const std::uint8_t* frameBytes,
                    std::size_t frames, float* out) {
    const std::size_t block = fmt.blockAlign;
    if (fmt.audioFormat == kFormatFloat) {
        const std::uint8_t* p = frameBytes + static_cast<std::size_t>(channel) * 4;
        for (std::size_t f = 0; f < frames; ++f) {
            std::memcpy(out + f, p + f * block, 4);  // little-endian host
        }
        return;
    }
    const std::size_t bytesPerSample = fmt.bitsPerSample / 8u;
    const std::uint8_t* p = frameBytes + static_cast<std::size_t>(channel) * bytesPerSample;
    switch (bytesPerSample) {
        case 2:
            for (std::size_t f = 0; f < frames; ++f) {
                const std::uint8_t* s = p + f * block;
                const auto v = static_cast<std::int16_t>(s[0] | (s[1] << 8));
                // The same float as v / 32767.0f for every 16-bit value
                // (checked over all of them), without a division.
                out[f] = static_cast<float>(static_cast<double>(v) * (1.0 / 32767.0));
            }
            break;
        case 3:
            for (std::size_t f = 0; f < frames; ++f) {
                const std::uint8_t* s = p + f * block;
                // Sign-extended from bit 23 by an arithmetic shift.
                const auto v =
                    static_cast<std::int32_t>((static_cast<std::uint32_t>(s[0]) << 8) |
                                              (static_cast<std::uint32_t>(s[1]) << 16) |
                                              (static_cast<std::uint32_t>(s[2]) << 24)) >>
                    8;
                // The same float as v / 8388607.0f for every 24-bit value.
                out[f] = static_cast<float>(v) * (1.0f / 8388607.0f);
            }
            break;
        default:
            for (std::size_t f = 0; f < frames; ++f) {
                const std::uint8_t* s = p + f * block;
                const std::uint32_t u = static_cast<std::uint32_t>(s[0]) |
                                        (static_cast<std::uint32_t>(s[1]) << 8) |
                                        (static_cast<std::uint32_t>(s[2]) << 16) |
                                        (static_cast<std::uint32_t>(s[3]) << 24);
                out[f] = static_cast<float>(static_cast<std::int32_t>(u)) * (1.0f / 2147483648.0f);
            }
            break;
    }
}

WavReader::WavReader(const fs::path& path) : path_(path) {
    // O_NONBLOCK so that opening a FIFO does not wait for a writer; it has no
    // effect on the reads of a regular file.
    fd_ = ::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
    if (fd_ < 0) {
        const int err = errno;
        throw fs::filesystem_error("cannot open file", path,
                                   std::error_code(err, std::generic_category()));
    }
    struct stat st {};
    if (::fstat(fd_, &st) != 0) {
        const int err = errno;
        ::close(fd_);
        fd_ = -1;
        throw fs::filesystem_error("cannot read file", path,
                                   std::error_code(err, std::generic_category()));
    }
    if (!S_ISREG(st.st_mode)) {
        ::close(fd_);
        fd_ = -1;
        if (S_ISDIR(st.st_mode)) {
            throw fs::filesystem_error("cannot read file", path,
                                       std::make_error_code(std::errc::is_a_directory));
        }
        throw WAVError::notRegularFile();
    }
    const int fd = fd_;
    const fs::path& p = path_;
    auto readAt = [fd, &p](std::uint64_t offset, std::span<std::uint8_t> out) -> std::size_t {
        std::size_t done = 0;
        while (done < out.size()) {
            const ssize_t n = ::pread(fd, out.data() + done, out.size() - done,
                                      static_cast<off_t>(offset + done));
            if (n < 0) {
                if (errno == EINTR) {
                    continue;
                }
                throw fs::filesystem_error("cannot read file", p,
                                           std::error_code(errno, std::generic_category()));
            }
            if (n == 0) {
                break;
            }
            done += static_cast<std::size_t>(n);
        }
        return done;
    };
    try {
        index_ = indexWav(readAt, static_cast<std::uint64_t>(st.st_size));
        payloads_.resize(index_.chunks.size());
        for (std::size_t i = 0; i < index_.chunks.size(); ++i) {
            const WavChunkInfo& chunk = index_.chunks[i];
            if (i != index_.dataChunk && chunk.size <= kMetadataChunkLimit) {
                ByteBuffer payload(static_cast<std::size_t>(chunk.size));
                readExactly(readAt, chunk.offset, payload);
                payloads_[i] = std::move(payload);
            }
        }
    } catch (...) {
        ::close(fd_);
        fd_ = -1;
        throw;
    }
}

WavReader::~WavReader() {
    if (fd_ >= 0) {
        ::close(fd_);
    }
}

WavReader::WavReader(WavReader&& other) noexcept
    : path_(std::move(other.path_)),
      fd_(std::exchange(other.fd_, -1)),
      index_(std::move(other.index_)),
      payloads_(std::move(other.payloads_)) {}

WavReader& WavReader::operator=(WavReader&& other) noexcept {
    if (this != &other) {
        if (fd_ >= 0) {
            ::close(fd_);
        }
        path_ = std::move(other.path_);
        fd_ = std::exchange(other.fd_, -1);
        index_ = std::move(other.index_);
        payloads_ = std::move(other.payloads_);
    }
    return *this;
}

std::optional<ByteBuffer> WavReader::metadataChunk(std::string_view id) const {
    for (std::size_t i = 0; i < index_.chunks.size(); ++i) {
        if (i != index_.dataChunk && index_.chunks[i].idText == id) {
            return chunkPayload(index_.chunks[i]);
        }
    }
    return std::nullopt;
}

ByteBuffer WavReader::chunkPayload(const WavChunkInfo& chunk) const {
    for (std::size_t i = 0; i < index_.chunks.size(); ++i) {
        if (index_.chunks[i].offset == chunk.offset && payloads_[i]) {
            return *payloads_[i];
        }
    }
    ByteBuffer payload(static_cast<std::size_t>(chunk.size));
    readBytes(chunk.offset, payload);
    return payload;
}

std::optional<ByteView> WavReader::heldPayload(std::size_t i) const {
    if (i < payloads_.size() && payloads_[i]) {
        return ByteView(*payloads_[i]);
    }
    return std::nullopt;
}

std::int64_t WavReader::frameCount() const {
    if (index_.fmt.blockAlign == 0) {
        return 0;
    }
    return static_cast<std::int64_t>(dataChunk().size / index_.fmt.blockAlign);
}

double WavReader::duration() const {
    if (index_.fmt.byteRate == 0) {
        return 0;
    }
    return static_cast<double>(dataChunk().size) / static_cast<double>(index_.fmt.byteRate);
}

std::vector<std::string> WavReader::warnings() const {
    std::vector<std::string> out;
    if (index_.dataCutOff) {
        out.push_back(cutOffDataWarning(path_.filename().string()));
    }
    return out;
}

void WavReader::readBytes(std::uint64_t offset, std::span<std::uint8_t> out) const {
    if (offset > index_.length || out.size() > index_.length - offset) {
        throw std::out_of_range("read past the end of the WAV file");
    }
    std::size_t done = 0;
    while (done < out.size()) {
        const ssize_t n =
            ::pread(fd_, out.data() + done, out.size() - done, static_cast<off_t>(offset + done));
        if (n < 0) {
            if (errno == EINTR) {
                continue;
            }
            throw fs::filesystem_error("cannot read file", path_,
                                       std::error_code(errno, std::generic_category()));
        }
        if (n == 0) {
            throw WAVError::invalidChunk();  // the file became shorter
        }
        done += static_cast<std::size_t>(n);
    }
}

void WavReader::readFrames(std::int64_t first, std::int64_t count, std::span<std::byte> out) const {
    const std::uint64_t block = index_.fmt.blockAlign;
    if (first < 0 || count < 0 || first > frameCount() || count > frameCount() - first ||
        out.size() < static_cast<std::uint64_t>(count) * block) {
        throw std::out_of_range("frames outside the data chunk");
    }
    readBytes(dataChunk().offset + static_cast<std::uint64_t>(first) * block,
              std::span<std::uint8_t>(reinterpret_cast<std::uint8_t*>(out.data()),
                                      static_cast<std::size_t>(count * block)));
}

bool WavReader::canReadSamples(int channel) const {
    const WAVFmtChunk& fmt = index_.fmt;
    const std::size_t channels = fmt.channelCount;
    const std::size_t block = fmt.blockAlign;
    if (channels == 0 || block == 0) {
        return false;
    }
    std::size_t bytesPerSample = 4;
    if (fmt.audioFormat == kFormatFloat && fmt.bitsPerSample == 32) {
        if (block != channels * 4 || dataChunk().size % block != 0) {
            return false;
        }
    } else {
        if (fmt.bitsPerSample != 16 && fmt.bitsPerSample != 24 && fmt.bitsPerSample != 32) {
            return false;
        }
        bytesPerSample = fmt.bitsPerSample / 8u;
    }
    const std::size_t c =
        static_cast<std::size_t>(std::clamp(channel, 0, static_cast<int>(channels) - 1));
    return (c + 1) * bytesPerSample <= block;
}

void WavReader::forEachChannelBlock(
    int channel, std::int64_t begin, std::int64_t end,
    const std::function<bool(std::span<const float>, std::int64_t)>& sink) const {
    forEachChannelsBlock(std::span<const int>(&channel, 1), begin, end,
                         [&sink](std::size_t, std::span<const float> block, std::int64_t first) {
                             return sink(block, first);
                         });
}

void WavReader::forEachChannelsBlock(
    std::span<const int> channels, std::int64_t begin, std::int64_t end,
    const std::function<bool(std::size_t, std::span<const float>, std::int64_t)>& sink) const {
    // A channel whose layout cannot be read gets nothing.
    std::vector<char> wanted;
    std::size_t left = 0;
    for (const int channel : channels) {
        wanted.push_back(canReadSamples(channel) ? 1 : 0);
        left += static_cast<std::size_t>(wanted.back());
    }
    if (left == 0) {
        return;
    }
    begin = std::max<std::int64_t>(begin, 0);
    end = std::min(end, frameCount());
    const std::size_t block = index_.fmt.blockAlign;
    const std::int64_t perBlock = std::max<std::int64_t>(1, kBlockBytes / block);
    ByteBuffer bytes(
        static_cast<std::size_t>(std::min(perBlock, std::max<std::int64_t>(end - begin, 0))) *
        block);
    std::vector<float> floats(bytes.size() / block);
    for (std::int64_t at = begin; at < end && left > 0; at += perBlock) {
        const std::int64_t n = std::min(perBlock, end - at);
        readBytes(dataChunk().offset + static_cast<std::uint64_t>(at) * block,
                  std::span<std::uint8_t>(bytes.data(), static_cast<std::size_t>(n) * block));
        for (std::size_t k = 0; k < channels.size(); ++k) {
            if (!wanted[k]) {
                continue;
            }
            const int c = std::clamp(channels[k], 0, static_cast<int>(index_.fmt.channelCount) - 1);
            convertChannel(index_.fmt, c, bytes.data(), static_cast<std::size_t>(n), floats.data());
            if (!sink(k, std::span<const float>(floats.data(), static_cast<std::size_t>(n)), at)) {
                wanted[k] = 0;
                --left;
            }
        }
    }
}

}  // namespace norvane
