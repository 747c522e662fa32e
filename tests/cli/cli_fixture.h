#pragma once

// Runs the built `norvane` command in a fresh folder of its own.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include <nlohmann/json.hpp>

#include "core/common/file_output.h"
#include "tests/support/test_support.h"
#include "tests/support/wav_builder.h"

namespace norvane::testing {

using ::testing::HasSubstr;
using ::testing::Not;
using ::testing::StartsWith;
using json = nlohmann::ordered_json;

class CommandTest : public ::testing::Test {
  protected:
    TempDir dir;
    std::filesystem::path settingsFile = dir / "settings.json";
    std::filesystem::path home = dir / "home";

    void SetUp() override { std::filesystem::create_directories(home); }

    // `norvane <arguments>` run from the folder, with a settings file and a
    // home of its own, so the user's defaults never leak in.
    CommandResult norvane(const std::string& arguments) const {
        return runCommand("cd '" + dir.path().string() + "' && HOME='" + home.string() +
                          "' NORVANE_SETTINGS='" + settingsFile.string() + "' '" +
                          cliPath().string() + "' " + arguments);
    }

    // `norvane <arguments>`, which must succeed (exit 0).
    CommandResult succeeds(const std::string& arguments) const {
        CommandResult result = norvane(arguments);
        EXPECT_EQ(result.exitCode, 0) << arguments << "\n" << result.err;
        return result;
    }

    void write(const std::string& name, ByteView bytes) const {
        std::filesystem::create_directories((dir / name).parent_path());
        writeFile(dir / name, bytes, WriteMode::replaceAtomically);
    }
    void write(const std::string& name, const std::string& text) const {
        write(name, ByteView(reinterpret_cast<const std::uint8_t*>(text.data()), text.size()));
    }
    std::string read(const std::string& name) const { return readText(dir / name); }
    bool exists(const std::string& name) const { return std::filesystem::exists(dir / name); }
    std::size_t entries(const std::string& folder) const {
        return static_cast<std::size_t>(
            std::distance(std::filesystem::directory_iterator(dir / folder),
                          std::filesystem::directory_iterator()));
    }
};

}  // namespace norvane::testing
