// Placeholder until the info command lands.
#include "cli/cli_common.h"

namespace norvane::cli {

Command addInfoCommand(CLI::App& parent) {
    Command command;
    command.app = parent.add_subcommand("info", "(not built yet)");
    command.app->allow_extras();
    command.run = [] { return printError("the info command is not available in this build"); };
    return command;
}

}  // namespace norvane::cli
