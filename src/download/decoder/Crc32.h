#pragma once
#include <cstddef>
#include <cstdint>

namespace crc32 {
// CRC-32 (the one of zip and yEnc), continued from crc (0 to start).
uint32_t update(uint32_t crc, const void *data, size_t len);
// The CRC of A followed by B, from crc(A), crc(B) and the length of B.
uint32_t combine(uint32_t crcA, uint32_t crcB, uint64_t lenB);
}
