#include "download/decoder/YencKernel.h"

#include <cstring>
#include <initializer_list>

#if defined(__x86_64__) || defined(__i386__)
#define ND_YENC_X86 1
#include <immintrin.h>
#endif

namespace yenc {

static size_t decodeScalar(const uint8_t *src, size_t len, uint8_t *dst, DecodeState &st,
                           bool stripDots)
{
    uint8_t *out = dst;
    bool esc = st.escape;
    bool ls = st.lineStart;
    for (size_t i = 0; i < len; ++i) {
        const uint8_t c = src[i];
        if (esc) {
            *out++ = uint8_t(c - 106);
            esc = false;
            ls = false;
            continue;
        }
        switch (c) {
        case '\n':
            ls = true;
            continue;
        case '\r':
            ls = false;
            continue;
        case '=':
            esc = true;
            ls = false;
            continue;
        case '.':
            if (ls && stripDots) {
                ls = false;
                continue;
            }
            break;
        default:
            break;
        }
        *out++ = uint8_t(c - 42);
        ls = false;
    }
    st.escape = esc;
    st.lineStart = ls;
    return size_t(out - dst);
}

#ifdef ND_YENC_X86

// For every 8-bit mask of bytes to drop: the indices of the bytes kept, in order.
struct CompactTable {
    alignas(16) uint8_t idx[256][8];
    uint8_t kept[256];
    CompactTable()
    {
        for (int m = 0; m < 256; ++m) {
            int k = 0;
            for (int b = 0; b < 8; ++b)
                if (!(m & (1 << b)))
                    idx[m][k++] = uint8_t(b);
            kept[m] = uint8_t(k);
            for (int j = k; j < 8; ++j)
                idx[m][j] = 0x80;
        }
    }
};
static const CompactTable kCompact;

__attribute__((target("sse2"))) static size_t decodeSse2(const uint8_t *src, size_t len,
                                                         uint8_t *dst, DecodeState &st,
                                                         bool stripDots)
{
    // Blocks without any special byte are converted 16 at a time; the others
    // go through the scalar path, which carries the state.
    const __m128i cEq = _mm_set1_epi8('='), cCr = _mm_set1_epi8('\r'),
                  cLf = _mm_set1_epi8('\n'), cDot = _mm_set1_epi8('.'),
                  c42 = _mm_set1_epi8(42);
    size_t i = 0, out = 0;
    while (i + 16 <= len) {
        const __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i *>(src + i));
        __m128i sp = _mm_or_si128(_mm_or_si128(_mm_cmpeq_epi8(v, cEq), _mm_cmpeq_epi8(v, cCr)),
                                  _mm_cmpeq_epi8(v, cLf));
        if (stripDots && st.lineStart)
            sp = _mm_or_si128(sp, _mm_cmpeq_epi8(v, cDot));
        if (_mm_movemask_epi8(sp) == 0 && !st.escape) {
            _mm_storeu_si128(reinterpret_cast<__m128i *>(dst + out), _mm_sub_epi8(v, c42));
            out += 16;
            st.lineStart = false;
        } else {
            out += decodeScalar(src + i, 16, dst + out, st, stripDots);
        }
        i += 16;
    }
    out += decodeScalar(src + i, len - i, dst + out, st, stripDots);
    return out;
}

