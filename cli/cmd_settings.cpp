// Placeholder until the settings command lands.
#include "cli/cli_common.h"

namespace norvane::cli {

Command addSettingsCommand(CLI::App& parent) {
    Command command;
    command.app = parent.add_subcommand("settings", "(not built yet)");
    command.app->allow_extras();
    command.run = [] { return printError("the settings command is not available in this build"); };
    return command;
}

}  // namespace norvane::cli
