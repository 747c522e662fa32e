// Placeholder until the rebuild command lands.
#include "cli/cli_common.h"

namespace norvane::cli {

Command addRebuildCommand(CLI::App& parent) {
    Command command;
    command.app = parent.add_subcommand("rebuild", "(not built yet)");
    command.app->allow_extras();
    command.run = [] { return printError("the rebuild command is not available in this build"); };
    return command;
}

}  // namespace norvane::cli
