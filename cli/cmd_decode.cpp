// Placeholder until the decode command lands.
#include "cli/cli_common.h"

namespace norvane::cli {

Command addDecodeCommand(CLI::App& parent) {
    Command command;
    command.app = parent.add_subcommand("decode", "(not built yet)");
    command.app->allow_extras();
    command.run = [] { return printError("the decode command is not available in this build"); };
    return command;
}

}  // namespace norvane::cli
