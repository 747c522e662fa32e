#include "core/settings/app_settings_store.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>

#include "tests/support/test_support.h"

namespace norvane {
namespace {

namespace fs = std::filesystem;
using Json = nlohmann::ordered_json;
using ::testing::ElementsAre;
using ::testing::HasSubstr;

Json readJSON(const fs::path& path) {
    return Json::parse(testing::readText(path));
}

// The kind of SettingsError that `action` throws, if any.
template <typename F>
std::optional<SettingsError::Kind> refusal(F&& action) {
    try {
        action();
    } catch (const SettingsError& e) {
        return e.kind();
    }
    return std::nullopt;
}

// Sets (or, given nullptr, clears) an environment variable for the life of
// the object.
struct ScopedEnv {
    std::string name;
    std::optional<std::string> old;
    ScopedEnv(const char* n, const char* value) : name(n) {
        if (const char* o = std::getenv(n)) {
            old = o;
        }
        value ? ::setenv(n, value, 1) : ::unsetenv(n);
    }
    ~ScopedEnv() { old ? ::setenv(name.c_str(), old->c_str(), 1) : ::unsetenv(name.c_str()); }
};

class AppSettingsStoreTest : public ::testing::Test {
  protected:
    testing::TempDir dir;
    fs::path file = dir / "config" / "settings.json";
    std::string home = AppSettingsStore::homeDirectoryPath().string();

