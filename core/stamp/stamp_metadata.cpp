#include "core/stamp/stamp_metadata.h"

#include <algorithm>

#include <fmt/format.h>

#include "core/audio/bext.h"
#include "core/audio/bwf_reader.h"
#include "core/audio/ixml.h"
#include "core/stamp/job_executor.h"

namespace norvane::StampMetadataComposer {

namespace {

void fillIfEmpty(std::string& field, const std::string& value) {
    if (field.empty()) {
        field = value;
    }
}

ByteBuffer bytesOf(const std::string& text) {
    return ByteBuffer(text.begin(), text.end());
}

}  // namespace

std::string plainIXML(const StampValues& stamp, std::uint32_t sampleRate) {
    // The stamp's own document with the <SPEED> block recorders write and
    // readers look for: the rational rate, the drop-frame flag, the sample
    // rate and the samples since midnight split into two 32-bit halves
    // (equal to the bext TimeReference).
    const std::string document = JobExecutor::ixmlDocument(stamp.rate, stamp.start);
    const std::string close = "\n</BWFXML>";
    const std::string speed = fmt::format(
        "\n  <SPEED>\n    <TIMECODE_RATE>{}/{}</TIMECODE_RATE>\n    "
        "<TIMECODE_FLAG>{}</TIMECODE_FLAG>\n    <TIMESTAMP_SAMPLE_RATE>{}</TIMESTAMP_SAMPLE_RATE>\n"
        "    <TIMESTAMP_SAMPLES_SINCE_MIDNIGHT_HI>{:010}</TIMESTAMP_SAMPLES_SINCE_MIDNIGHT_HI>\n"
        "    <TIMESTAMP_SAMPLES_SINCE_MIDNIGHT_LO>{:010}</TIMESTAMP_SAMPLES_SINCE_MIDNIGHT_LO>\n"
        "  </SPEED>",
        stamp.rate.numerator, stamp.rate.denominator, stamp.rate.dropFrame ? "DF" : "NDF",
        sampleRate, stamp.timeReference >> 32, stamp.timeReference & 0xFFFFFFFFu);
    return document.substr(0, document.size() - close.size()) + speed + close;
}

std::string codingHistoryLine(const WAVFmtChunk& fmt) {
    const char* mode = fmt.channelCount == 1   ? "mono"
                       : fmt.channelCount == 2 ? "stereo"
                                               : "multitrack";
    return "A=PCM,F=" + std::to_string(fmt.sampleRate) + ",W=" + std::to_string(fmt.bitsPerSample) +
           ",M=" + mode + ",T=Norvane LTC stamp\r\n";
}

StampMetadata compose(const WAVFile& source, const StampValues& stamp) {
    StampMetadata result;

    const WAVChunk* sourceBext = source.firstChunk("bext");
    const std::optional<BextChunk> recorded =
        sourceBext ? decodeBext(sourceBext->data) : std::nullopt;
    if (recorded) {
        BextChunk bext = *recorded;
        fillIfEmpty(bext.description, "Stamped by Norvane");
        fillIfEmpty(bext.originator, "Norvane");
        fillIfEmpty(bext.originatorReference, stamp.originatorReference);
        fillIfEmpty(bext.originationDate, stamp.originationDate);
        fillIfEmpty(bext.originationTime, stamp.originationTime);
        bext.timeReference = stamp.timeReference;
        bext.version = std::max<std::uint16_t>(bext.version, 1);
        if (!bext.codingHistory.empty() && !bext.codingHistory.ends_with("\r\n")) {
            bext.codingHistory += "\r\n";
        }
        bext.codingHistory += codingHistoryLine(source.fmt());
        result.chunks.bext = encodeBext(bext);
    } else {
        BWFStampInfo info;
        info.timeReferenceSamples = stamp.timeReference;
        info.description = "Stamped by Norvane";
        info.originator = "Norvane";
        info.originatorReference = stamp.originatorReference;
        info.originationDate = stamp.originationDate;
        info.originationTime = stamp.originationTime;
        result.chunks.bext = BWFWriter::encodeBext(info);
    }

    const std::string plain = plainIXML(stamp, source.fmt().sampleRate);
    const WAVChunk* sourceIXML = source.firstChunk("iXML");
    if (!sourceIXML) {
        result.chunks.ixml = bytesOf(plain);
        return result;
    }
    const std::string text(sourceIXML->data.begin(), sourceIXML->data.end());
    if (std::optional<IXMLElement> document = IXML::parse(text)) {
        IXML::mergeStamp(*document, IXMLStampValues{stamp.rate, stamp.start, stamp.timeReference,
                                                    source.fmt().sampleRate});
        result.chunks.ixml = bytesOf(IXML::serialize(*document));
        return result;
    }
    result.chunks.ixml = bytesOf(plain);
    result.chunks.extra.emplace_back(kUnreadableIXMLChunkId,
                                     ByteBuffer(sourceIXML->data.begin(), sourceIXML->data.end()));
    result.warnings.push_back("The iXML of " + source.url().filename().string() +
                              " is not well-formed XML; it is kept unchanged in an \"" +
                              kUnreadableIXMLChunkId + "\" chunk and a new iXML was written.");
    return result;
}

}  // namespace norvane::StampMetadataComposer