// One 16-byte block with SSSE3 compaction. Returns false (nothing written, state
// untouched) when an escaped byte is itself an "=", which the scalar path handles.
__attribute__((target("ssse3"))) static inline bool block16(__m128i v, uint32_t eq, uint32_t cr,
                                                            uint32_t lf, uint32_t dot,
                                                            uint8_t *dst, size_t &out,
                                                            DecodeState &st)
{
    const uint32_t esc = ((eq << 1) | uint32_t(st.escape)) & 0xFFFF;
    if (esc & eq)
        return false;
    const uint32_t lfReal = lf & ~esc;
    const uint32_t ls = ((lfReal << 1) | uint32_t(st.lineStart)) & 0xFFFF;
    const uint32_t drop = (eq | cr | lfReal | (dot & ls)) & ~esc & 0xFFFF;

    // escaped bytes lose a further 64
    __m128i escV = _mm_slli_si128(_mm_cmpeq_epi8(v, _mm_set1_epi8('=')), 1);
    if (st.escape)
        escV = _mm_or_si128(escV, _mm_cvtsi32_si128(0xFF));
    const __m128i val = _mm_sub_epi8(_mm_sub_epi8(v, _mm_set1_epi8(42)),
                                     _mm_and_si128(escV, _mm_set1_epi8(64)));
    if (drop == 0) {
        _mm_storeu_si128(reinterpret_cast<__m128i *>(dst + out), val);
        out += 16;
    } else {
        const uint32_t lo = drop & 0xFF, hi = drop >> 8;
        const __m128i sLo = _mm_loadl_epi64(reinterpret_cast<const __m128i *>(kCompact.idx[lo]));
        const __m128i sHi = _mm_add_epi8(
            _mm_loadl_epi64(reinterpret_cast<const __m128i *>(kCompact.idx[hi])),
            _mm_set1_epi8(8));
        _mm_storel_epi64(reinterpret_cast<__m128i *>(dst + out), _mm_shuffle_epi8(val, sLo));
        out += kCompact.kept[lo];
        _mm_storel_epi64(reinterpret_cast<__m128i *>(dst + out), _mm_shuffle_epi8(val, sHi));
        out += kCompact.kept[hi];
    }
    st.escape = (eq >> 15) & 1;
    st.lineStart = (lfReal >> 15) & 1;
    return true;
}

__attribute__((target("ssse3"))) static size_t decodeSsse3(const uint8_t *src, size_t len,
                                                          uint8_t *dst, DecodeState &st,
                                                          bool stripDots)
{
    const __m128i cEq = _mm_set1_epi8('='), cCr = _mm_set1_epi8('\r'),
                  cLf = _mm_set1_epi8('\n'), cDot = _mm_set1_epi8('.');
    size_t i = 0, out = 0;
    while (i + 16 <= len) {
        const __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i *>(src + i));
        const uint32_t eq = uint32_t(_mm_movemask_epi8(_mm_cmpeq_epi8(v, cEq)));
        const uint32_t cr = uint32_t(_mm_movemask_epi8(_mm_cmpeq_epi8(v, cCr)));
        const uint32_t lf = uint32_t(_mm_movemask_epi8(_mm_cmpeq_epi8(v, cLf)));
        const uint32_t dot = stripDots ? uint32_t(_mm_movemask_epi8(_mm_cmpeq_epi8(v, cDot))) : 0;
        if (!block16(v, eq, cr, lf, dot, dst, out, st))
            out += decodeScalar(src + i, 16, dst + out, st, stripDots);
        i += 16;
    }
    out += decodeScalar(src + i, len - i, dst + out, st, stripDots);
    return out;
}

__attribute__((target("avx2,ssse3,popcnt"))) static size_t decodeAvx2(const uint8_t *src,
                                                                     size_t len, uint8_t *dst,
                                                                     DecodeState &st,
                                                                     bool stripDots)
{
    const __m256i cEq = _mm256_set1_epi8('='), cCr = _mm256_set1_epi8('\r'),
                  cLf = _mm256_set1_epi8('\n'), cDot = _mm256_set1_epi8('.'),
                  c42 = _mm256_set1_epi8(42);
    size_t i = 0, out = 0;
    while (i + 32 <= len) {
        const __m256i v = _mm256_loadu_si256(reinterpret_cast<const __m256i *>(src + i));
        const uint32_t eq = uint32_t(_mm256_movemask_epi8(_mm256_cmpeq_epi8(v, cEq)));
        const uint32_t cr = uint32_t(_mm256_movemask_epi8(_mm256_cmpeq_epi8(v, cCr)));
        const uint32_t lf = uint32_t(_mm256_movemask_epi8(_mm256_cmpeq_epi8(v, cLf)));
        const uint32_t dot =
            stripDots ? uint32_t(_mm256_movemask_epi8(_mm256_cmpeq_epi8(v, cDot))) : 0;
        if ((eq | cr | lf) == 0 && !st.escape && !(dot & uint32_t(st.lineStart))) {
            _mm256_storeu_si256(reinterpret_cast<__m256i *>(dst + out), _mm256_sub_epi8(v, c42));
            out += 32;
            st.lineStart = false;
            i += 32;
            continue;
        }
        const __m128i vLo = _mm256_castsi256_si128(v);
        const __m128i vHi = _mm256_extracti128_si256(v, 1);
        for (int h = 0; h < 2; ++h) {
            const int sh = h * 16;
            if (!block16(h ? vHi : vLo, (eq >> sh) & 0xFFFF, (cr >> sh) & 0xFFFF,
                         (lf >> sh) & 0xFFFF, (dot >> sh) & 0xFFFF, dst, out, st))
                out += decodeScalar(src + i + sh, 16, dst + out, st, stripDots);
        }
        i += 32;
    }
    out += decodeScalar(src + i, len - i, dst + out, st, stripDots);
    return out;
}

