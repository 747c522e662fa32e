#include "core/rebuild/synced_audio.h"

#include <algorithm>
#include <charconv>
#include <map>

#include "core/audio/bwf_reader.h"
#include "core/audio/ixml.h"
#include "core/audio/wav_reader.h"
#include "core/common/bytes.h"
#include "core/common/regex.h"
#include "core/common/text.h"
#include "core/common/uuid.h"
#include "core/rebuild/xml_tree.h"

namespace norvane {

namespace fs = std::filesystem;

std::string label(TimelineTimecodeProvenance provenance) {
    switch (provenance) {
        case TimelineTimecodeProvenance::bwf:
            return "BWF";
        case TimelineTimecodeProvenance::ixml:
            return "iXML";
        case TimelineTimecodeProvenance::filename:
            return "Filename";
        case TimelineTimecodeProvenance::unresolved:
            return "Unresolved";
    }
    return "Unresolved";
}

std::string label(TimelineTrackProvenance provenance) {
    return provenance == TimelineTrackProvenance::explicit_ ? "Explicit" : "Implicit";
}

ResolveRebuildAudioInput TimelineRebuildDetectedAudioInput::toAudioInput() const {
    ResolveRebuildAudioInput input;
    input.url = sourceURL;
    input.name = name;
    input.eventOrder = eventOrder;
    input.eventTimecode = eventTimecode;
    input.frameCount = frameCount;
    input.sampleRate = sampleRate;
    input.channels = channels;
    input.trackKey = trackKey;
    input.sourceMediaStart = sourceMediaStart;
    input.timecodeRate = timecodeRate;
    return input;
}

SyncedAudioError::SyncedAudioError(const fs::path& file, const std::string& reason)
    : Error("Cannot read synced WAV " + file.filename().string() + ": " + reason) {}

namespace {

// Base-10 with an optional sign; nullopt on overflow or any other text.
std::optional<std::int64_t> readInteger(std::string_view text) {
    if (!text.empty() && text.front() == '+') {
        text.remove_prefix(1);
    }
    std::int64_t value = 0;
    auto [end, ec] = std::from_chars(text.data(), text.data() + text.size(), value, 10);
    if (text.empty() || ec != std::errc() || end != text.data() + text.size()) {
        return std::nullopt;
    }
    return value;
}

std::string withoutWavExtension(std::string_view name) {
    // The text ".wav" is removed wherever it stands, in any case.
    std::string out;
    std::string lower = toLowerASCII(name);
    std::size_t i = 0;
    while (i < name.size()) {
        if (lower.compare(i, 4, ".wav") == 0) {
            i += 4;
            continue;
        }
        out += name[i++];
    }
    return out;
}

const Regex& segmentPattern() {
    static const Regex r("(?i)(?:seg|segment|evt|event)[_\\- ]*0*([0-9]+)");
    return r;
}
const Regex& recorderPattern() {
    static const Regex r("(?i)^a\\d+-0*([0-9]+)(?:_|$)");
    return r;
}
const Regex& digitsPattern() {
    static const Regex r("([0-9]+)");
    return r;
}
const Regex& trackPattern() {
    static const Regex r("(?i)(?:^|[_\\- ])(?:trk|track|ch|channel)\\s*0*([0-9]+)(?:$|[_\\- ])");
    return r;
}
const Regex& ixmlTimecodePattern() {
    static const Regex r("<TIMECODE>([^<]+)</TIMECODE>", Regex::Options{true});
    return r;
}
const Regex& nameTimecodePattern() {
    static const Regex r("(\\d{2}:\\d{2}:\\d{2}(?::\\d{2})?)");
    return r;
}
const Regex& timecodeTextPattern() {
    static const Regex r("^([0-9]{2}):([0-9]{2}):([0-9]{2})(?:[:;]([0-9]{2}))?$");
    return r;
}

std::optional<std::string> group1(const Regex& pattern, std::string_view subject) {
    auto match = pattern.firstMatch(subject);
    if (!match || match->size() < 2 || !(*match)[1]) {
        return std::nullopt;
    }
    return *(*match)[1];
}

std::optional<std::string> timecodeInName(std::string_view fileName) {
    std::string last = fs::path(std::string(fileName)).filename().string();
    return group1(nameTimecodePattern(), last);
}

// A name that is not UTF-8 cannot be searched as text: its non-ASCII bytes
// are replaced by a letter no token uses as a separator or digit, so the
// digits and tokens around them are still found.
std::string searchable(std::string_view name) {
    std::string out(name);
    if (!isValidUTF8(name)) {
        for (char& c : out) {
            if (static_cast<unsigned char>(c) >= 0x80) {
                c = 'x';
            }
        }
    }
    return out;
}

const Regex& trackSuffixPattern() {
    static const Regex r("(?i)^(.+)_Tr0*([0-9]+)$");
    return r;
}
const Regex& mixSuffixPattern() {
    static const Regex r("(?i)^(.+)_TrL_?R$");
    return r;
}
const Regex& takeTrackPattern() {
    static const Regex r("^(.+)_0*([0-9]+)_0*([0-9]+)$");
    return r;
}

}  // namespace

FileIdentity identifyFile(std::string_view fileName, const RecorderFileInfo& info) {
    std::string stem = withoutWavExtension(searchable(fileName));
    FileIdentity identity;
    if (auto m = trackSuffixPattern().firstMatch(stem)) {
        identity.rule = kTrackSuffixRule;
        identity.eventOrder = eventIndex(*(*m)[1]);
        if (auto n = readInteger(*(*m)[2])) {
            identity.trackKey = "Trk" + std::to_string(*n);
        }
        return identity;
    }
    if (auto m = mixSuffixPattern().firstMatch(stem)) {
        identity.rule = kMixSuffixRule;
        identity.eventOrder = eventIndex(*(*m)[1]);
        identity.trackKey = "TrkLR";
        return identity;
    }
    if (auto m = takeTrackPattern().firstMatch(stem)) {
        auto take = readInteger(*(*m)[2]);
        auto track = readInteger(*(*m)[3]);
        bool monoOfSet =
            (info.take && take && *info.take == *take) ||
            (info.totalFiles && *info.totalFiles > 1) ||
            (info.channelIndices.size() == 1 && track && info.channelIndices.front() == *track);
        // A take number that is the last number is a poly file's own name.
        if (info.take && track && *info.take == *track && !(take && *info.take == *take)) {
            monoOfSet = false;
        }
        if (monoOfSet && take && track) {
            identity.rule = kTakeTrackRule;
            identity.eventOrder = *take;
            identity.trackKey = "Trk" + std::to_string(*track);
            return identity;
        }
    }
    identity.eventOrder = eventIndex(stem);
    identity.trackKey = explicitTrackKey(stem);
    return identity;
}

std::int64_t eventIndex(std::string_view fileName) {
    std::string stem = withoutWavExtension(searchable(fileName));
    for (const Regex* pattern : {&segmentPattern(), &recorderPattern()}) {
        if (auto captured = group1(*pattern, stem)) {
            return readInteger(*captured).value_or(kNoEventIndex);
        }
    }
    std::vector<std::string> runs = digitsPattern().allMatches(stem, 1);
    if (runs.empty()) {
        return kNoEventIndex;
    }
    return readInteger(runs.back()).value_or(kNoEventIndex);
}

std::optional<std::string> explicitTrackKey(std::string_view fileName) {
    auto captured = group1(trackPattern(), withoutWavExtension(searchable(fileName)));
    if (!captured) {
        return std::nullopt;
    }
    auto number = readInteger(*captured);
    if (!number) {
        return std::nullopt;
    }
    return "Trk" + std::to_string(*number);
}

std::string trackKeyOrDefault(std::string_view fileName) {
    return explicitTrackKey(fileName).value_or("Trk1");
}

std::optional<Timecode> parseEventTimecode(std::string_view text) {
    auto match = timecodeTextPattern().firstMatch(text);
    if (!match) {
        return std::nullopt;
    }
    auto field = [&](std::size_t i) -> std::int64_t {
        return (i < match->size() && (*match)[i]) ? readInteger(*(*match)[i]).value_or(0) : 0;
    };
    Timecode tc;
    tc.hours = field(1);
    tc.minutes = field(2);
    tc.seconds = field(3);
    tc.frames = field(4);
    tc.dropFrame = text.find(';') != std::string_view::npos;
    return tc;
}

namespace {

// The timecode by priority from what the file holds: its iXML text and its
// bext time reference.
EventTimecodeResult eventTimecodeFrom(const std::optional<std::string>& ixml,
                                      const std::optional<BWFInfo>& bwf, std::string_view fileName,
                                      TimecodeSourcePriority priority,
                                      const FrameRateConfig& rate) {
    EventTimecodeResult result;
    switch (priority) {
        case TimecodeSourcePriority::inputXMLOnly:
            return result;
        case TimecodeSourcePriority::filenameOnly:
            if (auto tc = timecodeInName(fileName)) {
                result.timecode = *tc;
                result.provenance = TimelineTimecodeProvenance::filename;
            }
            return result;
        case TimecodeSourcePriority::bwfIXMLThenFilename:
            break;
    }
    if (ixml) {
        if (auto tc = group1(ixmlTimecodePattern(), *ixml)) {
            std::string trimmed = trim(*tc);
            if (!trimmed.empty()) {
                result.timecode = trimmed;
                result.provenance = TimelineTimecodeProvenance::ixml;
                return result;
            }
        }
    }
    if (bwf) {
        if (auto tc = BWFReader::timecode(bwf->timeReferenceSamples, bwf->sampleRate,
                                          rate.numerator, rate.denominator, rate.dropFrame)) {
            result.timecode = *tc;
            result.provenance = TimelineTimecodeProvenance::bwf;
            return result;
        }
    }
    if (auto tc = timecodeInName(fileName)) {
        result.timecode = *tc;
        result.provenance = TimelineTimecodeProvenance::filename;
        result.usedFallback = true;
    }
    return result;
}

}  // namespace

EventTimecodeResult eventTimecode(const WAVFile& file, std::string_view fileName,
                                  TimecodeSourcePriority priority, const FrameRateConfig& rate) {
    return eventTimecodeFrom(BWFReader::ixmlText(file), BWFReader::info(file), fileName, priority,
                             rate);
}

std::optional<std::vector<TimelineRebuildDetectedAudioInput>> scanSyncedAudio(
    const fs::path& folder, TimecodeSourcePriority priority, const FrameRateConfig& timecodeRate,
    const FrameRateConfig& sequenceRate, const std::function<bool()>& isCancelled) {
    std::vector<fs::path> files;
    for (const fs::directory_entry& entry : fs::directory_iterator(folder)) {
        std::string name = entry.path().filename().string();
        if (name.empty() || name.front() == '.') {
            continue;
        }
        if (toLowerASCII(entry.path().extension().string()) != ".wav") {
            continue;
        }
        std::error_code ec;
        if (!entry.is_regular_file(ec)) {
            continue;
        }
        files.push_back(entry.path());
    }
    std::stable_sort(files.begin(), files.end(), [](const fs::path& a, const fs::path& b) {
        return fileBrowserLess(a.filename().string(), b.filename().string());
    });

    std::vector<TimelineRebuildDetectedAudioInput> rows;
    std::vector<bool> explicitKey;
    for (const fs::path& path : files) {
        if (isCancelled && isCancelled()) {
            return std::nullopt;
        }
        std::string fileName = path.filename().string();
        // Headers and metadata chunks only: the audio is never read.
        std::optional<WavReader> file;
        try {
            file.emplace(path);
        } catch (const std::exception& e) {
            throw SyncedAudioError(path, describeError(e));
        }
        std::optional<std::string> ixmlText;
        if (auto payload = file->metadataChunk("iXML")) {
            ixmlText.emplace(payload->begin(), payload->end());
            while (!ixmlText->empty() && ixmlText->back() == '\0') {
                ixmlText->pop_back();
            }
        }
        std::optional<BWFInfo> bwf;
        if (auto payload = file->metadataChunk("bext"); payload && payload->size() >= 346) {
            bwf = BWFInfo{readLE64(*payload, 338), file->fmt().sampleRate};
        }
        // The iXML is read once: the file set, take and timecode rate.
        RecorderFileInfo recorder;
        std::optional<FrameRateConfig> fileRate;
        if (ixmlText) {
            if (auto ixml = IXML::parse(*ixmlText)) {
                fileRate = IXML::timecodeRate(*ixml);
                if (auto take = ixml->childText("TAKE")) {
                    recorder.take = readInteger(trim(*take));
                }
                if (const IXMLElement* set = ixml->child("FILE_SET")) {
                    if (auto total = set->childText("TOTAL_FILES")) {
                        recorder.totalFiles = readInteger(trim(*total));
                    }
                }
                for (const IXMLTrack& track : IXML::tracks(*ixml)) {
                    if (track.channelIndex) {
                        recorder.channelIndices.push_back(*track.channelIndex);
                    }
                }
            }
        }
        if (fileRate && (fileRate->numerator <= 0 || fileRate->denominator <= 0)) {
            fileRate.reset();
        }
        FileIdentity identity = identifyFile(fileName, recorder);

        TimelineRebuildDetectedAudioInput row;
        row.id = makeUUID();
        row.name = path.stem().string();
        row.sourceURL = path;
        row.eventOrder = identity.eventOrder;
        row.namingRule = std::string(identity.rule);
        row.timecodeRate = fileRate;
        // Timecode text counts frames at the file's own rate when it says.
        EventTimecodeResult tc =
            eventTimecodeFrom(ixmlText, bwf, fileName, priority, fileRate.value_or(timecodeRate));
        row.eventTimecode = tc.timecode.value_or("UNRESOLVED");
        row.timecodeProvenance = tc.provenance;
        row.usedFallback = tc.usedFallback;
        row.frameCount = file->frameCount();
        row.sampleRate = file->fmt().sampleRate;
        row.channels = file->fmt().channelCount;
        row.durationSeconds =
            row.sampleRate > 0 ? static_cast<double>(row.frameCount) / row.sampleRate : 0.0;
        if (const auto& info = bwf) {
            if (auto start =
                    BWFReader::startTime(info->timeReferenceSamples, info->sampleRate,
                                         sequenceRate.numerator, sequenceRate.denominator)) {
                try {
                    row.sourceMediaStart = RationalTime(start->first, start->second);
                } catch (const std::overflow_error&) {
                    row.sourceMediaStart = RationalTime::zero();
                }
            }
        }
        explicitKey.push_back(identity.trackKey.has_value());
        if (identity.trackKey) {
            row.trackKey = *identity.trackKey;
            row.trackProvenance = TimelineTrackProvenance::explicit_;
        }
        rows.push_back(std::move(row));
    }

    // Files without a track token take Trk1, Trk2, ... in file order within
    // their event; only they advance the counter.
    std::map<std::int64_t, std::int64_t> counters;
    for (std::size_t i = 0; i < rows.size(); ++i) {
        if (explicitKey[i]) {
            continue;
        }
        std::int64_t& counter = counters.try_emplace(rows[i].eventOrder, 1).first->second;
        rows[i].trackKey = "Trk" + std::to_string(counter++);
        rows[i].trackProvenance = TimelineTrackProvenance::implicit;
    }

    std::stable_sort(
        rows.begin(), rows.end(),
        [](const TimelineRebuildDetectedAudioInput& a, const TimelineRebuildDetectedAudioInput& b) {
            if (a.eventOrder != b.eventOrder) {
                return a.eventOrder < b.eventOrder;
            }
            return fileBrowserLess(a.trackKey, b.trackKey);
        });
    return rows;
}

}  // namespace norvane
