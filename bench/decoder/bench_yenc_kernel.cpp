// Throughput of the yEnc kernel (every variant this processor runs) on a
// dot-stuffed yEnc stream held in memory.
// usage: bench_yenc_kernel STREAM [ROUNDS]
// Prints one line per kernel: name, MB/s of input, CRC-32 of the output.

#include "download/decoder/Crc32.h"
#include "download/decoder/YencKernel.h"

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <vector>

int main(int argc, char **argv)
{
    if (argc < 2) {
        std::fprintf(stderr, "usage: bench_yenc_kernel STREAM [ROUNDS]\n");
        return 64;
    }
    const int rounds = argc > 2 ? std::atoi(argv[2]) : 10;
    FILE *f = std::fopen(argv[1], "rb");
    if (!f) {
        std::perror(argv[1]);
        return 2;
    }
    std::fseek(f, 0, SEEK_END);
    const long size = std::ftell(f);
    std::fseek(f, 0, SEEK_SET);
    std::vector<uint8_t> in(static_cast<size_t>(size)), out(static_cast<size_t>(size));
    if (std::fread(in.data(), 1, in.size(), f) != in.size()) {
        std::perror("read");
        return 2;
    }
    std::fclose(f);

    for (yenc::Kernel k : {yenc::Kernel::Scalar, yenc::Kernel::Sse2, yenc::Kernel::Ssse3, yenc::Kernel::Avx2,
                            yenc::Kernel::Avx512}) {
        if (!yenc::kernelSupported(k))
            continue;
        size_t n = 0;
        double best = 1e30;
        for (int r = 0; r < rounds + 1; ++r) {
            yenc::DecodeState st;
            const auto t0 = std::chrono::steady_clock::now();
            n = yenc::decodeWith(k, in.data(), in.size(), out.data(), st, true);
            const double s = std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count();
            if (r > 0 && s < best) // the first round warms the caches
                best = s;
        }
        std::printf("%s %.1f %08x %zu%s\n", yenc::kernelName(k), double(in.size()) / best / 1e6,
                    crc32::update(0, out.data(), n), n, k == yenc::bestKernel() ? " best" : "");
    }
    return 0;
}
