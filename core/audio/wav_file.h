#pragma once

#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "core/common/bytes.h"
#include "core/common/error.h"

namespace norvane {

// The first 16 bytes of the selected "fmt " chunk. After parsing `audioFormat`
// is 1 (linear PCM) or 3 (IEEE float): an extensible chunk (tag 0xFFFE) is
// stored with the tag of its sub-format. `byteRate` and `blockAlign` are as
// written in the file, never recomputed.
struct WAVFmtChunk {
    std::uint16_t audioFormat = 0;
    std::uint16_t channelCount = 0;
    std::uint32_t sampleRate = 0;
    std::uint32_t byteRate = 0;
    std::uint16_t blockAlign = 0;
    std::uint16_t bitsPerSample = 0;

    friend bool operator==(const WAVFmtChunk&, const WAVFmtChunk&) = default;
};

// One chunk of the RIFF walk: its four-character id (empty when the id bytes
// are not ASCII) and its payload without the 8-byte header and the pad byte.
// `data` views storage shared by every copy of the WAVFile it came from and
// stays valid while any of them lives. `rawId` holds the four id bytes as they
// stand in the file, ASCII or not, so that writers can copy any chunk back.
struct WAVChunk {
    std::string id;
    ByteView data;
    std::string rawId;

    // The id bytes to write this chunk back with.
    std::string_view writtenId() const { return rawId.size() == 4 ? rawId : id; }
};

class WAVError : public Error {
  public:
    enum class Kind {
        unsupportedFormat,
        notRIFF,
        notWAVE,
        invalidChunk,
        missingFmt,
        missingData,
        notRegularFile
    };

    // "Unsupported WAV format: " + text.
    static WAVError unsupportedFormat(const std::string& text);
    static WAVError notRIFF();
    static WAVError notWAVE();
    static WAVError invalidChunk();
    static WAVError missingFmt();
    static WAVError missingData();
    // A folder, device or pipe named like a WAV file.
    static WAVError notRegularFile();

    Kind kind() const { return kind_; }

  private:
    WAVError(Kind kind, const std::string& message) : Error(message), kind_(kind) {}
    Kind kind_;
};

// The bytes a WAVFile's chunks point into. Kept behind this one type so the
// backing (today a whole file in memory) can change without touching callers.
class WAVStorage {
  public:
    explicit WAVStorage(ByteBuffer bytes) : bytes_(std::move(bytes)) {}
    std::size_t size() const { return bytes_.size(); }
    // [offset, offset + length); the caller has checked the bounds.
    ByteView view(std::size_t offset, std::size_t length) const {
        return ByteView(bytes_).subspan(offset, length);
    }
    ByteView all() const { return bytes_; }

  private:
    ByteBuffer bytes_;
};

// A RIFF/WAVE (or RF64/BW64) file parsed in memory: the selected format, every chunk in file
// order and the audio of the (last) "data" chunk. Copies are cheap and share
// the storage.
class WavReader;

class WAVFile {
  public:
    // Reads and parses the file. Throws WAVError for structural faults and
    // std::filesystem::filesystem_error when the file cannot be read.
    explicit WAVFile(const std::filesystem::path& url);
    // Parses bytes already in memory; `url` is only recorded.
    static WAVFile fromBytes(ByteBuffer bytes, std::filesystem::path url = {});
    // The format and chunks of a file opened by `reader`, without its audio:
    // for the readers of metadata. Chunks the reader holds keep their bytes;
    // the data chunk and larger chunks are empty (dataChunk() too), while
    // frameCount() and duration() are those of the file. samples() is empty.
    static WAVFile headersOf(const WavReader& reader);

    const std::filesystem::path& url() const { return url_; }
    const WAVFmtChunk& fmt() const { return fmt_; }
    const std::vector<WAVChunk>& chunks() const { return chunks_; }
    // The first chunk with this id ("bext", "iXML"), or nullptr.
    const WAVChunk* firstChunk(std::string_view id) const;
    ByteView dataChunk() const { return dataChunk_; }

    // Data bytes / byteRate in seconds; 0 when byteRate is 0.
    double duration() const;
    // Whole frames in the data chunk (data bytes / blockAlign); 0 when blockAlign is 0.
    std::int64_t frameCount() const;
    // Messages for the user about what was read (a cut-off data chunk read to
    // the last whole frame), each naming the file.
    const std::vector<std::string>& warnings() const { return warnings_; }

    // One float per frame: channel `channelIndex` (clamped into the valid
    // range), or with `mixDown` the mean of all channels. PCM scaling is
    // 16-bit / 32767, 24-bit / 8388607 and 32-bit x 2^-31 (so a full-scale
    // negative 16- or 24-bit sample reads slightly below -1). Float data is
    // taken as it is. Layouts that cannot be read (other bit depths, a block
    // size that does not fit) give an empty vector; this never throws.
    std::vector<float> samples(int channelIndex, bool mixDown = false) const;

    // A copy with the same format and chunk order whose every "data" chunk
    // (and dataChunk) carries `newData`, recorded as coming from `newURL`.
    WAVFile replacingData(ByteBuffer newData, std::filesystem::path newURL) const;

  private:
    WAVFile() = default;
    void parse();

    std::filesystem::path url_;
    WAVFmtChunk fmt_;
    std::vector<WAVChunk> chunks_;
    ByteView dataChunk_;
    std::shared_ptr<const WAVStorage> storage_;
    std::shared_ptr<const WAVStorage> replacedData_;
    std::vector<std::string> warnings_;
    std::optional<std::uint64_t> dataSize_;  // the file's, when the audio is not held
};

}  // namespace norvane
