// norvane: the command line face of the stamp, split and rebuild tools.
#include <exception>
#include <iostream>
#include <vector>

#include <CLI/CLI.hpp>

#include "cli/cli_common.h"
#include "core/common/error.h"

int main(int argc, char** argv) {
    using namespace norvane::cli;
    CLI::App app{
        "Norvane: LTC stamp, poly WAV split and timeline rebuild for location sound and post.",
        "norvane"};
    app.set_version_flag("--version", std::string("norvane ") + NORVANE_VERSION);
    app.require_subcommand(1);

    std::vector<Command> commands = {
        addStampCommand(app),   addSplitCommand(app),    addRebuildCommand(app),
        addInfoCommand(app),    addDecodeCommand(app),   addGenLtcCommand(app),
        addSettingsCommand(app), addDemoCommand(app),
    };

    try {
        app.parse(argc, argv);
    } catch (const CLI::CallForHelp& e) {
        return app.exit(e);
    } catch (const CLI::CallForAllHelp& e) {
        return app.exit(e);
    } catch (const CLI::CallForVersion& e) {
        return app.exit(e);
    } catch (const CLI::ParseError& e) {
        app.exit(e);
        return kExitUsage;
    }

    for (const Command& command : commands) {
        if (command.app->parsed()) {
            try {
                return command.run();
            } catch (const std::exception& e) {
                return printError(norvane::describeError(e));
            }
        }
    }
    std::cerr << app.help() << std::endl;
    return kExitUsage;
}
