#include "core/settings/app_settings_store.h"

#include <pwd.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <chrono>
#include <climits>
#include <cmath>
#include <cstdlib>
#include <system_error>

#include "core/common/file_output.h"
#include "core/common/local_time.h"
#include "core/common/text.h"

namespace norvane {

namespace fs = std::filesystem;
using Json = nlohmann::ordered_json;

namespace {

// A settings file is a few hundred bytes; anything far larger is not ours and
// is not read into memory.
constexpr std::uintmax_t kMaxSettingsFileBytes = 1 << 20;
// Containers nested deeper than this make a settings file corrupt.
constexpr int kMaxSettingsDepth = 64;

enum class ValueKind {
    frameRatePreset,
    channel,
    lowConfidenceBehavior,
    folder,  // a folder path, the home directory by default
    boolean,
    groupingMethod,
    durationTolerancePreset,
    suffix,
    collisionBehavior,
    missingCameraBehavior,
    timecodeSourcePriority,
    videoFrameRateMode,
    recentPath,  // a remembered input, empty by default
    timeReferenceMode,
};

struct KeySpec {
    std::string_view name;  // without the "settings." prefix
    ValueKind kind;
};

// Table order: the order of loading, of keys() and of `norvane settings show`.
constexpr std::array<KeySpec, 20> kKeys = {{
    {"defaultFrameRatePreset", ValueKind::frameRatePreset},
    {"defaultGroupedLTCChannel", ValueKind::channel},
    {"lowConfidenceBehavior", ValueKind::lowConfidenceBehavior},
    {"defaultOutputFolderPath", ValueKind::folder},
    {"defaultIncludeLTCOutputs", ValueKind::boolean},
    {"defaultSaveCSVReport", ValueKind::boolean},
    {"defaultGroupingMethod", ValueKind::groupingMethod},
    {"durationTolerancePreset", ValueKind::durationTolerancePreset},
    {"outputFilenameSuffix", ValueKind::suffix},
    {"outputCollisionBehavior", ValueKind::collisionBehavior},
    {"timelineRebuildDefaultMissingCameraBehavior", ValueKind::missingCameraBehavior},
    {"timelineRebuildDefaultTimecodeSourcePriority", ValueKind::timecodeSourcePriority},
    {"timelineRebuildDefaultVideoFrameRateMode", ValueKind::videoFrameRateMode},
    {"timelineRebuildRecentSourceXMLPath", ValueKind::recentPath},
    {"timelineRebuildRecentStereoMixPath", ValueKind::recentPath},
    {"timelineRebuildRecentSyncedFolderPath", ValueKind::recentPath},
    {"timelineRebuildRecentOutputFolderPath", ValueKind::folder},
    {"polySplitDefaultOutputFolderPath", ValueKind::folder},
    {"polySplitAppendTrackNames", ValueKind::boolean},
    {"defaultTimeReferenceMode", ValueKind::timeReferenceMode},
}};

// Indices into kKeys, so the property code reads by name.
enum Index : std::size_t {
    kFrameRatePreset,
    kGroupedLTCChannel,
    kLowConfidenceBehavior,
    kDefaultOutputFolderPath,
    kIncludeLTCOutputs,
    kSaveCSVReport,
    kGroupingMethod,
    kDurationTolerancePreset,
    kOutputFilenameSuffix,
    kOutputCollisionBehavior,
    kMissingCameraBehavior,
    kTimecodeSourcePriority,
    kVideoFrameRateMode,
    kRecentSourceXMLPath,
    kRecentStereoMixPath,
    kRecentSyncedFolderPath,
    kRecentOutputFolderPath,
    kPolySplitOutputFolderPath,
    kPolySplitAppendTrackNames,
    kTimeReferenceMode,
};

std::string fullKey(std::size_t index) {
    return std::string(AppSettingsStore::kKeyPrefix) + std::string(kKeys[index].name);
}

std::optional<std::size_t> indexOfKey(std::string_view key) {
    std::string lowered = toLowerASCII(key);
    const std::string prefix = toLowerASCII(AppSettingsStore::kKeyPrefix);
    if (lowered.starts_with(prefix)) {
        lowered.erase(0, prefix.size());
    }
    for (std::size_t i = 0; i < kKeys.size(); ++i) {
        if (toLowerASCII(kKeys[i].name) == lowered) {
            return i;
        }
    }
    return std::nullopt;
}

std::size_t requireIndex(std::string_view key) {
    if (auto index = indexOfKey(key)) {
        return *index;
    }
    throw SettingsError::unknownKey(key);
}

template <typename Range>
std::vector<std::string> labelsOf(const Range& cases) {
    std::vector<std::string> out;
    for (auto value : cases) {
        out.push_back(label(value));
    }
    return out;
}

// The labels of an enumeration key; empty for the other kinds.
std::vector<std::string> enumerationLabels(ValueKind kind) {
    switch (kind) {
        case ValueKind::frameRatePreset:
            return labelsOf(allFrameRatePresets());
        case ValueKind::lowConfidenceBehavior:
            return labelsOf(allLowConfidenceBehaviors());
        case ValueKind::groupingMethod:
            return labelsOf(allGroupingMethods());
        case ValueKind::durationTolerancePreset:
            return labelsOf(allDurationTolerancePresets());
        case ValueKind::collisionBehavior:
            return labelsOf(allOutputCollisionBehaviors());
        case ValueKind::missingCameraBehavior:
            return labelsOf(allMissingCameraBehaviors());
        case ValueKind::timecodeSourcePriority:
            return labelsOf(allTimecodeSourcePriorities());
        case ValueKind::videoFrameRateMode:
            return labelsOf(allVideoFrameRateModes());
        case ValueKind::timeReferenceMode:
            return labelsOf(allTimeReferenceModes());
        default:
            return {};
    }
}

// A stored channel read as an integer the way a defaults store does: numbers
// (truncated), decimal text and booleans convert; anything else, or a value
// outside the int range, reads as 0.
int readInteger(const Json* stored) {
    if (stored == nullptr) {
        return 0;
    }
    if (stored->is_number_integer() && !stored->is_number_unsigned()) {
        const auto value = stored->get<std::int64_t>();
        return value < INT_MIN || value > INT_MAX ? 0 : static_cast<int>(value);
    }
    if (stored->is_number_unsigned()) {
        const auto value = stored->get<std::uint64_t>();
        return value > static_cast<std::uint64_t>(INT_MAX) ? 0 : static_cast<int>(value);
    }
    if (stored->is_number_float()) {
        const double value = std::trunc(stored->get<double>());
        return std::isfinite(value) && value >= INT_MIN && value <= INT_MAX
                   ? static_cast<int>(value)
                   : 0;
    }
    if (stored->is_boolean()) {
        return stored->get<bool>() ? 1 : 0;
    }
    if (stored->is_string()) {
        const std::string text = trim(stored->get_ref<const std::string&>());
        int value = 0;
        const char* end = text.data() + text.size();
        auto [ptr, ec] = std::from_chars(text.data(), end, value);
        return ec == std::errc() && ptr == end ? value : 0;
    }
    return 0;
}

std::string quotedList(const std::vector<std::string>& items) {
    std::string out;
    for (const auto& item : items) {
        out += (out.empty() ? "\"" : ", \"") + item + "\"";
    }
    return out;
}

// What a key accepts, as it ends an invalid-value message.
std::string acceptedText(std::size_t index) {
    const ValueKind kind = kKeys[index].kind;
    if (auto labels = enumerationLabels(kind); !labels.empty()) {
        return "one of " + quotedList(labels);
    }
    switch (kind) {
        case ValueKind::channel:
            return "an integer >= 1";
        case ValueKind::boolean:
            return "true or false";
        case ValueKind::folder:
            return "a folder path";
        case ValueKind::suffix:
            return "text without \"/\"";
        default:
            return "a path, or empty text to clear it";
    }
}

bool isStorableText(std::string_view text) {
    if (text.find('\0') != std::string_view::npos) {
        return false;
    }
    try {
        (void)Json(std::string(text)).dump();  // JSON text must be valid UTF-8
        return true;
    } catch (const nlohmann::json::exception&) {
        return false;
    }
}

// "settings.json.corrupt-20261121-223728", with a counter if that exists already.
fs::path corruptCopyPath(const fs::path& file) {
    const std::string stamp = formatLocalTime(std::chrono::system_clock::now(), "%Y%m%d-%H%M%S");
    fs::path candidate = file;
    candidate += ".corrupt-" + stamp;
    std::error_code ec;
    for (int n = 2; fs::exists(candidate, ec) || ec; ++n) {
        candidate = file;
        candidate += ".corrupt-" + stamp + "-" + std::to_string(n);
        if (n > 1000) {
            break;
        }
    }
    return candidate;
}

}  // namespace

// SettingsError

SettingsError SettingsError::unknownKey(std::string_view key) {
    std::string names;
    for (const auto& known : kKeys) {
        names += (names.empty() ? "" : ", ") + std::string(known.name);
    }
    return SettingsError(Kind::unknownKey, "Unknown setting \"" + std::string(key) +
                                               "\". Known settings: " + names +
                                               " (the \"settings.\" prefix is optional).");
}

SettingsError SettingsError::invalidValue(std::string_view key, std::string_view value,
                                          std::string_view accepted) {
    return SettingsError(Kind::invalidValue, "Invalid value \"" + std::string(value) + "\" for " +
                                                 std::string(key) +
                                                 "; accepted: " + std::string(accepted) + ".");
}

SettingsError SettingsError::saveFailed(const std::string& reason) {
    return SettingsError(Kind::saveFailed, reason);
}

// Locations

fs::path AppSettingsStore::homeDirectoryPath() {
    if (const char* home = std::getenv("HOME"); home != nullptr && *home != '\0') {
        return home;
    }
    if (const passwd* entry = ::getpwuid(::getuid());
        entry != nullptr && entry->pw_dir != nullptr && *entry->pw_dir != '\0') {
        return entry->pw_dir;
    }
    std::error_code ec;
    fs::path temp = fs::temp_directory_path(ec);
    return ec ? fs::path("/tmp") : temp;
}

fs::path AppSettingsStore::defaultSettingsPath() {
    if (const char* explicitPath = std::getenv("NORVANE_SETTINGS");
        explicitPath != nullptr && *explicitPath != '\0') {
        return explicitPath;
    }
    // Relative XDG_CONFIG_HOME values are invalid and ignored.
    if (const char* xdg = std::getenv("XDG_CONFIG_HOME");
        xdg != nullptr && *xdg != '\0' && fs::path(xdg).is_absolute()) {
        return fs::path(xdg) / "norvane" / "settings.json";
    }
    return homeDirectoryPath() / ".config" / "norvane" / "settings.json";
}

// Construction and persistence

AppSettingsStore::AppSettingsStore() : AppSettingsStore(defaultSettingsPath()) {}

AppSettingsStore::AppSettingsStore(fs::path settingsFile)
    : settingsFile_(std::move(settingsFile)), homeDirectory_(homeDirectoryPath().string()) {
    load();
    for (std::size_t i = 0; i < kKeys.size(); ++i) {
        const std::string key = fullKey(i);
        const auto found = stored_.find(key);
        applyStored(i, found == stored_.end() ? nullptr : &*found);
    }
}

void AppSettingsStore::load() {
    const std::string shown = settingsFile_.string();
    std::error_code ec;
    const fs::file_status status = fs::status(settingsFile_, ec);
    if (status.type() == fs::file_type::not_found) {
        return;
    }
    if (ec) {
        loadWarnings_.push_back("Could not read the settings file " + shown + " (" + ec.message() +
                                "); the defaults are in use.");
        return;
    }
    if (!fs::is_regular_file(status)) {
        loadWarnings_.push_back("The settings file " + shown +
                                " is not a regular file; the defaults are in use.");
        return;
    }

    std::optional<Json> parsed;
    const std::uintmax_t size = fs::file_size(settingsFile_, ec);
    if (!ec && size <= kMaxSettingsFileBytes) {
        ByteBuffer bytes;
        try {
            bytes = readWholeFile(settingsFile_);
        } catch (const std::exception& e) {
            loadWarnings_.push_back("Could not read the settings file " + shown + " (" +
                                    describeError(e) + "); the defaults are in use.");
            return;
        }
        const std::string text(bytes.begin(), bytes.end());
        if (trim(text).empty()) {
            return;  // an empty file holds no settings
        }
        // Nesting is bounded on load, so writing the document back (a
        // recursive walk) can never run out of stack on what a file held.
        bool tooDeep = false;
        const auto depthCheck = [&tooDeep](int depth, nlohmann::json::parse_event_t event, Json&) {
            if ((event == nlohmann::json::parse_event_t::object_start ||
                 event == nlohmann::json::parse_event_t::array_start) &&
                depth >= kMaxSettingsDepth) {
                tooDeep = true;
                return false;  // drop it rather than build it
            }
            return !tooDeep;
        };
        Json document = Json::parse(text, depthCheck, /*allow_exceptions=*/false);
        if (document.is_object() && !tooDeep) {
            parsed = std::move(document);
        }
    }
    if (parsed) {
        stored_ = std::move(*parsed);
        return;
    }

    // Not a JSON object: keep the file aside rather than overwrite it with the
    // next change, so the user can still recover what was in it.
    const fs::path aside = corruptCopyPath(settingsFile_);
    fs::rename(settingsFile_, aside, ec);
    if (ec) {
        loadWarnings_.push_back("The settings file " + shown +
                                " is not valid settings JSON and could not be kept aside (" +
                                ec.message() + "); the defaults are in use.");
    } else {
        loadWarnings_.push_back("The settings file " + shown +
                                " is not valid settings JSON; it was kept as " + aside.string() +
                                " and the defaults are in use.");
    }
}

bool AppSettingsStore::save() {
    try {
        const std::string text = stored_.dump(4) + "\n";
        if (settingsFile_.has_parent_path()) {
            fs::create_directories(settingsFile_.parent_path());
        }
        writeFile(settingsFile_,
                  ByteView(reinterpret_cast<const std::uint8_t*>(text.data()), text.size()),
                  WriteMode::replaceAtomically);
        lastWriteError_.reset();
        return true;
    } catch (const std::exception& e) {
        lastWriteError_ =
            "Could not save settings to " + settingsFile_.string() + ": " + describeError(e);
        return false;
    }
}

// Load rules and values

void AppSettingsStore::applyStored(std::size_t index, const Json* stored) {
    const std::string* text =
        stored != nullptr && stored->is_string() ? &stored->get_ref<const std::string&>() : nullptr;
    const auto textOr = [&](const std::string& fallback) { return text ? *text : fallback; };
    const auto folderOrHome = [&] { return text && !text->empty() ? *text : homeDirectory_; };
    const auto boolOr = [&](bool fallback) {
        return stored != nullptr && stored->is_boolean() ? stored->get<bool>() : fallback;
    };
    const std::string_view raw = text ? std::string_view(*text) : std::string_view();

    switch (static_cast<Index>(index)) {
        case kFrameRatePreset:
            defaultFrameRatePreset_ =
                frameRatePresetFromLabel(raw).value_or(FrameRatePreset::auto_);
            break;
        case kGroupedLTCChannel:
            defaultGroupedLTCChannel_ = std::max(readInteger(stored), 1);
            break;
        case kLowConfidenceBehavior:
            lowConfidenceBehavior_ =
                lowConfidenceBehaviorFromLabel(raw).value_or(LowConfidenceBehavior::ask);
            break;
        case kDefaultOutputFolderPath:
            defaultOutputFolderPath_ = folderOrHome();
            break;
        case kIncludeLTCOutputs:
            defaultIncludeLTCOutputs_ = boolOr(false);
            break;
        case kPolySplitAppendTrackNames:
            polySplitAppendTrackNames_ = boolOr(false);
            break;
        case kSaveCSVReport:
            defaultSaveCSVReport_ = boolOr(true);
            break;
        case kGroupingMethod:
            defaultGroupingMethod_ =
                groupingMethodFromLabel(raw).value_or(GroupingMethod::durationExact);
            break;
        case kDurationTolerancePreset:
            durationTolerancePreset_ =
                durationTolerancePresetFromLabel(raw).value_or(DurationTolerancePreset::standard);
            break;
        case kOutputFilenameSuffix:
            outputFilenameSuffix_ = textOr("_tc");
            break;
        case kOutputCollisionBehavior:
            outputCollisionBehavior_ =
                outputCollisionBehaviorFromLabel(raw).value_or(OutputCollisionBehavior::ask);
            break;
        case kMissingCameraBehavior:
            timelineRebuildDefaultMissingCameraBehavior_ =
                missingCameraBehaviorFromLabel(raw).value_or(MissingCameraBehavior::insertGap);
            break;
        case kTimecodeSourcePriority:
            timelineRebuildDefaultTimecodeSourcePriority_ =
                timecodeSourcePriorityFromLabel(raw).value_or(
                    TimecodeSourcePriority::bwfIXMLThenFilename);
            break;
        case kVideoFrameRateMode:
            timelineRebuildDefaultVideoFrameRateMode_ =
                videoFrameRateModeFromLabel(raw).value_or(VideoFrameRateMode::sameAsLTC);
            break;
        case kRecentSourceXMLPath:
            timelineRebuildRecentSourceXMLPath_ = textOr("");
            break;
        case kRecentStereoMixPath:
            timelineRebuildRecentStereoMixPath_ = textOr("");
            break;
        case kRecentSyncedFolderPath:
            timelineRebuildRecentSyncedFolderPath_ = textOr("");
            break;
        case kRecentOutputFolderPath:
            timelineRebuildRecentOutputFolderPath_ = folderOrHome();
            break;
        case kPolySplitOutputFolderPath:
            polySplitDefaultOutputFolderPath_ = folderOrHome();
            break;
        case kTimeReferenceMode:
            defaultTimeReferenceMode_ =
                timeReferenceModeFromLabel(raw).value_or(TimeReferenceMode::frame);
            break;
    }
}

Json AppSettingsStore::currentValue(std::size_t index) const {
    switch (static_cast<Index>(index)) {
        case kFrameRatePreset:
            return label(defaultFrameRatePreset_);
        case kGroupedLTCChannel:
            return defaultGroupedLTCChannel_;
        case kLowConfidenceBehavior:
            return label(lowConfidenceBehavior_);
        case kDefaultOutputFolderPath:
            return defaultOutputFolderPath_;
        case kIncludeLTCOutputs:
            return defaultIncludeLTCOutputs_;
        case kPolySplitAppendTrackNames:
            return polySplitAppendTrackNames_;
        case kSaveCSVReport:
            return defaultSaveCSVReport_;
        case kGroupingMethod:
            return label(defaultGroupingMethod_);
        case kDurationTolerancePreset:
            return label(durationTolerancePreset_);
        case kOutputFilenameSuffix:
            return outputFilenameSuffix_;
        case kOutputCollisionBehavior:
            return label(outputCollisionBehavior_);
        case kMissingCameraBehavior:
            return label(timelineRebuildDefaultMissingCameraBehavior_);
        case kTimecodeSourcePriority:
            return label(timelineRebuildDefaultTimecodeSourcePriority_);
        case kVideoFrameRateMode:
            return label(timelineRebuildDefaultVideoFrameRateMode_);
        case kRecentSourceXMLPath:
            return timelineRebuildRecentSourceXMLPath_;
        case kRecentStereoMixPath:
            return timelineRebuildRecentStereoMixPath_;
        case kRecentSyncedFolderPath:
            return timelineRebuildRecentSyncedFolderPath_;
        case kRecentOutputFolderPath:
            return timelineRebuildRecentOutputFolderPath_;
        case kPolySplitOutputFolderPath:
            return polySplitDefaultOutputFolderPath_;
        case kTimeReferenceMode:
            return label(defaultTimeReferenceMode_);
    }
    return nullptr;
}

void AppSettingsStore::assign(std::size_t index, const Json& value) {
    applyStored(index, &value);
    const std::string key = fullKey(index);
    Json current = currentValue(index);
    if (current.is_string() && !isStorableText(current.get_ref<const std::string&>())) {
        // Kept in memory for this session, but JSON cannot carry it.
        lastWriteError_ = "Could not save settings to " + settingsFile_.string() +
                          ": the value of " + key + " is not valid UTF-8 text.";
    } else {
        stored_[key] = std::move(current);
        save();
    }
    notify(key);
}

void AppSettingsStore::resetToSystemDefaults() {
    for (std::size_t i = 0; i < kKeys.size(); ++i) {
        stored_.erase(fullKey(i));
    }
    // A key's default is what its load rule gives when the key is absent. Every
    // default goes back under its key in one save, so a reset is never half written.
    for (std::size_t i = 0; i < kKeys.size(); ++i) {
        applyStored(i, nullptr);
        stored_[fullKey(i)] = currentValue(i);
    }
    save();
    for (std::size_t i = 0; i < kKeys.size(); ++i) {
        notify(fullKey(i));
    }
}

// Observers

int AppSettingsStore::addObserver(std::function<void(const std::string& key)> observer) {
    const int token = nextObserverToken_++;
    observers_.emplace(token, std::move(observer));
    return token;
}

void AppSettingsStore::removeObserver(int token) {
    observers_.erase(token);
}

void AppSettingsStore::notify(const std::string& key) {
    // A copy, so an observer may add or remove observers while being called.
    const auto observers = observers_;
    for (const auto& [token, observer] : observers) {
        if (observer && observers_.contains(token)) {
            observer(key);
        }
    }
}

// Typed setters

void AppSettingsStore::setDefaultFrameRatePreset(FrameRatePreset value) {
    assign(kFrameRatePreset, label(value));
}
void AppSettingsStore::setDefaultGroupedLTCChannel(int value) {
    assign(kGroupedLTCChannel, std::max(value, 1));
}
void AppSettingsStore::setLowConfidenceBehavior(LowConfidenceBehavior value) {
    assign(kLowConfidenceBehavior, label(value));
}
void AppSettingsStore::setDefaultOutputFolderPath(const std::string& value) {
    assign(kDefaultOutputFolderPath, value);
}
void AppSettingsStore::setDefaultIncludeLTCOutputs(bool value) {
    assign(kIncludeLTCOutputs, value);
}

void AppSettingsStore::setPolySplitAppendTrackNames(bool value) {
    assign(kPolySplitAppendTrackNames, value);
}
void AppSettingsStore::setDefaultSaveCSVReport(bool value) {
    assign(kSaveCSVReport, value);
}
void AppSettingsStore::setDefaultGroupingMethod(GroupingMethod value) {
    assign(kGroupingMethod, label(value));
}
void AppSettingsStore::setDurationTolerancePreset(DurationTolerancePreset value) {
    assign(kDurationTolerancePreset, label(value));
}
void AppSettingsStore::setOutputFilenameSuffix(const std::string& value) {
    assign(kOutputFilenameSuffix, value);
}
void AppSettingsStore::setOutputCollisionBehavior(OutputCollisionBehavior value) {
    assign(kOutputCollisionBehavior, label(value));
}
void AppSettingsStore::setTimelineRebuildDefaultMissingCameraBehavior(MissingCameraBehavior value) {
    assign(kMissingCameraBehavior, label(value));
}
void AppSettingsStore::setTimelineRebuildDefaultTimecodeSourcePriority(
    TimecodeSourcePriority value) {
    assign(kTimecodeSourcePriority, label(value));
}
void AppSettingsStore::setTimelineRebuildDefaultVideoFrameRateMode(VideoFrameRateMode value) {
    assign(kVideoFrameRateMode, label(value));
}
void AppSettingsStore::setTimelineRebuildRecentSourceXMLPath(const std::string& value) {
    assign(kRecentSourceXMLPath, value);
}
void AppSettingsStore::setTimelineRebuildRecentStereoMixPath(const std::string& value) {
    assign(kRecentStereoMixPath, value);
}
void AppSettingsStore::setTimelineRebuildRecentSyncedFolderPath(const std::string& value) {
    assign(kRecentSyncedFolderPath, value);
}
void AppSettingsStore::setTimelineRebuildRecentOutputFolderPath(const std::string& value) {
    assign(kRecentOutputFolderPath, value);
}
void AppSettingsStore::setPolySplitDefaultOutputFolderPath(const std::string& value) {
    assign(kPolySplitOutputFolderPath, value);
}
void AppSettingsStore::setDefaultTimeReferenceMode(TimeReferenceMode value) {
    assign(kTimeReferenceMode, label(value));
}

// Generic access

std::vector<std::string> AppSettingsStore::keys() {
    std::vector<std::string> out;
    for (std::size_t i = 0; i < kKeys.size(); ++i) {
        out.push_back(fullKey(i));
    }
    return out;
}

std::optional<std::string> AppSettingsStore::canonicalKey(std::string_view key) {
    if (auto index = indexOfKey(key)) {
        return fullKey(*index);
    }
    return std::nullopt;
}

std::vector<std::string> AppSettingsStore::acceptedValues(std::string_view key) {
    const std::size_t index = requireIndex(key);
    if (auto labels = enumerationLabels(kKeys[index].kind); !labels.empty()) {
        return labels;
    }
    if (kKeys[index].kind == ValueKind::boolean) {
        return {"true", "false"};
    }
    return {acceptedText(index)};
}

Json AppSettingsStore::value(std::string_view key) const {
    return currentValue(requireIndex(key));
}

std::string AppSettingsStore::valueText(std::string_view key) const {
    const Json current = value(key);
    if (current.is_string()) {
        return current.get<std::string>();
    }
    return current.dump();  // integers and true/false
}

Json AppSettingsStore::snapshot() const {
    Json out = Json::object();
    for (std::size_t i = 0; i < kKeys.size(); ++i) {
        out[fullKey(i)] = currentValue(i);
    }
    return out;
}

void AppSettingsStore::setValueFromText(std::string_view key, std::string_view text) {
    const std::size_t index = requireIndex(key);
    const std::string name = fullKey(index);
    const ValueKind kind = kKeys[index].kind;
    const auto refuse = [&] {
        return SettingsError::invalidValue(name, text, acceptedText(index));
    };

    Json parsed;
    if (auto labels = enumerationLabels(kind); !labels.empty()) {
        const auto match = std::find_if(labels.begin(), labels.end(), [&](const std::string& l) {
            return toLowerASCII(l) == toLowerASCII(text);
        });
        if (match == labels.end()) {
            throw refuse();
        }
        parsed = *match;
    } else if (kind == ValueKind::channel) {
        const std::string trimmed = trim(text);
        int channel = 0;
        const char* end = trimmed.data() + trimmed.size();
        auto [ptr, ec] = std::from_chars(trimmed.data(), end, channel);
        if (trimmed.empty() || ec != std::errc() || ptr != end || channel < 1) {
            throw refuse();
        }
        parsed = channel;
    } else if (kind == ValueKind::boolean) {
        const std::string lowered = toLowerASCII(trim(text));
        if (lowered != "true" && lowered != "false") {
            throw refuse();
        }
        parsed = lowered == "true";
    } else {
        if (!isStorableText(text) || (kind == ValueKind::folder && trim(text).empty()) ||
            (kind == ValueKind::suffix && text.find('/') != std::string_view::npos)) {
            throw refuse();
        }
        parsed = std::string(text);
    }

    assign(index, parsed);
    if (lastWriteError_) {
        throw SettingsError::saveFailed(*lastWriteError_);
    }
}

}  // namespace norvane
