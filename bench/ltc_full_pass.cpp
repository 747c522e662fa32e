// libltc's full pass over a WAV file, the reference `bench/run-io-bench`
// times `norvane decode` against: libsndfile reads the file in blocks, the
// first channel goes to libltc's decoder and every frame is counted.
//
//   ltc_full_pass FILE.wav   prints "<frames> frames"
#include <ltc.h>
#include <sndfile.h>

#include <cstdio>
#include <vector>

int main(int argc, char** argv) {
    if (argc != 2) {
        std::fprintf(stderr, "usage: ltc_full_pass FILE.wav\n");
        return 2;
    }
    SF_INFO info{};
    SNDFILE* file = sf_open(argv[1], SFM_READ, &info);
    if (file == nullptr) {
        std::fprintf(stderr, "%s\n", sf_strerror(nullptr));
        return 1;
    }
    constexpr sf_count_t kBlock = 16384;
    const int channels = info.channels;
    std::vector<float> interleaved(static_cast<std::size_t>(kBlock * channels));
    std::vector<float> mono(static_cast<std::size_t>(kBlock));
    LTCDecoder* decoder = ltc_decoder_create(info.samplerate / 25, 32);
    LTCFrameExt frame;
    long frames = 0;
    ltc_off_t position = 0;
    for (;;) {
        const sf_count_t n = sf_readf_float(file, interleaved.data(), kBlock);
        if (n <= 0) {
            break;
        }
        for (sf_count_t i = 0; i < n; ++i) {
            mono[static_cast<std::size_t>(i)] = interleaved[static_cast<std::size_t>(i * channels)];
        }
        ltc_decoder_write_float(decoder, mono.data(), static_cast<size_t>(n), position);
        position += n;
        while (ltc_decoder_read(decoder, &frame) > 0) {
            ++frames;
        }
    }
    std::printf("%ld frames\n", frames);
    ltc_decoder_free(decoder);
    sf_close(file);
    return 0;
}
