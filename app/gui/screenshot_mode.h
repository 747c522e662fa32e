#pragma once

#include <QString>
#include <functional>

namespace norvane {
class AppViewModel;
}

namespace norvane::gui {

class MainWindow;

// Writes a small set of inputs for every tool into `folder`: stamp takes
// (an LTC track and two stems, a long take whose code jumps), multichannel
// files to split, and a rebuild project (source timeline, stereo mix, synced
// takes carrying their event timecode). Returns the error text, empty on success.
QString writeDemoInputs(const QString& folder);

// Runs every screen on the demo inputs in `inputsFolder` (written there first)
// and saves a PNG of each populated screen into `outputFolder`, then prints
// that folder. Dialogs are answered automatically. Returns the exit code.
int runScreenshotMode(MainWindow& window, AppViewModel& viewModel, const QString& inputsFolder,
                      const QString& outputFolder);

// Runs the event loop until `done` holds or `timeoutMs` passes.
bool waitUntil(const std::function<bool()>& done, int timeoutMs);

}  // namespace norvane::gui
