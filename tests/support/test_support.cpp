#include "tests/support/test_support.h"

#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <sstream>
#include <stdexcept>

#include <gtest/gtest.h>

namespace norvane::testing {
namespace fs = std::filesystem;

fs::path dataDir() {
    return NORVANE_TEST_DATA_DIR;
}

fs::path sharedFixturesDir() {
    return NORVANE_SHARED_FIXTURES_DIR;
}

fs::path sharedFixture(const std::string& relativePath) {
    const fs::path path = sharedFixturesDir() / relativePath;
    if (!fs::exists(path)) {
        // Records the skip; the caller returns on the empty path.
        const std::string message = "shared fixture not found: " + path.string();
        ::testing::internal::AssertHelper(::testing::TestPartResult::kSkip, __FILE__, __LINE__,
                                          message.c_str()) = ::testing::Message();
        return {};
    }
    return path;
}

fs::path cliPath() {
    return NORVANE_CLI_PATH;
}

TempDir::TempDir() {
    std::string pattern = (fs::temp_directory_path() / "norvane-test-XXXXXX").string();
    if (::mkdtemp(pattern.data()) == nullptr) {
        throw std::runtime_error("mkdtemp failed");
    }
    path_ = pattern;
}

TempDir::~TempDir() {
    std::error_code ec;
    fs::permissions(path_, fs::perms::owner_all, fs::perm_options::add, ec);
    fs::remove_all(path_, ec);
}

std::string readText(const fs::path& path) {
    std::ifstream in(path, std::ios::binary);
    std::stringstream ss;
    ss << in.rdbuf();
    return ss.str();
}

void writeText(const fs::path& path, const std::string& text) {
    std::ofstream(path, std::ios::binary | std::ios::trunc) << text;
}

std::size_t entryCount(const fs::path& folder) {
    return static_cast<std::size_t>(
        std::distance(fs::directory_iterator(folder), fs::directory_iterator()));
}

CommandResult runCommand(const std::string& command) {
    TempDir scratch;
    const fs::path out = scratch / "out";
    const fs::path err = scratch / "err";
    const std::string full =
        command + " </dev/null >'" + out.string() + "' 2>'" + err.string() + "'";
    int status = std::system(full.c_str());
    CommandResult result;
    result.exitCode = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    result.out = readText(out);
    result.err = readText(err);
    return result;
}

}  // namespace norvane::testing
