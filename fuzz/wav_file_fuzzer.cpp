// libFuzzer entry point for the WAV reader and writers (see scripts/fuzz-wav).
#include <cstddef>
#include <cstdint>

#include "fuzz/wav_fuzz_target.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    norvane::fuzz::exerciseWAV(norvane::ByteView(data, size));
    return 0;
}
