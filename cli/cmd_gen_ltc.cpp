// Placeholder until the gen-ltc command lands.
#include "cli/cli_common.h"

namespace norvane::cli {

Command addGenLtcCommand(CLI::App& parent) {
    Command command;
    command.app = parent.add_subcommand("gen-ltc", "(not built yet)");
    command.app->allow_extras();
    command.run = [] { return printError("the gen-ltc command is not available in this build"); };
    return command;
}

}  // namespace norvane::cli
