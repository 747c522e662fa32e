#pragma once

#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "core/common/error.h"

namespace norvane {

// What the split did with one input.
struct PolyWavSplitFileResult {
    std::filesystem::path inputURL;
    std::string disambiguatedBaseName;              // "Take1", or "Take1 (2)" for the second Take1
    std::vector<std::filesystem::path> outputURLs;  // in channel order
    bool skipped = false;
    std::optional<std::string> skipReason;
    // What the user should know about an input that was split (a cut-off
    // recording read to its last whole frame), each naming the file.
    std::vector<std::string> warnings;

    friend bool operator==(const PolyWavSplitFileResult&, const PolyWavSplitFileResult&) = default;
};

struct PolyWavSplitReport {
    std::vector<PolyWavSplitFileResult> fileResults;  // one per distinct input, in processing order
    std::vector<std::filesystem::path> outputPaths;   // every written file, in the order written

    friend bool operator==(const PolyWavSplitReport&, const PolyWavSplitReport&) = default;
};

class PolyWavSplitError : public Error {
  public:
    enum class Kind { outputExists, cancelled };

    // "Output file already exists: NAME. Enable overwrite or choose another folder."
    static PolyWavSplitError outputExists(const std::filesystem::path& url);
    // "Split was cancelled."
    static PolyWavSplitError cancelled();

    Kind kind() const { return kind_; }
    // The existing output for outputExists; empty otherwise.
    const std::filesystem::path& url() const { return url_; }

  private:
    PolyWavSplitError(Kind kind, const std::string& message, std::filesystem::path url = {})
        : Error(message), kind_(kind), url_(std::move(url)) {}
    Kind kind_;
    std::filesystem::path url_;
};

// How mono outputs are named beyond the channel label.
struct PolyWavSplitNaming {
    // Appends "_" + the channel's iXML track name, made safe for file names
    // ("A101_1_CH01_MKH516 A.wav"); channels without a name keep "A101_1_CH03.wav".
    bool appendTrackNames = false;
};

// Splits multichannel WAV files into one mono WAV per channel. Holds no state.
namespace PolyWavSplitProcessor {

// Inputs are made absolute, de-duplicated and processed in code-point order of
// their full paths (name disambiguation follows that order). Each channel i of
// a file goes to outputFolder / (base + "_CH" + i+1 zero-padded to
// max(2, digits of the channel count) + ".wav"). Unreadable, unsupported and
// one-channel files are skipped with a reason. The audio of a file is read
// once, in blocks, and every channel's output is written from each block; the
// outputs of a file appear together when it is done. An existing output
// without `overwriteExisting` (checked for all of a file's outputs before
// any is written), a mono-writer error or a write error stops the run by
// throwing (files already written stay, the current file's outputs do not);
// `isCancelled` is polled before each file and after each block of 1 MiB of
// input and stops with PolyWavSplitError::cancelled(). `progress` gets the
// fraction of the run's audio bytes written (a file skipped counts as one
// byte), moving with every block and reaching exactly 1.0 when nothing fails.
//
// Each mono file carries the source's recorder metadata for its channel (see
// SplitMetadata::monoChunks): the bext TimeReference and the iXML scene, take
// and track name survive the split.
PolyWavSplitReport split(const std::vector<std::filesystem::path>& inputs,
                         const std::filesystem::path& outputFolder, bool overwriteExisting,
                         const std::function<void(double)>& progress = {},
                         const std::function<bool()>& isCancelled = {});
PolyWavSplitReport split(const std::vector<std::filesystem::path>& inputs,
                         const std::filesystem::path& outputFolder, bool overwriteExisting,
                         const PolyWavSplitNaming& naming,
                         const std::function<void(double)>& progress = {},
                         const std::function<bool()>& isCancelled = {});

// The mono output's file name: base + "_" + label (+ "_" + the safe track name
// when asked and known) + ".wav".
std::string outputFileName(const std::string& base, const std::string& label,
                           const std::string& trackName, const PolyWavSplitNaming& naming);

// "CH01" ... for a file of `channelCount` channels; `channelNumber` is 1-based.
std::string channelLabel(int channelNumber, int channelCount);

}  // namespace PolyWavSplitProcessor

// The WAV files of a selection: folders are searched recursively (hidden
// files included), files are kept as given; only paths whose extension is
// "wav" in any case are returned, each once, in a stable order.
std::vector<std::filesystem::path> expandWavInputs(
    const std::vector<std::filesystem::path>& inputs);

}  // namespace norvane
