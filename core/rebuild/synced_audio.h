#pragma once

// The synced WAV files of a rebuild: which event each belongs to (an index in
// its file name), which track it is within the event ("Trk1", explicit in the
// name or implied by file order), and the event's timecode (from iXML, from the
// bext time reference, or from the name, as the user's priority says).

#include <cstdint>
#include <filesystem>
#include <functional>
#include <limits>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "core/audio/wav_file.h"
#include "core/common/error.h"
#include "core/rebuild/rational_time.h"
#include "core/settings/settings_enums.h"
#include "core/timecode/timecode.h"

namespace norvane {

// The event index of a name without one; sorts after every real index.
inline constexpr std::int64_t kNoEventIndex = std::numeric_limits<std::int64_t>::max();

enum class TimelineTimecodeProvenance { bwf, ixml, filename, unresolved };
enum class TimelineTrackProvenance { explicit_, implicit };  // explicit is a keyword

// "BWF", "iXML", "Filename", "Unresolved".
std::string label(TimelineTimecodeProvenance provenance);
// "Explicit", "Implicit".
std::string label(TimelineTrackProvenance provenance);

// One synced file as the analysis and the generator see it.
struct ResolveRebuildAudioInput {
    std::filesystem::path url;
    std::string name;  // file name without extension
    std::int64_t eventOrder = kNoEventIndex;
    std::string eventTimecode = "UNRESOLVED";
    std::int64_t frameCount = 0;
    std::int64_t sampleRate = 0;
    std::int64_t channels = 0;
    std::string trackKey = "Trk1";
    // The first sample's time in the file's own media: the bext time reference
    // on the sequence's frame grid, 0/1 without one.
    RationalTime sourceMediaStart;
    // The rate the file's own timecode counts in (its iXML <SPEED>), when
    // the file says.
    std::optional<FrameRateConfig> timecodeRate;

    RationalTime duration() const { return RationalTime::fromSamples(frameCount, sampleRate); }
};

// One row of an auto-scan, with where its values came from.
struct TimelineRebuildDetectedAudioInput {
    std::string id;  // a fresh UUID per scan
    std::string name;
    std::filesystem::path sourceURL;
    std::int64_t eventOrder = kNoEventIndex;
    std::string eventTimecode = "UNRESOLVED";
    double durationSeconds = 0;
    std::int64_t frameCount = 0;
    std::int64_t sampleRate = 0;
    std::int64_t channels = 0;
    std::string trackKey = "Trk1";
    TimelineTimecodeProvenance timecodeProvenance = TimelineTimecodeProvenance::unresolved;
    TimelineTrackProvenance trackProvenance = TimelineTrackProvenance::implicit;
    // The naming rule that gave the event and track (kGenericNamingRule or a
    // recorder pattern), shown in the mapping table.
    std::string namingRule;
    // The timecode came from the name although metadata was asked for first.
    bool usedFallback = false;
    RationalTime sourceMediaStart;
    std::optional<FrameRateConfig> timecodeRate;  // from the file's iXML <SPEED>

    ResolveRebuildAudioInput toAudioInput() const;
};

// A synced WAV that cannot be read aborts the scan with this error:
// "Cannot read synced WAV <name>: <reason>".
class SyncedAudioError : public Error {
  public:
    SyncedAudioError(const std::filesystem::path& file, const std::string& reason);
};

// The event index in a file name ("Event_007_trk2.wav" -> 7, "a3-012_mix.wav" ->
// 12, "take 5 part 9.wav" -> 9), or kNoEventIndex.
std::int64_t eventIndex(std::string_view fileName);
// How a file's name (and its iXML) place it in an event and a track.
inline constexpr std::string_view kGenericNamingRule = "Event number in name";
inline constexpr std::string_view kTrackSuffixRule = "Recorder track _Tr<N>";
inline constexpr std::string_view kMixSuffixRule = "Recorder mix _TrL_R";
inline constexpr std::string_view kTakeTrackRule = "Recorder take_track (iXML)";

struct FileIdentity {
    std::int64_t eventOrder = kNoEventIndex;
    std::optional<std::string> trackKey;  // explicit track, when the name gives one
    std::string_view rule = kGenericNamingRule;
};

// What the file's iXML says about the file set it belongs to.
struct RecorderFileInfo {
    std::optional<std::int64_t> take;          // <TAKE> as a number
    std::optional<std::int64_t> totalFiles;    // <FILE_SET><TOTAL_FILES>
    std::vector<std::int64_t> channelIndices;  // <TRACK_LIST><TRACK><CHANNEL_INDEX>
};

// Recorder file sets first, then the generic rules:
// - "<take>_Tr<N>": track N of a multitrack recorder's take ("Scene_1_2AG-T001_Tr3");
// - "<take>_TrL_R" (or "_TrLR"): the take's stereo mix, track "TrkLR";
// - "<scene>_<take>_<track>" when the iXML shows a mono file of a poly set
//   (its TAKE is the middle number, or its set has several files, or its one
//   track has the last number as channel): take and track from the name, so
//   "A101_1_2" is take 1 track 2, not event 2;
// - otherwise eventIndex and explicitTrackKey.
// The event number of a recorder take is read from the name without its
// track suffix. Names that are not UTF-8 are read with their other bytes
// set aside, so they keep their number.
FileIdentity identifyFile(std::string_view fileName, const RecorderFileInfo& info = {});

// "Trk" + N for a track or channel token standing at the start or after "_",
// "-" or " " and followed by the end or one of those ("take_CH02" -> "Trk2").
std::optional<std::string> explicitTrackKey(std::string_view fileName);
// explicitTrackKey, or "Trk1".
std::string trackKeyOrDefault(std::string_view fileName);

// "HH:MM:SS" with optional ":FF" or ";FF" frames (0 when absent); nullopt for
// any other text.
std::optional<Timecode> parseEventTimecode(std::string_view text);

struct EventTimecodeResult {
    std::optional<std::string> timecode;
    TimelineTimecodeProvenance provenance = TimelineTimecodeProvenance::unresolved;
    bool usedFallback = false;
};

// The event timecode of a parsed file by priority. `rate` converts a bext time
// reference to timecode text (the LTC rate the files were stamped at).
EventTimecodeResult eventTimecode(const WAVFile& file, std::string_view fileName,
                                  TimecodeSourcePriority priority, const FrameRateConfig& rate);

// Scans `folder` for "*.wav" (any case; hidden files are left out) in the
// order a file browser shows them, and returns one row per file sorted by
// event index, then track key. Timecode text is formed at `timecodeRate`;
// sourceMediaStart is placed on the grid of `sequenceRate`. Throws
// SyncedAudioError for an unreadable WAV and filesystem_error for an
// unreadable folder. `isCancelled` is polled before each file; when it returns
// true the scan stops and returns nullopt.
std::optional<std::vector<TimelineRebuildDetectedAudioInput>> scanSyncedAudio(
    const std::filesystem::path& folder, TimecodeSourcePriority priority,
    const FrameRateConfig& timecodeRate, const FrameRateConfig& sequenceRate,
    const std::function<bool()>& isCancelled = {});

}  // namespace norvane
