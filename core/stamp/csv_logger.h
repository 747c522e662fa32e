#pragma once

// The comma-separated run log written beside the outputs of a stamp run.

#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

#include "core/stamp/processing_model.h"

namespace norvane::CSVLogger {

inline constexpr std::string_view kHeader =
    "source_file,output_file,ltc_file,sample_rate,frame_rate,first_valid_ltc_sample,"
    "first_valid_ltc_seconds,stamped_start_timecode,status,warning,mode,group_id,segment_index,"
    "segment_start_sample,segment_end_sample,time_reference_samples,error_code";

// One field as written: bytes that are not UTF-8 become U+FFFD (the log is a
// UTF-8 text whatever a file name holds); a leading "=", "+", "-", "@", tab or carriage return
// gets an apostrophe in front so spreadsheets never evaluate it; a field with a
// comma, double quote or line feed is quoted with its quotes doubled.
std::string escapeField(std::string_view field);

// The header and one line per record, joined by line feeds, no final line feed.
std::string csvText(const std::vector<ProcessedFileRecord>& records);

// Writes csvText atomically to `destination`, replacing any file there. Throws
// std::filesystem::filesystem_error.
void write(const std::vector<ProcessedFileRecord>& records,
           const std::filesystem::path& destination);

// Writes csvText into `folder` as `name`, never replacing a file: when the
// name is taken (a run in the same millisecond) "_2", "_3" ... go before the
// extension. Returns where it went; throws std::filesystem::filesystem_error.
std::filesystem::path writeNew(const std::vector<ProcessedFileRecord>& records,
                               const std::filesystem::path& folder, const std::string& name);

}  // namespace norvane::CSVLogger
