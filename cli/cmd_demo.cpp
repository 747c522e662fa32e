// Placeholder until the demo command lands.
#include "cli/cli_common.h"

namespace norvane::cli {

Command addDemoCommand(CLI::App& parent) {
    Command command;
    command.app = parent.add_subcommand("demo", "(not built yet)");
    command.app->allow_extras();
    command.run = [] { return printError("the demo command is not available in this build"); };
    return command;
}

}  // namespace norvane::cli
