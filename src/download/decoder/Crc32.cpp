#include "download/decoder/Crc32.h"

#include <libdeflate.h>

namespace crc32 {

uint32_t update(uint32_t crc, const void *data, size_t len)
{
    return libdeflate_crc32(crc, data, len);
}

// Combining works on the CRC as a polynomial over GF(2): appending lenB zero
// bytes to A is a linear map, applied here by repeated squaring of the
// one-zero-bit operator.
static uint32_t gf2Times(const uint32_t *mat, uint32_t vec)
{
    uint32_t sum = 0;
    for (int i = 0; vec; vec >>= 1, ++i)
        if (vec & 1)
            sum ^= mat[i];
    return sum;
}

static void gf2Square(uint32_t *sq, const uint32_t *mat)
{
    for (int n = 0; n < 32; ++n)
        sq[n] = gf2Times(mat, mat[n]);
}

uint32_t combine(uint32_t crcA, uint32_t crcB, uint64_t lenB)
{
    if (lenB == 0)
        return crcA;
    uint32_t even[32], odd[32];
    odd[0] = 0xEDB88320u;
    uint32_t row = 1;
    for (int n = 1; n < 32; ++n) {
        odd[n] = row;
        row <<= 1;
    }
    gf2Square(even, odd); // two zero bits
    gf2Square(odd, even); // four zero bits
    do {
        gf2Square(even, odd);
        if (lenB & 1)
            crcA = gf2Times(even, crcA);
        lenB >>= 1;
        if (!lenB)
            break;
        gf2Square(odd, even);
        if (lenB & 1)
            crcA = gf2Times(odd, crcA);
        lenB >>= 1;
    } while (lenB);
    return crcA ^ crcB;
}

} // namespace crc32
