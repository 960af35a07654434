#pragma once
// The yEnc byte kernel: turns the encoded text of a part (escapes, CR and LF,
// optionally NNTP dot-stuffing) into the original bytes. Several
// implementations share one meaning and give identical output; the fastest
// one the processor supports is chosen at run time.

#include <cstddef>
#include <cstdint>

namespace yenc {

// Carried from one call to the next so that a buffer may end anywhere,
// even right after an "=".
struct DecodeState {
    bool escape = false;    // the previous byte was an unescaped "="
    bool lineStart = true;  // the previous byte was an unescaped LF (or nothing yet)
};

enum class Kernel { Scalar, Sse2, Ssse3, Avx2, Avx512 };

bool kernelSupported(Kernel k);
Kernel bestKernel();
const char *kernelName(Kernel k);

// Decodes len bytes from src into dst (which must hold at least len bytes) and
// returns the number of bytes written. The byte after an "=" is always taken as
// escaped; CR and LF that are not escaped are dropped. With stripDots a "." that
// opens a line is dropped (undoing the doubling of leading dots on the wire).
size_t decode(const uint8_t *src, size_t len, uint8_t *dst, DecodeState &st,
              bool stripDots = false);
size_t decodeWith(Kernel k, const uint8_t *src, size_t len, uint8_t *dst,
                  DecodeState &st, bool stripDots = false);

// Offset of the first LF that is followed by "=y" (a keyword line such as
// "=yend"), or len when there is none.
size_t findKeywordLine(const uint8_t *p, size_t len);

} // namespace yenc
