#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <nlohmann/json.hpp>

#include "core/common/error.h"
#include "core/settings/settings_enums.h"
#include "core/stamp/processing_model.h"
#include "core/timecode/timecode.h"

namespace norvane {

// A refused settings request: a key that does not exist, a value that does not
// fit its key, or a change that could not be saved.
class SettingsError : public Error {
  public:
    enum class Kind { unknownKey, invalidValue, saveFailed };

    static SettingsError unknownKey(std::string_view key);
    // `accepted` is what the key takes, as the text ends the message.
    static SettingsError invalidValue(std::string_view key, std::string_view value,
                                      std::string_view accepted);
    // `reason` is the whole message ("Could not save settings to …").
    static SettingsError saveFailed(const std::string& reason);

    Kind kind() const { return kind_; }

  private:
    SettingsError(Kind kind, const std::string& message) : Error(message), kind_(kind) {}
    Kind kind_;
};

// The user's persistent defaults for the three tools.
//
// Persistence is one JSON object of "settings." keys in a file (by default
// $XDG_CONFIG_HOME/norvane/settings.json, see defaultSettingsPath()). JSON keeps
// the stored types, so every key has a load rule for values of the wrong type
// or text: the rule falls back to the key's default, never fails. Construction
// only reads; every change is written at once, atomically, and announced to the
// observers with its full key. Keys in the file that are not ours are kept.
//
// Not thread-safe: use one store from one thread (the app's main thread).
class AppSettingsStore {
  public:
    static constexpr std::string_view kKeyPrefix = "settings.";

    // The file named by NORVANE_SETTINGS, else $XDG_CONFIG_HOME/norvane/settings.json
    // (when XDG_CONFIG_HOME is an absolute path), else <home>/.config/norvane/settings.json.
    static std::filesystem::path defaultSettingsPath();
    // $HOME, else the account's home from the password database, else the
    // system's temporary folder (a writable place where there is no home).
    static std::filesystem::path homeDirectoryPath();

    // Loads defaultSettingsPath().
    AppSettingsStore();
    explicit AppSettingsStore(std::filesystem::path settingsFile);
    AppSettingsStore(const AppSettingsStore&) = delete;
    AppSettingsStore& operator=(const AppSettingsStore&) = delete;

    const std::filesystem::path& settingsFile() const { return settingsFile_; }
    // Problems met while loading (an unreadable or corrupt file), for the user;
    // empty for a missing or good file.
    const std::vector<std::string>& loadWarnings() const { return loadWarnings_; }
    // Why the most recent change could not be saved; cleared by a successful save.
    const std::optional<std::string>& lastWriteError() const { return lastWriteError_; }

    // Observers are called after each change with the full key ("settings.…").
    int addObserver(std::function<void(const std::string& key)> observer);
    void removeObserver(int token);

    FrameRatePreset defaultFrameRatePreset() const { return defaultFrameRatePreset_; }
    void setDefaultFrameRatePreset(FrameRatePreset value);
    // 1-based LTC channel; values below 1 are stored as 1.
    int defaultGroupedLTCChannel() const { return defaultGroupedLTCChannel_; }
    void setDefaultGroupedLTCChannel(int value);
    LowConfidenceBehavior lowConfidenceBehavior() const { return lowConfidenceBehavior_; }
    void setLowConfidenceBehavior(LowConfidenceBehavior value);
    const std::string& defaultOutputFolderPath() const { return defaultOutputFolderPath_; }
    void setDefaultOutputFolderPath(const std::string& value);
    bool defaultIncludeLTCOutputs() const { return defaultIncludeLTCOutputs_; }
    void setDefaultIncludeLTCOutputs(bool value);
    bool defaultSaveCSVReport() const { return defaultSaveCSVReport_; }
    void setDefaultSaveCSVReport(bool value);
    GroupingMethod defaultGroupingMethod() const { return defaultGroupingMethod_; }
    void setDefaultGroupingMethod(GroupingMethod value);
    DurationTolerancePreset durationTolerancePreset() const { return durationTolerancePreset_; }
    void setDurationTolerancePreset(DurationTolerancePreset value);
    const std::string& outputFilenameSuffix() const { return outputFilenameSuffix_; }
    void setOutputFilenameSuffix(const std::string& value);
    OutputCollisionBehavior outputCollisionBehavior() const { return outputCollisionBehavior_; }
    void setOutputCollisionBehavior(OutputCollisionBehavior value);
    MissingCameraBehavior timelineRebuildDefaultMissingCameraBehavior() const {
        return timelineRebuildDefaultMissingCameraBehavior_;
    }
    void setTimelineRebuildDefaultMissingCameraBehavior(MissingCameraBehavior value);
    TimecodeSourcePriority timelineRebuildDefaultTimecodeSourcePriority() const {
        return timelineRebuildDefaultTimecodeSourcePriority_;
    }
    void setTimelineRebuildDefaultTimecodeSourcePriority(TimecodeSourcePriority value);
    VideoFrameRateMode timelineRebuildDefaultVideoFrameRateMode() const {
        return timelineRebuildDefaultVideoFrameRateMode_;
    }
    void setTimelineRebuildDefaultVideoFrameRateMode(VideoFrameRateMode value);
    const std::string& timelineRebuildRecentSourceXMLPath() const {
        return timelineRebuildRecentSourceXMLPath_;
    }
    void setTimelineRebuildRecentSourceXMLPath(const std::string& value);
    const std::string& timelineRebuildRecentStereoMixPath() const {
        return timelineRebuildRecentStereoMixPath_;
    }
    void setTimelineRebuildRecentStereoMixPath(const std::string& value);
    const std::string& timelineRebuildRecentSyncedFolderPath() const {
        return timelineRebuildRecentSyncedFolderPath_;
    }
    void setTimelineRebuildRecentSyncedFolderPath(const std::string& value);
    const std::string& timelineRebuildRecentOutputFolderPath() const {
        return timelineRebuildRecentOutputFolderPath_;
    }
    void setTimelineRebuildRecentOutputFolderPath(const std::string& value);
    const std::string& polySplitDefaultOutputFolderPath() const {
        return polySplitDefaultOutputFolderPath_;
    }
    void setPolySplitDefaultOutputFolderPath(const std::string& value);
    // Split outputs named with the channel's iXML track name after its label.
    bool polySplitAppendTrackNames() const { return polySplitAppendTrackNames_; }
    void setPolySplitAppendTrackNames(bool value);
    std::filesystem::path polySplitDefaultOutputFolderURL() const {
        return polySplitDefaultOutputFolderPath_;
    }
    // What a stamp's bext TimeReference counts when the run does not say:
    // the frame-aligned start ("frame") or the exact first sample ("sample").
    TimeReferenceMode defaultTimeReferenceMode() const { return defaultTimeReferenceMode_; }
    void setDefaultTimeReferenceMode(TimeReferenceMode value);

