#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "core/timecode/ltc_decoder.h"
#include "core/timecode/timecode.h"

namespace norvane::FrameRateDetection {

// Confidences this close count as a near tie, where an exact integer rate
// (24, 30) wins against its 1000/1001 neighbour.
inline constexpr double kNearTieTolerance = 0.02;

// Per-source selection over the evaluations of one decode, in candidate order:
// the highest confidence, the earlier candidate on an exact tie, and the
// integer rate on a near tie with its 1000/1001 neighbour (never drop-frame).
// Returns the index of the chosen evaluation, nullopt when none succeeded.
std::optional<std::size_t> select(
    const std::vector<LTCDecoder::AutoCandidateEvaluation>& evaluations);

// The "Auto FPS candidates:" block (lines end in '\n') for the evaluations and
// the selected index.
std::string candidateDiagnostics(
    const std::vector<LTCDecoder::AutoCandidateEvaluation>& evaluations, std::size_t selected);

// The "Auto FPS candidates:" block of a measured decode: each candidate's
// frame period against the period measured over the run, then the selected
// rate and the evidence that chose it.
std::string measurementDiagnostics(const LTCDecodeResult& result, std::int64_t sampleRate);

// One LTC source of a run, loaded only when its turn comes so that a run holds
// one source in memory at a time. The loader returns the channel's samples and
// sample rate, or nullopt (or throws) when the file cannot be read; such a
// source is skipped silently.
struct VoteSource {
    std::function<std::optional<std::pair<std::vector<float>, std::int64_t>>()> load;
};

// One line of the batch vote.
struct VoteEntry {
    FrameRateConfig rate;
    double avgConfidence = 0;
    std::int64_t count = 0;
    double sum = 0;
};

// Orders vote entries: average confidence descending, then count descending,
// then sum descending; full ties keep their order.
std::vector<VoteEntry> sortVoteEntries(std::vector<VoteEntry> entries);

// The rate of the sorted entries: the first, unless the second is the exact
// integer neighbour (24, 30) of a 1000/1001 first within the near-tie
// tolerance. nullopt for an empty list.
std::optional<FrameRateConfig> chooseVoteWinner(const std::vector<VoteEntry>& sorted);

// Decodes every source with automatic rate selection and votes across them so
// that a whole run uses one rate. Writes the "Auto FPS batch vote:" diagnostic.
// Returns nullopt when no source decoded (the caller reports "Auto frame-rate
// batch vote failed: no decodable LTC source in this run.").
std::optional<FrameRateConfig> batchVoteFrameRate(const std::vector<VoteSource>& sources);

}  // namespace norvane::FrameRateDetection
