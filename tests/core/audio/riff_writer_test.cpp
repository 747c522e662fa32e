#include "core/audio/riff_writer.h"

#include <gtest/gtest.h>
#include <sys/mman.h>

#include <vector>

#include "tests/support/wav_builder.h"

namespace norvane {
namespace {

TEST(RIFFWriterTest, SizesComeFromTheSerializedChunks) {
    const ByteBuffer odd = {1, 2, 3};
    const ByteBuffer even = {4, 5};
    const std::vector<RIFFChunk> chunks = {{"abcd", odd}, {"efgh", even}, {"none", {}}};
    const ByteBuffer out = serializeRIFF(chunks);
    // 12 header + (8 + 3 + pad) + (8 + 2) + 8
    ASSERT_EQ(out.size(), 42u);
    EXPECT_EQ(serializedRIFFSize(chunks), 42u);
    EXPECT_EQ(readLE32(out, 4), 34u);
    EXPECT_EQ(readLE32(out, 16), 3u);  // the pad byte is not in the chunk size
    EXPECT_EQ(out[23], 0);             // ... but it is written
    EXPECT_EQ(std::string(out.begin() + 24, out.begin() + 28), "efgh");
    const auto listed = testing::listChunks(out);
    ASSERT_EQ(listed.size(), 3u);
    EXPECT_EQ(listed[0].payload, odd);
    EXPECT_EQ(listed[2].id, "none");
}

TEST(RIFFWriterTest, RefusesSizesBeyond32BitsBeforeAllocating) {
    // Reserved, never touched address space stands in for a 4 GiB payload.
    const std::size_t huge = (std::size_t{1} << 32) + 16;
    void* map =
        ::mmap(nullptr, huge, PROT_READ, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    ASSERT_NE(map, MAP_FAILED);
    const ByteView big(static_cast<const std::uint8_t*>(map), huge);
    const ByteBuffer small(10, 0);
    for (ByteView payload : {big, big.first(0xFFFFFFFFu - 4 - 8 - 1)}) {
        const std::vector<RIFFChunk> chunks = {{"fmt ", small}, {"data", payload}};
        try {
            serializeRIFF(chunks);
            ADD_FAILURE() << payload.size();
        } catch (const RIFFWriteError& e) {
            EXPECT_EQ(e.kind(), RIFFWriteError::Kind::outputTooLarge);
            EXPECT_STREQ(e.what(), "Output would exceed the 4 GiB WAV size limit.");
        }
    }
    ::munmap(map, huge);
}

}  // namespace
}  // namespace norvane
