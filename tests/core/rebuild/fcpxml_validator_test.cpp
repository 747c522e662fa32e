#include "core/rebuild/fcpxml_validator.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/core/rebuild/rebuild_fixtures.h"

namespace norvane {
namespace {

using ::testing::ElementsAre;
using ::testing::StartsWith;

std::vector<std::string> messages(const ResolveGeneratedFCPXMLValidation& v) {
    return testing::texts(v.issues);
}

std::string document(const std::string& resources, const std::string& spine) {
    return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<!DOCTYPE fcpxml>\n<fcpxml "
           "version=\"1.9\"><resources>" +
           resources +
           "</resources><library><event><project><sequence duration=\"10/1s\" "
           "format=\"r0\"><spine>" +
           spine + "</spine></sequence></project></event></library></fcpxml>";
}

TEST(GeneratedFCPXMLValidation, DuplicateIdsThenUnresolvedRefsAtMostEightSorted) {
    std::string spine;
    for (int i = 12; i >= 1; --i) {
        spine += "<video ref=\"x" + std::to_string(i) + "\"/>";
    }
    auto v = validateGeneratedFCPXML(
        document("<format id=\"r0\"/><asset id=\"r2\"/><asset id=\"r2\"/>", spine));
    // Plain text order: x1, x10, x11, x12, x2, ...
    EXPECT_THAT(messages(v),
                ElementsAre("Error: Generated FCPXML has duplicate resource IDs: r2.",
                            "Error: Generated FCPXML has unresolved resource refs: x1, x10, x11, "
                            "x12, x2, x3, x4, x5...."));
}

TEST(GeneratedFCPXMLValidation, UnreadableOrIncompleteDocumentsStopEarly) {
    // A file name that is not UTF-8 must never reach the document.
    EXPECT_THAT(messages(validateGeneratedFCPXML("<fcpxml>\xFF</fcpxml>")),
                ElementsAre("Error: Generated FCPXML is not UTF-8."));
    EXPECT_THAT(messages(validateGeneratedFCPXML("")),
                ElementsAre(StartsWith("Error: Generated FCPXML parse failed: ")));
    EXPECT_THAT(messages(validateGeneratedFCPXML("<fcpxml><resources/><library/></fcpxml>")),
                ElementsAre("Error: Generated FCPXML missing <event> element.",
                            "Error: Generated FCPXML missing <project> element.",
                            "Error: Generated FCPXML missing <sequence> element.",
                            "Error: Generated FCPXML missing <spine> element."));
}

TEST(GeneratedFCPXMLValidation, StoryTimesOffTheFrameGridAndCameraClipsPastTheirMedia) {
    std::string resources =
        "<format id=\"r0\" frameDuration=\"1/25s\"/>"
        "<asset id=\"cam\" hasVideo=\"1\" start=\"0s\" duration=\"10/1s\"/>"
        "<asset id=\"snd\" hasAudio=\"1\" duration=\"20/1s\"/>";
    // A sample-exact start inside an audio file is fine; a story time half a
    // frame off and a camera clip 2 s past its asset are not.
    auto v = validateGeneratedFCPXML(document(
        resources,
        "<gap offset=\"1/50s\" duration=\"5/1s\">"
        "<asset-clip ref=\"snd\" lane=\"-1\" start=\"1/48000s\" duration=\"5/1s\"/>"
        "<asset-clip ref=\"cam\" lane=\"1\" name=\"CamA\" start=\"8/1s\" duration=\"4/1s\"/>"
        "</gap>"));
    EXPECT_THAT(
        messages(v),
        ElementsAre("Error: Generated FCPXML has times off the sequence frame grid: gap "
                    "offset=1/50s.",
                    "Error: Generated FCPXML has camera clips outside their media: CamA (lane 1) "
                    "runs 2.000s past its media."));

    auto clean = validateGeneratedFCPXML(
        document(resources,
                 "<gap offset=\"1/25s\" duration=\"5/1s\"><asset-clip ref=\"cam\" lane=\"1\" "
                 "start=\"6/1s\" duration=\"4/1s\"/></gap>"));
    EXPECT_THAT(messages(clean), ElementsAre("Info: Generated FCPXML validation passed."));
}

}  // namespace
}  // namespace norvane