__attribute__((target("avx2"))) static size_t findKeywordAvx2(const uint8_t *p, size_t len)
{
    const __m256i cLf = _mm256_set1_epi8('\n'), cEq = _mm256_set1_epi8('='),
                  cY = _mm256_set1_epi8('y');
    size_t i = 0;
    while (i + 34 <= len) {
        const uint32_t a = uint32_t(_mm256_movemask_epi8(_mm256_cmpeq_epi8(
            _mm256_loadu_si256(reinterpret_cast<const __m256i *>(p + i)), cLf)));
        const uint32_t b = uint32_t(_mm256_movemask_epi8(_mm256_cmpeq_epi8(
            _mm256_loadu_si256(reinterpret_cast<const __m256i *>(p + i + 1)), cEq)));
        const uint32_t c = uint32_t(_mm256_movemask_epi8(_mm256_cmpeq_epi8(
            _mm256_loadu_si256(reinterpret_cast<const __m256i *>(p + i + 2)), cY)));
        const uint32_t m = a & b & c;
        if (m)
            return i + size_t(__builtin_ctz(m));
        i += 32;
    }
    for (; i + 2 < len; ++i)
        if (p[i] == '\n' && p[i + 1] == '=' && p[i + 2] == 'y')
            return i;
    return len;
}

static bool cpuHas(Kernel k)
{
    __builtin_cpu_init();
    switch (k) {
    case Kernel::Scalar: return true;
    case Kernel::Sse2: return __builtin_cpu_supports("sse2");
    case Kernel::Ssse3: return __builtin_cpu_supports("ssse3");
    case Kernel::Avx2: return __builtin_cpu_supports("avx2") && __builtin_cpu_supports("popcnt");
    }
    return false;
}
#else
static bool cpuHas(Kernel k) { return k == Kernel::Scalar; }
#endif

bool kernelSupported(Kernel k)
{
    return cpuHas(k);
}

Kernel bestKernel()
{
    static const Kernel best = [] {
        for (Kernel k : {Kernel::Avx2, Kernel::Ssse3, Kernel::Sse2})
            if (cpuHas(k))
                return k;
        return Kernel::Scalar;
    }();
    return best;
}

const char *kernelName(Kernel k)
{
    switch (k) {
    case Kernel::Scalar: return "scalar";
    case Kernel::Sse2: return "sse2";
    case Kernel::Ssse3: return "ssse3";
    case Kernel::Avx2: return "avx2";
    }
    return "?";
}

size_t decodeWith(Kernel k, const uint8_t *src, size_t len, uint8_t *dst, DecodeState &st,
                  bool stripDots)
{
#ifdef ND_YENC_X86
    if (cpuHas(k)) {
        switch (k) {
        case Kernel::Avx2: return decodeAvx2(src, len, dst, st, stripDots);
        case Kernel::Ssse3: return decodeSsse3(src, len, dst, st, stripDots);
        case Kernel::Sse2: return decodeSse2(src, len, dst, st, stripDots);
        case Kernel::Scalar: break;
        }
    }
#else
    (void)k;
#endif
    return decodeScalar(src, len, dst, st, stripDots);
}

size_t decode(const uint8_t *src, size_t len, uint8_t *dst, DecodeState &st, bool stripDots)
{
    return decodeWith(bestKernel(), src, len, dst, st, stripDots);
}

size_t findKeywordLine(const uint8_t *p, size_t len)
{
#ifdef ND_YENC_X86
    static const bool avx2 = cpuHas(Kernel::Avx2);
    if (avx2)
        return findKeywordAvx2(p, len);
#endif
    const uint8_t *q = p;
    const uint8_t *end = p + len;
    while (q + 2 < end) {
        const void *lf = memchr(q, '\n', size_t(end - q - 2));
        if (!lf)
            break;
        q = static_cast<const uint8_t *>(lf);
        if (q[1] == '=' && q[2] == 'y')
            return size_t(q - p);
        ++q;
    }
    return len;
}

} // namespace yenc
