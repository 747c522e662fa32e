// libFuzzer entry point (see scripts/fuzz).
#include <cstddef>
#include <cstdint>

#include "fuzz/fuzz_targets.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    norvane::fuzz::exerciseBWFMetadata(norvane::ByteView(data, size));
    return 0;
}
