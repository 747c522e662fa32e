// Placeholder until the split command lands.
#include "cli/cli_common.h"

namespace norvane::cli {

Command addSplitCommand(CLI::App& parent) {
    Command command;
    command.app = parent.add_subcommand("split", "(not built yet)");
    command.app->allow_extras();
    command.run = [] { return printError("the split command is not available in this build"); };
    return command;
}

}  // namespace norvane::cli
