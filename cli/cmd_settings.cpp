// norvane settings: show, read and change the persisted defaults of the three tools.
#include <filesystem>
#include <iostream>
#include <memory>
#include <string>

#include "cli/cli_common.h"
#include "core/settings/app_settings_store.h"

namespace norvane::cli {

namespace {

struct SettingsArguments {
    bool json = false;
    std::string key;
    std::string value;
};

// Load problems go to standard error; the command still works on the defaults.
void printLoadWarnings(const AppSettingsStore& settings) {
    for (const std::string& warning : settings.loadWarnings()) {
        std::cerr << "warning: " << warning << std::endl;
    }
}

// The text the store is given for `key`: frame rates may be typed the way the
// other commands take them ("29.97df"), and paths are stored absolute so they
// mean the same from any working folder.
std::string normalisedValue(const std::string& key, const std::string& value) {
    if (key == "settings.defaultFrameRatePreset") {
        if (auto preset = parseFrameRateArgument(value)) {
            return label(*preset);
        }
        return value;
    }
    if (key.ends_with("Path") && !value.empty()) {
        std::error_code ec;
        const std::filesystem::path absolute = std::filesystem::absolute(value, ec);
        if (!ec) {
            return absolute.lexically_normal().string();
        }
    }
    return value;
}

int showSettings(const SettingsArguments& args) {
    AppSettingsStore settings;
    printLoadWarnings(settings);
    if (args.json) {
        std::cout << settings.snapshot().dump(2, ' ', false,
                                              nlohmann::json::error_handler_t::replace)
                  << std::endl;
        return kExitOk;
    }
    for (const std::string& key : AppSettingsStore::keys()) {
        std::cout << key << " = " << settings.valueText(key) << "\n";
    }
    std::cout.flush();
    return kExitOk;
}

int getSetting(const SettingsArguments& args) {
    AppSettingsStore settings;
    printLoadWarnings(settings);
    std::cout << settings.valueText(args.key) << std::endl;
    return kExitOk;
}

int setSetting(const SettingsArguments& args) {
    const auto key = AppSettingsStore::canonicalKey(args.key);
    if (!key) {
        throw SettingsError::unknownKey(args.key);
    }
    AppSettingsStore settings;
    printLoadWarnings(settings);
    settings.setValueFromText(*key, normalisedValue(*key, args.value));
    std::cout << *key << " = " << settings.valueText(*key) << std::endl;
    return kExitOk;
}

int resetSettings() {
    AppSettingsStore settings;
    printLoadWarnings(settings);
    settings.resetToSystemDefaults();
    if (settings.lastWriteError()) {
        return printError(*settings.lastWriteError());
    }
    std::cout << "Settings reset to system defaults in " << settings.settingsFile().string() << "."
              << std::endl;
    return kExitOk;
}

}  // namespace

Command addSettingsCommand(CLI::App& parent) {
    auto args = std::make_shared<SettingsArguments>();
    Command command;
    CLI::App* app = parent.add_subcommand(
        "settings",
        "Show or change the saved defaults (file: $NORVANE_SETTINGS, else "
        "$XDG_CONFIG_HOME/norvane/settings.json or ~/.config/norvane/settings.json).");
    command.app = app;

    CLI::App* show = app->add_subcommand("show", "Print every setting as `key = value`.");
    show->add_flag("--json", args->json, "Print the settings as one JSON object.");

    CLI::App* get = app->add_subcommand("get", "Print one setting's value.");
    get->add_option("key", args->key, "Setting key, with or without the \"settings.\" prefix.")
        ->required();

    CLI::App* set = app->add_subcommand("set", "Change one setting and save it.");
    set->add_option("key", args->key, "Setting key, with or without the \"settings.\" prefix.")
        ->required();
    set->add_option("value", args->value,
                    "New value: a label for choices, an integer, true/false or a path.")
        ->required();

    CLI::App* reset = app->add_subcommand("reset", "Restore every setting to its default.");
    CLI::App* path = app->add_subcommand("path", "Print the location of the settings file.");

    app->require_subcommand(0, 1);

    command.run = [=]() -> int {
        try {
            if (get->parsed()) {
                return getSetting(*args);
            }
            if (set->parsed()) {
                return setSetting(*args);
            }
            if (reset->parsed()) {
                return resetSettings();
            }
            if (path->parsed()) {
                std::cout << AppSettingsStore::defaultSettingsPath().string() << std::endl;
                return kExitOk;
            }
            return showSettings(*args);  // `show`, or no subcommand
        } catch (const SettingsError& e) {
            return printError(e.message());
        }
    };
    return command;
}

}  // namespace norvane::cli