    void store(const std::string& text) {
        fs::create_directories(file.parent_path());
        testing::writeText(file, text);
    }
};

TEST_F(AppSettingsStoreTest, MissingFileGivesEveryDefaultAndWritesNothing) {
    AppSettingsStore settings(file);
    EXPECT_TRUE(settings.loadWarnings().empty());
    EXPECT_FALSE(fs::exists(file));
    EXPECT_FALSE(fs::exists(file.parent_path()));

    const Json expected = {
        {"settings.defaultFrameRatePreset", "Auto"},
        {"settings.defaultGroupedLTCChannel", 1},
        {"settings.lowConfidenceBehavior", "Ask"},
        {"settings.defaultOutputFolderPath", home},
        {"settings.defaultIncludeLTCOutputs", false},
        {"settings.defaultSaveCSVReport", true},
        {"settings.defaultGroupingMethod", "Duration Exact"},
        {"settings.durationTolerancePreset", "Standard (50 ms)"},
        {"settings.outputFilenameSuffix", "_tc"},
        {"settings.outputCollisionBehavior", "Ask"},
        {"settings.timelineRebuildDefaultMissingCameraBehavior", "Insert Gap"},
        {"settings.timelineRebuildDefaultTimecodeSourcePriority", "iXML / BWF bext -> Filename"},
        {"settings.timelineRebuildDefaultVideoFrameRateMode", "Same as LTC"},
        {"settings.timelineRebuildRecentSourceXMLPath", ""},
        {"settings.timelineRebuildRecentStereoMixPath", ""},
        {"settings.timelineRebuildRecentSyncedFolderPath", ""},
        {"settings.timelineRebuildRecentOutputFolderPath", home},
        {"settings.polySplitDefaultOutputFolderPath", home},
        {"settings.polySplitAppendTrackNames", false},
        {"settings.defaultTimeReferenceMode", "frame"},
    };
    EXPECT_EQ(settings.snapshot(), expected);  // ordered: also checks the table order
    EXPECT_EQ(settings.polySplitDefaultOutputFolderURL(), fs::path(home));
    EXPECT_EQ(milliseconds(DurationTolerancePreset::tight), 20);
    EXPECT_EQ(milliseconds(settings.durationTolerancePreset()), 50);
    EXPECT_EQ(milliseconds(DurationTolerancePreset::loose), 100);
}

// Each key loads what it stores when that is a value of its type (labels are
// case-sensitive, channels whole numbers of at least 1) and its default
// otherwise, without a warning and without rewriting the file.
TEST_F(AppSettingsStoreTest, EachKeyLoadsItsValueOrFallsBackToItsDefault) {
    struct Case {
        const char* key;
        Json stored;
        const char* loaded;
    };
    const Case cases[] = {
        {"defaultFrameRatePreset", "29.97 DF", "29.97 DF"},
        {"defaultFrameRatePreset", "29.97", "Auto"},
        {"lowConfidenceBehavior", "Always Proceed", "Always Proceed"},
        {"lowConfidenceBehavior", "always proceed", "Ask"},
        {"defaultIncludeLTCOutputs", true, "true"},
        {"defaultIncludeLTCOutputs", "true", "false"},
        {"defaultSaveCSVReport", 0, "true"},
        {"defaultGroupingMethod", "Regex", "Regex"},
        {"defaultGroupingMethod", "Tokens", "Duration Exact"},
        {"durationTolerancePreset", "Loose (100 ms)", "Loose (100 ms)"},
        {"durationTolerancePreset", 100, "Standard (50 ms)"},
        {"outputFilenameSuffix", "", ""},  // present, so not the default
        {"outputFilenameSuffix", false, "_tc"},
        {"outputCollisionBehavior", "keep both", "Ask"},
        {"timelineRebuildDefaultMissingCameraBehavior", "Fail Export", "Fail Export"},
        {"timelineRebuildDefaultMissingCameraBehavior", nullptr, "Insert Gap"},
        {"timelineRebuildDefaultTimecodeSourcePriority", "Filename", "iXML / BWF bext -> Filename"},
        {"timelineRebuildDefaultVideoFrameRateMode", Json::array(), "Same as LTC"},
        {"timelineRebuildRecentSourceXMLPath", 12, ""},
        {"timelineRebuildRecentStereoMixPath", "/media/mix.wav", "/media/mix.wav"},
        {"polySplitDefaultOutputFolderPath", "", "HOME"},
        {"defaultTimeReferenceMode", "sample", "sample"},
        {"defaultTimeReferenceMode", "Sample", "frame"},
        {"defaultGroupedLTCChannel", 0, "1"},
        {"defaultGroupedLTCChannel", 7, "7"},
        {"defaultGroupedLTCChannel", "12", "12"},
        {"defaultGroupedLTCChannel", "x12", "1"},
        {"defaultGroupedLTCChannel", 4.9, "4"},
        {"defaultGroupedLTCChannel", 1e300, "1"},
        {"defaultGroupedLTCChannel", Json(5000000000LL), "1"},
        {"defaultGroupedLTCChannel", Json(std::uint64_t{18446744073709551615ULL}), "1"},
    };
    for (const Case& c : cases) {
        const std::string key = std::string("settings.") + c.key;
        store(Json{{key, c.stored}}.dump());
        AppSettingsStore settings(file);
        const std::string expected = c.loaded == std::string("HOME") ? home : c.loaded;
        EXPECT_EQ(settings.valueText(key), expected) << key << " = " << c.stored.dump();
        EXPECT_TRUE(settings.loadWarnings().empty());
        EXPECT_EQ(readJSON(file)[key], c.stored);  // loading never rewrites what is stored
    }
}

TEST_F(AppSettingsStoreTest, ChangesAreSavedAtOnceKeepingTypesAndForeignKeys) {
    store(Json{{"other.app.key", {1, 2}}, {"settings.defaultGroupedLTCChannel", 3}}.dump());
    {
        AppSettingsStore settings(file);
        settings.setDefaultFrameRatePreset(FrameRatePreset::fps23_976);
        EXPECT_EQ(readJSON(file)["settings.defaultFrameRatePreset"], "23.976");
        settings.setDefaultGroupedLTCChannel(-4);  // channels are numbered from 1
        settings.setDurationTolerancePreset(DurationTolerancePreset::tight);
        settings.setTimelineRebuildRecentSyncedFolderPath("/media/day 1/synced");
        EXPECT_FALSE(settings.lastWriteError().has_value());
    }
    // Only the keys that were set are written, beside the foreign ones.
    const Json saved = readJSON(file);
    EXPECT_EQ(saved.size(), 5u);
    EXPECT_EQ(saved["other.app.key"], Json({1, 2}));
    EXPECT_EQ(saved["settings.defaultGroupedLTCChannel"], 1);
    EXPECT_EQ(saved["settings.durationTolerancePreset"], "Tight (20 ms)");
    AppSettingsStore reloaded(file);
    EXPECT_EQ(reloaded.valueText("timelineRebuildRecentSyncedFolderPath"), "/media/day 1/synced");
    EXPECT_EQ(reloaded.defaultFrameRatePreset(), FrameRatePreset::fps23_976);
    // No temporary files are left beside the settings.
    EXPECT_EQ(testing::entryCount(file.parent_path()), 1u);
}

TEST_F(AppSettingsStoreTest, ObserversHearEachChangeAndResetRestoresDefaults) {
    AppSettingsStore settings(file);
    std::vector<std::string> heard;
    const int a = settings.addObserver([&](const std::string& key) { heard.push_back(key); });
    int selfRemovingCalls = 0;
    int token = 0;
    token = settings.addObserver([&](const std::string&) {  // removes itself while called
        ++selfRemovingCalls;
        settings.removeObserver(token);
    });
    settings.setDefaultOutputFolderPath("/media/out");
    settings.setValueFromText("defaultincludeltcoutputs", "TRUE");
    settings.setOutputCollisionBehavior(OutputCollisionBehavior::overwrite);
    EXPECT_EQ(selfRemovingCalls, 1);
    EXPECT_THAT(heard,
                ElementsAre("settings.defaultOutputFolderPath", "settings.defaultIncludeLTCOutputs",
                            "settings.outputCollisionBehavior"));
    heard.clear();
    settings.resetToSystemDefaults();
    EXPECT_EQ(heard, AppSettingsStore::keys());
    // The same values as a store that never saw a settings file, all written back.
    EXPECT_EQ(settings.snapshot(), AppSettingsStore(dir / "fresh.json").snapshot());
    EXPECT_EQ(readJSON(file), settings.snapshot());
    settings.removeObserver(a);
    settings.setDefaultSaveCSVReport(false);
    EXPECT_EQ(heard.size(), AppSettingsStore::keys().size());
}

TEST_F(AppSettingsStoreTest, CorruptFileIsKeptAsideWithAWarning) {
    // Nesting past 64 levels counts as corrupt (here 65 and 100 000: the
    // latter once crashed the next save); 64 levels are still settings.
    const auto nested = [](int depth) {
        return "{\"settings.defaultGroupedLTCChannel\": 4, \"x\":" + std::string(depth - 1, '[') +
               std::string(depth - 1, ']') + "}";
    };
    for (const std::string& content :
         {std::string("{\"settings.defaultGroupedLTCChannel\": 4,"), std::string("[1, 2]"),
          std::string("\xff\xfe{}"), nested(65), nested(100000)}) {
        fs::remove_all(file.parent_path());
        store(content);

        AppSettingsStore settings(file);
        EXPECT_EQ(settings.defaultGroupedLTCChannel(), 1);
        ASSERT_EQ(settings.loadWarnings().size(), 1u);
        const std::string& warning = settings.loadWarnings().front();
        EXPECT_THAT(warning, HasSubstr("is not valid settings JSON; it was kept as "));

        // The original content survives under settings.json.corrupt-<time>.
        EXPECT_FALSE(fs::exists(file));
        const std::vector<fs::path> aside(fs::directory_iterator(file.parent_path()), {});
        ASSERT_EQ(aside.size(), 1u);
        EXPECT_THAT(warning, HasSubstr(aside[0].string()));

        // A later change writes a fresh file and leaves the kept copy alone.
        settings.setDefaultGroupedLTCChannel(2);
        EXPECT_EQ(readJSON(file)["settings.defaultGroupedLTCChannel"], 2);
        EXPECT_EQ(testing::readText(aside[0]), content);
    }
    testing::writeText(file, " \n");
    EXPECT_TRUE(AppSettingsStore(file).loadWarnings().empty());
    testing::writeText(file, nested(64));
    const AppSettingsStore deep(file);
    EXPECT_TRUE(deep.loadWarnings().empty());
    EXPECT_EQ(deep.defaultGroupedLTCChannel(), 4);
}

TEST_F(AppSettingsStoreTest, UnreadableOrUnwritableLocationsWarnInsteadOfFailing) {
    // A folder where the file should be: nothing can be read or written there.
    fs::create_directories(file);
    AppSettingsStore settings(file);
    ASSERT_EQ(settings.loadWarnings().size(), 1u);
    EXPECT_THAT(settings.loadWarnings()[0], HasSubstr("is not a regular file"));

    int calls = 0;
    settings.addObserver([&](const std::string&) { ++calls; });
    settings.setOutputFilenameSuffix("_new");
    EXPECT_EQ(settings.outputFilenameSuffix(), "_new");  // kept for this session
    EXPECT_EQ(calls, 1);
    ASSERT_TRUE(settings.lastWriteError().has_value());
    EXPECT_THAT(*settings.lastWriteError(),
                HasSubstr("Could not save settings to " + file.string() + ": "));

    if (::geteuid() != 0) {  // root reads files whatever their mode
        fs::remove(file);
        store("{\"settings.outputFilenameSuffix\": \"_x\"}");
        fs::permissions(file, fs::perms::none);
        AppSettingsStore locked(file);
        ASSERT_EQ(locked.loadWarnings().size(), 1u);
        EXPECT_THAT(locked.loadWarnings()[0], HasSubstr("Could not read the settings file"));
        EXPECT_EQ(locked.outputFilenameSuffix(), "_tc");
        fs::permissions(file, fs::perms::owner_read | fs::perms::owner_write);
        EXPECT_EQ(AppSettingsStore(file).outputFilenameSuffix(), "_x");  // nothing was moved
    }
}

// The command line's settings test shows the accepted values and messages;
// here the edges of the text parsing.
TEST_F(AppSettingsStoreTest, TextAccessParsesPerTypeAndRefusesBadText) {
    AppSettingsStore settings(file);
    settings.setValueFromText("defaultGroupedLTCChannel", " 8 ");
    EXPECT_EQ(settings.value("settings.defaultGroupedLTCChannel"), Json(8));
    settings.setValueFromText("timelineRebuildDefaultVideoFrameRateMode",
                              "Double LTC (50/60 fps video)");
    EXPECT_EQ(settings.timelineRebuildDefaultVideoFrameRateMode(), VideoFrameRateMode::doubleLTC);
    using Kind = SettingsError::Kind;
    for (const auto& [key, bad] : std::vector<std::pair<std::string, std::string>>{
             {"defaultGroupedLTCChannel", ""},
             {"defaultGroupedLTCChannel", "2.5"},
             {"defaultGroupedLTCChannel", "99999999999"},
             {"outputFilenameSuffix", "_a/b"},
             {"timelineRebuildRecentStereoMixPath", "\xff.wav"}}) {
        EXPECT_EQ(refusal([&] { settings.setValueFromText(key, bad); }), Kind::invalidValue) << bad;
    }
    EXPECT_EQ(settings.defaultGroupedLTCChannel(), 8);  // refused values change nothing
    EXPECT_EQ(refusal([&] { (void)settings.valueText("settings."); }), Kind::unknownKey);
    EXPECT_EQ(refusal([] { (void)AppSettingsStore::acceptedValues("x"); }), Kind::unknownKey);
    EXPECT_EQ(AppSettingsStore::canonicalKey("SETTINGS.outputfilenamesuffix"),
              "settings.outputFilenameSuffix");
}

// NORVANE_SETTINGS is how every command-line and view-model test keeps to its
// own file; without it the location follows XDG and HOME.
TEST_F(AppSettingsStoreTest, SettingsLocationFollowsTheEnvironment) {
    ScopedEnv noOverride("NORVANE_SETTINGS", nullptr);
    ScopedEnv home("HOME", (dir / "home").c_str());
    {
        ScopedEnv xdg("XDG_CONFIG_HOME", (dir / "xdg").c_str());
        EXPECT_EQ(AppSettingsStore::defaultSettingsPath(),
                  dir / "xdg" / "norvane" / "settings.json");
    }
    {
        ScopedEnv relativeXDG("XDG_CONFIG_HOME", "relative/config");
        EXPECT_EQ(AppSettingsStore::defaultSettingsPath(),
                  dir / "home" / ".config" / "norvane" / "settings.json");
        // Folder defaults follow the home directory too.
        EXPECT_EQ(AppSettingsStore(file).defaultOutputFolderPath(), (dir / "home").string());
    }
}

}  // namespace
}  // namespace norvane
