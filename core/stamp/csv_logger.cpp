#include "core/stamp/csv_logger.h"

#include <fmt/format.h>

#include <cerrno>

#include "core/common/file_output.h"
#include "core/common/text.h"

namespace norvane::CSVLogger {

std::string escapeField(std::string_view raw) {
    const std::string field = validUTF8(raw);
    std::string out;
    if (!field.empty()) {
        const char first = field.front();
        if (first == '=' || first == '+' || first == '-' || first == '@' || first == '\t' ||
            first == '\r') {
            out += '\'';
        }
    }
    out += field;
    if (out.find_first_of(",\"\n") == std::string::npos) {
        return out;
    }
    std::string quoted = "\"";
    for (char c : out) {
        if (c == '"') {
            quoted += '"';
        }
        quoted += c;
    }
    quoted += '"';
    return quoted;
}

std::string csvText(const std::vector<ProcessedFileRecord>& records) {
    std::string text(kHeader);
    for (const ProcessedFileRecord& r : records) {
        const std::string fields[] = {
            r.sourceFile,
            r.outputFile,
            r.ltcFile,
            std::to_string(r.sampleRate),
            r.frameRate,
            std::to_string(r.firstValidLTCSample),
            fmt::format("{:.6f}", r.firstValidLTCSeconds),
            r.stampedStartTimecode,
            r.status,
            r.warning,
            r.mode,
            r.groupID,
            r.segmentIndex,
            r.segmentStartSample,
            r.segmentEndSample,
            r.timeReferenceSamples,
            r.errorCode,
        };
        text += '\n';
        bool firstField = true;
        for (const std::string& field : fields) {
            if (!firstField) {
                text += ',';
            }
            firstField = false;
            text += escapeField(field);
        }
    }
    return text;
}

void write(const std::vector<ProcessedFileRecord>& records,
           const std::filesystem::path& destination) {
    const std::string text = csvText(records);
    writeFile(destination,
              ByteView(reinterpret_cast<const std::uint8_t*>(text.data()), text.size()),
              WriteMode::replaceAtomically);
}

std::filesystem::path writeNew(const std::vector<ProcessedFileRecord>& records,
                               const std::filesystem::path& folder, const std::string& name) {
    const std::string text = csvText(records);
    const ByteView bytes(reinterpret_cast<const std::uint8_t*>(text.data()), text.size());
    const std::filesystem::path asPath(name);
    for (int n = 1;; ++n) {
        const std::filesystem::path destination =
            folder / (n == 1 ? name
                             : asPath.stem().string() + "_" + std::to_string(n) +
                                   asPath.extension().string());
        try {
            writeFile(destination, bytes, WriteMode::createNew);
            return destination;
        } catch (const std::filesystem::filesystem_error& e) {
            if (e.code().value() != EEXIST || n >= 1000) {
                throw;
            }
        }
    }
}

}  // namespace norvane::CSVLogger
