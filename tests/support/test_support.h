#pragma once

#include <exception>
#include <filesystem>
#include <string>

namespace norvane::testing {

// tests/data in the source tree.
std::filesystem::path dataDir();
// The project's shared fixtures (real FCPXML exports under fcpxml/, real
// recordings under field/), kept beside the repository.
std::filesystem::path sharedFixturesDir();
// A file of the shared fixtures; the calling test is skipped with a message
// when the fixtures are not beside this checkout. Use as
//   const auto path = sharedFixture("field/atem_25fps.wav"); if (path.empty()) return;
std::filesystem::path sharedFixture(const std::string& relativePath);
// The built `norvane` command.
std::filesystem::path cliPath();

// A fresh folder under the system's temporary folder, removed with its
// contents when the object goes away.
class TempDir {
  public:
    TempDir();
    ~TempDir();
    TempDir(const TempDir&) = delete;
    TempDir& operator=(const TempDir&) = delete;
    const std::filesystem::path& path() const { return path_; }
    std::filesystem::path operator/(const std::string& name) const { return path_ / name; }

  private:
    std::filesystem::path path_;
};

// A file's bytes as text; writes text to a file, replacing it.
std::string readText(const std::filesystem::path& path);
void writeText(const std::filesystem::path& path, const std::string& text);

// The number of entries in a folder.
std::size_t entryCount(const std::filesystem::path& folder);

// The what() of the exception `action` throws; "" when it throws none.
template <typename F>
std::string thrownMessage(F&& action) {
    try {
        action();
    } catch (const std::exception& e) {
        return e.what();
    }
    return "";
}

// Runs a shell command; returns its exit code and what it printed.
struct CommandResult {
    int exitCode = -1;
    std::string out;
    std::string err;
};
CommandResult runCommand(const std::string& command);

}  // namespace norvane::testing
