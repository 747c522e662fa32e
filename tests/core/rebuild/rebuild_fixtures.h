#pragma once

// Synced WAVs and document checks shared by the rebuild tests.

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "core/common/bytes.h"
#include "tests/support/test_support.h"
#include "tests/support/wav_builder.h"

namespace norvane::testing {

struct SyncedWavSpec {
    std::int64_t frames = 48000;
    std::uint32_t sampleRate = 48000;
    std::uint16_t channels = 1;
    std::optional<std::uint64_t> timeReference;  // a bext chunk when set
    std::optional<std::string> ixml;             // an iXML chunk when set
};

inline void writeSyncedWav(const std::filesystem::path& path, const SyncedWavSpec& recipe) {
    WavRecipe wav;
    wav.channels = recipe.channels;
    wav.sampleRate = recipe.sampleRate;
    wav.bits = 16;
    wav.frames = recipe.frames;
    if (recipe.timeReference) {
        wav.beforeData.emplace_back("bext", makeBextPayload(*recipe.timeReference));
    }
    if (recipe.ixml) {
        wav.beforeData.emplace_back("iXML", ByteBuffer(recipe.ixml->begin(), recipe.ixml->end()));
    }
    writeBytes(path, makeWav(wav));
}

// "Severity: message" of each issue, finding or check result, in order.
template <typename Items>
std::vector<std::string> texts(const Items& items) {
    std::vector<std::string> out;
    for (const auto& item : items) {
        out.push_back(label(item.severity) + ": " + item.message);
    }
    return out;
}

// A source timeline: `resources`, then one sequence with `sequenceAttrs` and `spine`.
inline std::string sourceDocument(const std::string& resources, const std::string& sequenceAttrs,
                                  const std::string& spine) {
    return "<fcpxml version=\"1.9\"><resources>" + resources +
           "</resources><library><event><project><sequence " + sequenceAttrs + "><spine>" + spine +
           "</spine></sequence></project></event></library></fcpxml>";
}

// xmllint's verdict on `document` against the FCPXML 1.9 DTD: empty when valid,
// otherwise what it printed.
inline std::string dtdProblems(const std::string& document) {
    TempDir dir;
    writeText(dir / "doc.fcpxml", document);
    CommandResult result = runCommand("xmllint --noout --nonet --dtdvalid '" +
                                      (dataDir() / "fcpxml" / "fcpxml-1.9.dtd").string() + "' '" +
                                      (dir / "doc.fcpxml").string() + "'");
    if (result.exitCode == 0) {
        return "";
    }
    return "exit " + std::to_string(result.exitCode) + ": " + result.err + result.out;
}

}  // namespace norvane::testing
