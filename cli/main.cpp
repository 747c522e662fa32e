// norvane: the command line face of the stamp, split and rebuild tools.
#include <exception>
#include <iostream>
#include <vector>

#include <CLI/CLI.hpp>

#include "cli/cli_common.h"
#include "core/common/error.h"
#include "core/common/interrupt.h"

int main(int argc, char** argv) {
    using namespace norvane::cli;
    CLI::App app{
        "Norvane: LTC stamp, poly WAV split and timeline rebuild for location sound and post.",
        "norvane"};
    app.set_version_flag("--version", std::string("norvane ") + NORVANE_VERSION);
    app.require_subcommand(1);
    addVerboseFlag(app);

    std::vector<Command> commands = {
        addStampCommand(app),  addSplitCommand(app),  addRebuildCommand(app),  addInfoCommand(app),
        addDecodeCommand(app), addGenLtcCommand(app), addSettingsCommand(app), addDemoCommand(app),
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

    // SIGINT, SIGTERM and SIGHUP stop a run through its cancellation: no
    // temporary file stays behind, and the run's inputs are untouched.
    norvane::installInterruptHandlers();
    for (const Command& command : commands) {
        if (command.app->parsed()) {
            int code = kExitOk;
            try {
                code = command.run();
            } catch (const std::exception& e) {
                code = printError(norvane::interruptRequested()
                                      ? cancelledMessage(command.app->get_name())
                                      : norvane::describeError(e));
            }
            if (const int signal = norvane::interruptSignal(); signal != 0 && code != kExitOk) {
                return interruptedExitCode(signal);
            }
            return code;
        }
    }
    std::cerr << app.help() << std::endl;
    return kExitUsage;
}
