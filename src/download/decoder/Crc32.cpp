#include "download/decoder/Crc32.h"

#include <libdeflate.h>

#if defined(__x86_64__)
#include <immintrin.h>
#define ND_CRC_FOLD 1
#endif

namespace crc32 {

#ifdef ND_CRC_FOLD
namespace {

// x^n mod P, bit-reflected (x^0 is the top bit), for the folding constants.
uint64_t xPowMod(int n)
{
    uint32_t p = 1u << 31;
    for (int i = 0; i < n; ++i)
        p = p & 1 ? (p >> 1) ^ 0xEDB88320u : p >> 1;
    return p;
}

// Multipliers that move a 128-bit piece `bits` further on: its first half by
// x^(bits+31), its second by x^(bits-33) (the products come out one bit up).
struct FoldTable {
    uint64_t k[4][2]; // across 2048, 512, 384, 256 bits; [0] for the first half
    uint64_t k128[2];
    FoldTable()
    {
        const int across[4] = {2048, 512, 384, 256};
        for (int i = 0; i < 4; ++i) {
            k[i][0] = xPowMod(across[i] + 31);
            k[i][1] = xPowMod(across[i] - 33);
        }
        k128[0] = xPowMod(128 + 31);
        k128[1] = xPowMod(128 - 33);
    }
};
const FoldTable kFold;

#define ND_VPCLMUL __attribute__((target("avx512f,avx512bw,vpclmulqdq,pclmul")))

ND_VPCLMUL inline __m512i fold512(__m512i x, __m512i k)
{
    return _mm512_xor_si512(_mm512_clmulepi64_epi128(x, k, 0x00), _mm512_clmulepi64_epi128(x, k, 0x11));
}

ND_VPCLMUL inline __m128i fold128(__m128i x, const uint64_t *k)
{
    const __m128i m = _mm_set_epi64x(int64_t(k[1]), int64_t(k[0]));
    return _mm_xor_si128(_mm_clmulepi64_si128(x, m, 0x00), _mm_clmulepi64_si128(x, m, 0x11));
}

ND_VPCLMUL inline __m512i load(const uint8_t *q)
{
    return _mm512_loadu_si512(q);
}

ND_VPCLMUL inline __m512i mult(const uint64_t *k)
{
    return _mm512_broadcast_i32x4(_mm_set_epi64x(int64_t(k[1]), int64_t(k[0])));
}

// Folds 64-byte blocks with carry-less multiplication, four chains at a time;
// the 16 bytes left over are then run through the ordinary CRC, which gives
// the same remainder.
ND_VPCLMUL uint32_t updateFold(uint32_t crc, const uint8_t *p, size_t len)
{
    __m512i x0 = _mm512_xor_si512(load(p), _mm512_castsi128_si512(_mm_cvtsi32_si128(int(~crc))));
    __m512i x1 = load(p + 64), x2 = load(p + 128), x3 = load(p + 192);
    p += 256;
    len -= 256;
    const __m512i k2048 = mult(kFold.k[0]);
    while (len >= 256) {
        x0 = _mm512_xor_si512(fold512(x0, k2048), load(p));
        x1 = _mm512_xor_si512(fold512(x1, k2048), load(p + 64));
        x2 = _mm512_xor_si512(fold512(x2, k2048), load(p + 128));
        x3 = _mm512_xor_si512(fold512(x3, k2048), load(p + 192));
        p += 256;
        len -= 256;
    }
    const __m512i k512 = mult(kFold.k[1]);
    __m512i x = _mm512_xor_si512(fold512(x0, k512), x1);
    x = _mm512_xor_si512(fold512(x, k512), x2);
    x = _mm512_xor_si512(fold512(x, k512), x3);
    while (len >= 64) {
        x = _mm512_xor_si512(fold512(x, k512), load(p));
        p += 64;
        len -= 64;
    }
    __m128i r = _mm512_extracti32x4_epi32(x, 3);
    r = _mm_xor_si128(r, fold128(_mm512_extracti32x4_epi32(x, 2), kFold.k128));
    r = _mm_xor_si128(r, fold128(_mm512_extracti32x4_epi32(x, 1), kFold.k[3]));
    r = _mm_xor_si128(r, fold128(_mm512_castsi512_si128(x), kFold.k[2]));
    alignas(16) uint8_t rest[16];
    _mm_store_si128(reinterpret_cast<__m128i *>(rest), r);
    return libdeflate_crc32(libdeflate_crc32(0xFFFFFFFFu, rest, 16), p, len);
}

bool haveFold()
{
    __builtin_cpu_init();
    return __builtin_cpu_supports("avx512f") && __builtin_cpu_supports("avx512bw")
           && __builtin_cpu_supports("vpclmulqdq") && __builtin_cpu_supports("pclmul");
}

} // namespace
#endif

uint32_t update(uint32_t crc, const void *data, size_t len)
{
#ifdef ND_CRC_FOLD
    static const bool fold = haveFold();
    if (fold && len >= 1024)
        return updateFold(crc, static_cast<const uint8_t *>(data), len);
#endif
    return libdeflate_crc32(crc, data, len);
}

// Combining works on the CRC as a polynomial over GF(2) (bit-reflected):
// crc(A+B) = crc(A) * x^(8 len(B)) mod P  xor  crc(B).
static constexpr uint32_t kPoly = 0xEDB88320u;

static uint32_t multModP(uint32_t a, uint32_t b)
{
    uint32_t m = 1u << 31, p = 0;
    for (;;) {
        if (a & m) {
            p ^= b;
            if ((a & (m - 1)) == 0)
                break;
        }
        m >>= 1;
        b = b & 1 ? (b >> 1) ^ kPoly : b >> 1;
    }
    return p;
}

struct PowerTable {
    uint32_t x2n[32]; // x^(2^n) mod P
    PowerTable()
    {
        uint32_t p = 1u << 30; // x^1
        x2n[0] = p;
        for (int n = 1; n < 32; ++n)
            x2n[n] = p = multModP(p, p);
    }
};
static const PowerTable kPowers;

uint32_t combine(uint32_t crcA, uint32_t crcB, uint64_t lenB)
{
    uint32_t p = 1u << 31; // x^0
    unsigned k = 3;        // bits = bytes * 2^3
    for (uint64_t n = lenB; n; n >>= 1, ++k)
        if (n & 1)
            p = multModP(kPowers.x2n[k & 31], p);
    return multModP(p, crcA) ^ crcB;
}

} // namespace crc32
