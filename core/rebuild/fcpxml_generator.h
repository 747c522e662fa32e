#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

#include "core/rebuild/rebuild_analysis.h"
#include "core/rebuild/source_timeline.h"
#include "core/rebuild/synced_audio.h"

namespace norvane {

// The generated document with the analysis worked out in the same pass.
struct ResolveRebuildBuildOutput {
    std::string xml;
    ResolveRebuildAnalysis analysis;
    RebuildPlan plan;
};

// The stereo reference mix as the document needs it.
struct StereoMixInfo {
    std::filesystem::path url;
    std::int64_t frameCount = 0;
    std::int64_t sampleRate = 0;
    std::int64_t channels = 2;

    RationalTime duration() const { return RationalTime::fromSamples(frameCount, sampleRate); }
};

// Writes the rebuilt timeline as FCPXML 1.9 text (no line feed after the last
// line). Content problems become issues of the analysis; it never throws for
// them.
ResolveRebuildBuildOutput generateFCPXML(const SourceContext& context,
                                         const std::vector<ResolveRebuildAudioInput>& inputs,
                                         const StereoMixInfo& stereoMix,
                                         const ResolveRebuildOptions& options);

// "&" -> "&amp;" first, then "\"", "<" and ">".
std::string escapeXMLAttribute(std::string_view text);
// "file://" + the absolute path, percent-encoded except the characters a URL
// path allows as they are (unreserved, "/", ":", "@", "!$&'()*+,=").
std::string fileURL(const std::filesystem::path& path);
// "rA_" + index + "_" + the lower-cased base name with every run of characters
// other than a-z, 0-9 and "_" replaced by "_".
std::string syncedAssetID(std::size_t index, std::string_view baseName);

}  // namespace norvane
