#include "core/audio/riff_writer.h"

#include <gtest/gtest.h>
#include <sys/mman.h>

#include <vector>

namespace norvane {
namespace {

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
