#include "download/decoder/Crc32.h"

#include <libdeflate.h>

namespace crc32 {

uint32_t update(uint32_t crc, const void *data, size_t len)
{
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