    // Removes the twenty keys, then assigns every property its default (which
    // saves the defaults under their keys and notifies each key).
    void resetToSystemDefaults();

    // Generic access by key, for the command line. A key may be given with or
    // without the "settings." prefix (ASCII case is ignored).
    // The twenty full keys in table order.
    static std::vector<std::string> keys();
    // The full key for `key`, or nullopt when it names no setting.
    static std::optional<std::string> canonicalKey(std::string_view key);
    // Labels for enumerations; a description ("an integer >= 1", "true or false",
    // "a folder path", ...) for the other types. Throws SettingsError(unknownKey).
    static std::vector<std::string> acceptedValues(std::string_view key);
    // The value as text: a label, a decimal integer, "true"/"false" or the path.
    std::string valueText(std::string_view key) const;
    // The value with its stored type (string, integer or boolean).
    nlohmann::ordered_json value(std::string_view key) const;
    // All twenty keys and values in table order.
    nlohmann::ordered_json snapshot() const;
    // Parses `text` for the key's type and sets it. Enumeration labels match
    // ignoring ASCII case. Throws SettingsError: unknownKey, invalidValue (with
    // what is accepted) or saveFailed (the value is then set but not saved).
    void setValueFromText(std::string_view key, std::string_view text);

  private:
    void load();
    // Applies the key's load rule to a stored value (nullptr = absent).
    void applyStored(std::size_t index, const nlohmann::ordered_json* stored);
    nlohmann::ordered_json currentValue(std::size_t index) const;
    // Sets a property through its load rule, saves and notifies.
    void assign(std::size_t index, const nlohmann::ordered_json& value);
    bool save();
    void notify(const std::string& key);

    std::filesystem::path settingsFile_;
    std::string homeDirectory_;
    nlohmann::ordered_json stored_ = nlohmann::ordered_json::object();
    std::vector<std::string> loadWarnings_;
    std::optional<std::string> lastWriteError_;
    std::map<int, std::function<void(const std::string&)>> observers_;
    int nextObserverToken_ = 1;

    FrameRatePreset defaultFrameRatePreset_ = FrameRatePreset::auto_;
    int defaultGroupedLTCChannel_ = 1;
    LowConfidenceBehavior lowConfidenceBehavior_ = LowConfidenceBehavior::ask;
    std::string defaultOutputFolderPath_;
    bool defaultIncludeLTCOutputs_ = false;
    bool defaultSaveCSVReport_ = true;
    GroupingMethod defaultGroupingMethod_ = GroupingMethod::durationExact;
    DurationTolerancePreset durationTolerancePreset_ = DurationTolerancePreset::standard;
    std::string outputFilenameSuffix_ = "_tc";
    OutputCollisionBehavior outputCollisionBehavior_ = OutputCollisionBehavior::ask;
    MissingCameraBehavior timelineRebuildDefaultMissingCameraBehavior_ =
        MissingCameraBehavior::insertGap;
    TimecodeSourcePriority timelineRebuildDefaultTimecodeSourcePriority_ =
        TimecodeSourcePriority::bwfIXMLThenFilename;
    VideoFrameRateMode timelineRebuildDefaultVideoFrameRateMode_ = VideoFrameRateMode::sameAsLTC;
    std::string timelineRebuildRecentSourceXMLPath_;
    std::string timelineRebuildRecentStereoMixPath_;
    std::string timelineRebuildRecentSyncedFolderPath_;
    std::string timelineRebuildRecentOutputFolderPath_;
    std::string polySplitDefaultOutputFolderPath_;
    bool polySplitAppendTrackNames_ = false;
    TimeReferenceMode defaultTimeReferenceMode_ = TimeReferenceMode::frame;
};

}  // namespace norvane
