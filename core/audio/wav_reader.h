#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "core/audio/wav_file.h"
#include "core/common/bytes.h"

namespace norvane {

// One chunk of a WAV file as found by the chunk walk: its id bytes, the id as
// text ("" when not ASCII, as WAVChunk), the file offset of its payload and
// the payload size (a 64-bit size from ds64 in RF64 files; for a cut-off data
// chunk the size actually present, in whole frames).
struct WavChunkInfo {
    std::array<char, 4> id{};
    std::string idText;
    std::uint64_t offset = 0;
    std::uint64_t size = 0;
};

// The container a file was read from.
enum class WavContainer { riff, rf64 };

// What the chunk walk finds, whether the bytes are on disk or in memory.
struct WavIndex {
    WavContainer container = WavContainer::riff;
    WAVFmtChunk fmt;
    std::vector<WavChunkInfo> chunks;  // file order, including fmt and data
    std::size_t dataChunk = 0;         // index into chunks of the (last) data chunk
    std::uint64_t length = 0;          // bytes in the file
    // The data chunk's size field did not describe the audio present (a
    // recording cut off by a power loss, written to a pipe, or whose header
    // was never finished): its size was taken from the file length.
    bool dataCutOff = false;
};

// Positioned read of up to `out.size()` bytes at `offset`; returns the count
// read (less only at the end of the source).
using WavReadAt = std::function<std::size_t(std::uint64_t offset, std::span<std::uint8_t> out)>;

// Walks the chunk headers of a RIFF/WAVE or RF64/BW64 file of `length` bytes
// without reading any payload but the fmt and ds64 chunks. Throws WAVError with
// the same faults and messages as the in-memory parser.
WavIndex indexWav(const WavReadAt& readAt, std::uint64_t length);

// The warning given for a cut-off data chunk of the file named `fileName`.
std::string cutOffDataWarning(const std::string& fileName);

// A WAV file on disk, read by positioned reads: the chunk index is built on
// opening, small metadata chunks are kept in memory and the audio is handed out
// in blocks of frames. Only regular files are opened (a FIFO, device or folder
// is refused before anything is read), and no read goes past the file's size.
// All reads are const and may run from several threads at once.
class WavReader {
  public:
    // Throws WAVError for structural faults and for paths that are not
    // regular files, std::filesystem::filesystem_error when the file cannot be
    // opened or read.
    explicit WavReader(const std::filesystem::path& path);
    ~WavReader();
    WavReader(const WavReader&) = delete;
    WavReader& operator=(const WavReader&) = delete;
    WavReader(WavReader&& other) noexcept;
    WavReader& operator=(WavReader&& other) noexcept;

    const std::filesystem::path& path() const { return path_; }
    const WAVFmtChunk& fmt() const { return index_.fmt; }
    WavContainer container() const { return index_.container; }
    // Every chunk, file order.
    const std::vector<WavChunkInfo>& chunks() const { return index_.chunks; }
    const WavChunkInfo& dataChunk() const { return index_.chunks[index_.dataChunk]; }
    std::uint64_t fileSize() const { return index_.length; }
    bool dataCutOff() const { return index_.dataCutOff; }

    // The payload of the first chunk called `id` (never the data chunk's
    // audio); nullopt when the file has none. Chunks up to
    // kMetadataChunkLimit bytes were read when the file was opened.
    std::optional<ByteBuffer> metadataChunk(std::string_view id) const;
    // The payload of any chunk of chunks() other than the audio, read whole.
    ByteBuffer chunkPayload(const WavChunkInfo& chunk) const;
    // The payload of chunks()[i] when it is held in memory (every chunk but
    // the data chunk up to kMetadataChunkLimit bytes); nullopt otherwise.
    std::optional<ByteView> heldPayload(std::size_t i) const;

    // Whole frames in the data chunk; 0 when blockAlign is 0.
    std::int64_t frameCount() const;
    // Data bytes / byteRate in seconds; 0 when byteRate is 0.
    double duration() const;
    // Messages for the user, each naming the file (a cut-off data chunk).
    std::vector<std::string> warnings() const;

    // The interleaved bytes of frames [first, first + count) into `out`, which
    // holds at least count x blockAlign bytes. Throws std::out_of_range for
    // frames outside the data chunk, WAVError::invalidChunk when the file
    // became shorter since it was opened.
    void readFrames(std::int64_t first, std::int64_t count, std::span<std::byte> out) const;
    // Raw bytes [offset, offset + out.size()) of the file; throws as readFrames.
    void readBytes(std::uint64_t offset, std::span<std::uint8_t> out) const;

    // Whether samples of `channel` can be converted to float (the layouts
    // WAVFile::samples reads); the channel is clamped as there.
    bool canReadSamples(int channel) const;
    // Channel `channel` (clamped into range, as WAVFile::samples) of frames
    // [begin, end) as floats scaled as WAVFile::samples does, in blocks, each
    // with the absolute index of its first frame. `sink` returns false to
    // stop. Nothing is delivered when the layout cannot be read.
    void forEachChannelBlock(
        int channel, std::int64_t begin, std::int64_t end,
        const std::function<bool(std::span<const float>, std::int64_t)>& sink) const;
    // Channels `channels` of frames [begin, end) in one pass over the audio:
    // each block is read once and every channel still wanted gets its floats,
    // `sink(k, block, first)` for channels[k]; it returns false when that
    // channel needs no more. Reading stops when no channel is wanted.
    void forEachChannelsBlock(
        std::span<const int> channels, std::int64_t begin, std::int64_t end,
        const std::function<bool(std::size_t, std::span<const float>, std::int64_t)>& sink) const;
    // The same for every frame of the file.
    void forEachChannelBlock(
        int channel, const std::function<bool(std::span<const float>, std::int64_t)>& sink) const {
        forEachChannelBlock(channel, 0, frameCount(), sink);
    }

    // The file descriptor, for copying the audio into an output as it stands.
    int fd() const { return fd_; }

    static constexpr std::uint64_t kMetadataChunkLimit = 1u << 20;
    // Bytes of interleaved audio read per block.
    static constexpr std::size_t kBlockBytes = 1u << 20;

  private:
    std::filesystem::path path_;
    int fd_ = -1;
    WavIndex index_;
    std::vector<std::optional<ByteBuffer>> payloads_;  // per chunk, small non-data ones
};

// Converts channel `channel` of `frames` interleaved frames at `frameBytes`
// into `out` (frames floats), with the scaling of WAVFile::samples. `fmt`
// must describe a readable layout (WavReader::canReadSamples).
void convertChannel(const WAVFmtChunk& fmt, int channel, const std::uint8_t* frameBytes,
                    std::size_t frames, float* out);

}  // namespace norvane
