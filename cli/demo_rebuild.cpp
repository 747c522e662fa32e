#include "cli/demo_rebuild.h"

#include <iostream>

#include "cli/cli_common.h"

namespace norvane::cli {

int runRebuildDemo(const std::filesystem::path& folder) {
    (void)folder;
    std::cout << "(the timeline rebuild part of the demo is not built yet)\n";
    return kExitOk;
}

}  // namespace norvane::cli
