#include "cli/stamp_output.h"

namespace norvane::cli {

nlohmann::ordered_json reportJSON(const ProcessingReport& report) {
    using json = nlohmann::ordered_json;
    json warnings = json::array();
    for (const ProcessingWarning& warning : report.warnings) {
        warnings.push_back(warning.message);
    }
    json jobs = json::array();
    for (const JobReport& job : report.jobs) {
        jobs.push_back(json{
            {"mode", label(job.mode)},
            {"groupID", job.groupID},
            {"segmentIndex", job.segmentIndex ? json(*job.segmentIndex) : json(nullptr)},
            {"outputs", job.outputs},
            {"warnings", job.warnings},
            {"error", job.error ? json(*job.error) : json(nullptr)},
        });
    }
    return json{
        {"chosenLTCFile", report.chosenLTCFile},
        {"sampleRate", report.sampleRate},
        {"detectedFrameRate", report.detectedFrameRate},
        {"firstValidLTCSample", report.firstValidLTCSample},
        {"firstValidLTCSeconds", report.firstValidLTCSeconds},
        {"stampedStartTimecode", report.stampedStartTimecode},
        {"timeReferenceMode", report.timeReferenceMode},
        {"subFrameOffsetSamples", report.subFrameOffsetSamples},
        {"ltcEvidence", json{{"confidence", report.confidence},
                             {"runFrames", report.ltcRunFrames},
                             {"bitErrors", report.ltcBitErrors},
                             {"rateEvidence", report.rateEvidence}}},
        {"warnings", warnings},
        {"outputFiles", report.outputFiles},
        {"csvLogURL", report.csvLogURL.string()},
        {"summary", json{{"totalJobs", report.summary.totalJobs},
                         {"successfulJobs", report.summary.successfulJobs},
                         {"failedJobs", report.summary.failedJobs},
                         {"warningCount", report.summary.warningCount}}},
        {"jobs", jobs},
    };
}

}  // namespace norvane::cli
