#include "core/timecode/frame_rate_detection.h"

#include <algorithm>
#include <cmath>

#include <fmt/format.h>

namespace norvane::FrameRateDetection {

namespace {

bool isRate(const FrameRateConfig& rate, std::int64_t numerator, std::int64_t denominator) {
    return rate.numerator == numerator && rate.denominator == denominator;
}

// `integer` is the exact integer neighbour of the 1000/1001 rate `fractional`
// (24 of 23.976, 30 of 29.97), neither of them drop-frame.
bool isIntegerNeighbour(const FrameRateConfig& integer, const FrameRateConfig& fractional) {
    if (integer.dropFrame || fractional.dropFrame) {
        return false;
    }
    return (isRate(integer, 30, 1) && isRate(fractional, 30000, 1001)) ||
           (isRate(integer, 24, 1) && isRate(fractional, 24000, 1001));
}

}  // namespace

std::optional<std::size_t> select(
    const std::vector<LTCDecoder::AutoCandidateEvaluation>& evaluations) {
    std::optional<std::size_t> best;
    for (std::size_t i = 0; i < evaluations.size(); ++i) {
        const auto& c = evaluations[i];
        if (!c.success) {
            continue;
        }
        if (!best) {
            best = i;
            continue;
        }
        const auto& b = evaluations[*best];
        if (c.confidence > b.confidence + kNearTieTolerance) {
            best = i;
        } else if (std::fabs(c.confidence - b.confidence) <= kNearTieTolerance &&
                   isIntegerNeighbour(c.rate, b.rate)) {
            best = i;
        } else if (c.confidence > b.confidence) {
            best = i;
        }
    }
    return best;
}

std::string candidateDiagnostics(
    const std::vector<LTCDecoder::AutoCandidateEvaluation>& evaluations, std::size_t selected) {
    std::string text = "Auto FPS candidates:\n";
    // The first successful evaluation with the highest confidence.
    std::optional<std::size_t> highest;
    for (std::size_t i = 0; i < evaluations.size(); ++i) {
        const auto& e = evaluations[i];
        text += fmt::format(
            "- {}: confidence={:.3f} bestScore={} validRun={} success={}\n", e.rate.label,
            e.confidence, e.bestScore ? fmt::format("{:.3f}", *e.bestScore) : "-",
            e.validRun ? std::to_string(*e.validRun) : "-", e.success ? "true" : "false");
        if (e.success && (!highest || e.confidence > evaluations[*highest].confidence)) {
            highest = i;
        }
    }
    if (selected >= evaluations.size()) {
        return text;
    }
    const auto& chosen = evaluations[selected];
    text += "Selected: " + chosen.rate.label;
    if (highest && evaluations[*highest].rate != chosen.rate &&
        std::fabs(evaluations[*highest].confidence - chosen.confidence) <= kNearTieTolerance) {
        text += " (near-tie preference for exact integer rate)";
    }
    text += "\n";
    return text;
}

std::string measurementDiagnostics(const LTCDecodeResult& result, std::int64_t sampleRate) {
    std::string text = "Auto FPS candidates:\n";
    for (const FrameRateConfig& rate : candidateFrameRates()) {
        const double period = static_cast<double>(sampleRate) *
                              static_cast<double>(rate.denominator) /
                              static_cast<double>(rate.numerator);
        const double off = period > 0 ? (result.samplesPerFrame / period - 1.0) * 100.0 : 0.0;
        text +=
            fmt::format("- {}: period={:.3f} measured={:.3f} ({:+.3f}%){}\n", rate.label, period,
                        result.samplesPerFrame, off, rate == result.frameRate ? " *" : "");
    }
    text +=
        fmt::format("Selected: {} ({}; run of {} frames, {} bit errors)\n", result.frameRate.label,
                    result.rateEvidence, result.runFrames, result.bitErrors);
    return text;
}

std::vector<VoteEntry> sortVoteEntries(std::vector<VoteEntry> entries) {
    auto before = [](const VoteEntry& a, const VoteEntry& b) {
        if (a.avgConfidence != b.avgConfidence) {
            return a.avgConfidence > b.avgConfidence;
        }
        if (a.count != b.count) {
            return a.count > b.count;
        }
        return a.sum > b.sum;
    };
    // Stable insertion sort: an entry moves only past entries it strictly beats.
    for (std::size_t i = 1; i < entries.size(); ++i) {
        std::size_t j = i;
        while (j > 0 && before(entries[i], entries[j - 1])) {
            --j;
        }
        if (j != i) {
            VoteEntry moving = std::move(entries[i]);
            for (std::size_t k = i; k > j; --k) {
                entries[k] = std::move(entries[k - 1]);
            }
            entries[j] = std::move(moving);
        }
    }
    return entries;
}

std::optional<FrameRateConfig> chooseVoteWinner(const std::vector<VoteEntry>& sorted) {
    if (sorted.empty()) {
        return std::nullopt;
    }
    const VoteEntry& top = sorted[0];
    if (sorted.size() >= 2) {
        const VoteEntry& second = sorted[1];
        if (std::fabs(top.avgConfidence - second.avgConfidence) <= kNearTieTolerance &&
            isIntegerNeighbour(second.rate, top.rate)) {
            return second.rate;
        }
    }
    return top.rate;
}

std::optional<FrameRateConfig> batchVoteFrameRate(const std::vector<VoteSource>& sources) {
    std::vector<VoteEntry> entries;  // in order of first vote
    for (const VoteSource& source : sources) {
        if (!source.load) {
            continue;
        }
        try {
            std::optional<std::pair<std::vector<float>, std::int64_t>> loaded = source.load();
            if (!loaded) {
                continue;
            }
            const LTCDecodeResult result = LTCDecoder::decode(loaded->first, loaded->second);
            auto it = std::find_if(entries.begin(), entries.end(),
                                   [&](const VoteEntry& e) { return e.rate == result.frameRate; });
            if (it == entries.end()) {
                entries.push_back(VoteEntry{result.frameRate, 0, 0, 0});
                it = entries.end() - 1;
            }
            it->sum += result.confidence;
            it->count += 1;
        } catch (const std::exception&) {
            // An unreadable or undecodable source does not vote.
        }
    }
    if (entries.empty()) {
        return std::nullopt;
    }
    for (VoteEntry& entry : entries) {
        entry.avgConfidence =
            entry.sum / static_cast<double>(std::max<std::int64_t>(entry.count, 1));
    }
    const std::vector<VoteEntry> sorted = sortVoteEntries(std::move(entries));
    const std::optional<FrameRateConfig> chosen = chooseVoteWinner(sorted);

    std::string text = "Auto FPS batch vote:\n";
    for (const VoteEntry& entry : sorted) {
        text += fmt::format("- {}: avgConfidence={:.3f} count={} sum={:.3f}\n", entry.rate.label,
                            entry.avgConfidence, entry.count, entry.sum);
    }
    text += "Selected (batch): " + chosen->label + "\n";
    detail::writeFrameRateDiagnostics(text);
    return chosen;
}

}  // namespace norvane::FrameRateDetection
