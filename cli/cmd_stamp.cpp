// Placeholder until the stamp command lands.
#include "cli/cli_common.h"

namespace norvane::cli {

Command addStampCommand(CLI::App& parent) {
    Command command;
    command.app = parent.add_subcommand("stamp", "(not built yet)");
    command.app->allow_extras();
    command.run = [] { return printError("the stamp command is not available in this build"); };
    return command;
}

}  // namespace norvane::cli
