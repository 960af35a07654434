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

// For every 8-bit mask of bytes to drop: the shuffle that packs the kept bytes
// of an 8-byte piece to its front (lo for the first half of a 16-byte lane, hi
// for the second half), and how many bytes are kept.
struct CompactTable {
    uint64_t lo[256];
    uint64_t hi[256];
    uint8_t kept[256];
    CompactTable()
    {
        for (int m = 0; m < 256; ++m) {
            uint8_t l[8], h[8];
            int k = 0;
            for (int b = 0; b < 8; ++b)
                if (!(m & (1 << b))) {
                    l[k] = uint8_t(b);
                    h[k] = uint8_t(b + 8);
                    ++k;
                }
            kept[m] = uint8_t(k);
            for (int j = k; j < 8; ++j)
                l[j] = h[j] = 0x80;
            memcpy(&lo[m], l, 8);
            memcpy(&hi[m], h, 8);
        }
    }
};
static const CompactTable kCompact;

// The state lives in locals inside the loops (stores into dst could otherwise
// alias it) and goes back into st at the end.
template <class Flag>
static inline size_t scalarStep(const uint8_t *src, size_t n, uint8_t *dst, Flag &esc, Flag &ls, bool stripDots)
{
    DecodeState t{esc != 0, ls != 0};
    const size_t out = decodeScalar(src, n, dst, t, stripDots);
    esc = t.escape;
    ls = t.lineStart;
    return out;
}

__attribute__((target("sse2"))) static size_t decodeSse2(const uint8_t *src, size_t len,
                                                         uint8_t *dst, DecodeState &st,
                                                         bool stripDots)
{
    // Blocks without any special byte are converted 16 at a time; the others
    // go through the scalar path.
    const __m128i cEq = _mm_set1_epi8('='), cCr = _mm_set1_epi8('\r'),
                  cLf = _mm_set1_epi8('\n'), cDot = _mm_set1_epi8('.'),
                  c42 = _mm_set1_epi8(42);
    uint32_t esc = st.escape, ls = st.lineStart;
    size_t i = 0, out = 0;
    while (i + 16 <= len) {
        const __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i *>(src + i));
        __m128i sp = _mm_or_si128(_mm_or_si128(_mm_cmpeq_epi8(v, cEq), _mm_cmpeq_epi8(v, cCr)),
                                  _mm_cmpeq_epi8(v, cLf));
        if (stripDots && ls)
            sp = _mm_or_si128(sp, _mm_cmpeq_epi8(v, cDot));
        if (_mm_movemask_epi8(sp) == 0 && !esc) {
            _mm_storeu_si128(reinterpret_cast<__m128i *>(dst + out), _mm_sub_epi8(v, c42));
            out += 16;
            ls = 0;
        } else {
            out += scalarStep(src + i, 16, dst + out, esc, ls, stripDots);
        }
        i += 16;
    }
    st.escape = esc;
    st.lineStart = ls;
    out += decodeScalar(src + i, len - i, dst + out, st, stripDots);
    return out;
}

// Which bytes to drop from a block, given its "=", CR, LF and "." masks; false
// when an escaped byte is itself an "=", which the scalar path handles.
static inline bool dropMask(uint32_t eq, uint32_t cr, uint32_t lf, uint32_t dot, uint32_t &esc,
                            uint32_t &ls, int bits, uint32_t *drop)
{
    const uint32_t escM = (eq << 1) | esc;
    if (__builtin_expect((escM & eq) != 0, 0))
        return false;
    const uint32_t lfReal = lf & ~escM;
    const uint32_t lsM = (lfReal << 1) | ls;
    *drop = (eq | cr | lfReal | (dot & lsM)) & ~escM;
    esc = (eq >> (bits - 1)) & 1;
    ls = (lfReal >> (bits - 1)) & 1;
    return true;
}

__attribute__((target("ssse3"))) static size_t decodeSsse3(const uint8_t *src, size_t len,
                                                          uint8_t *dst, DecodeState &st,
                                                          bool stripDots)
{
    const __m128i cEq = _mm_set1_epi8('='), cCr = _mm_set1_epi8('\r'),
                  cLf = _mm_set1_epi8('\n'), cDot = _mm_set1_epi8('.'),
                  c42 = _mm_set1_epi8(42), c64 = _mm_set1_epi8(64);
    uint32_t esc = st.escape, ls = st.lineStart;
    size_t i = 0, out = 0;
    while (i + 16 <= len) {
        const __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i *>(src + i));
        const __m128i eqV = _mm_cmpeq_epi8(v, cEq);
        const uint32_t eq = uint32_t(_mm_movemask_epi8(eqV));
        const uint32_t cr = uint32_t(_mm_movemask_epi8(_mm_cmpeq_epi8(v, cCr)));
        const uint32_t lf = uint32_t(_mm_movemask_epi8(_mm_cmpeq_epi8(v, cLf)));
        const uint32_t dot = stripDots ? uint32_t(_mm_movemask_epi8(_mm_cmpeq_epi8(v, cDot))) : 0;
        // escaped bytes (those after an "=") lose a further 64
        const __m128i escV = _mm_or_si128(_mm_slli_si128(eqV, 1), _mm_cvtsi32_si128(int(esc * 0xFF)));
        uint32_t drop;
        if (!dropMask(eq, cr, lf, dot, esc, ls, 16, &drop)) {
            out += scalarStep(src + i, 16, dst + out, esc, ls, stripDots);
            i += 16;
            continue;
        }
        const __m128i val = _mm_sub_epi8(_mm_sub_epi8(v, c42), _mm_and_si128(escV, c64));
        const uint32_t m0 = drop & 0xFF, m1 = drop >> 8;
        const __m128i packed = _mm_shuffle_epi8(
            val, _mm_set_epi64x(int64_t(kCompact.hi[m1]), int64_t(kCompact.lo[m0])));
        _mm_storel_epi64(reinterpret_cast<__m128i *>(dst + out), packed);
        out += kCompact.kept[m0];
        _mm_storel_epi64(reinterpret_cast<__m128i *>(dst + out), _mm_unpackhi_epi64(packed, packed));
        out += kCompact.kept[m1];
        i += 16;
    }
    st.escape = esc;
    st.lineStart = ls;
    out += decodeScalar(src + i, len - i, dst + out, st, stripDots);
    return out;
}

__attribute__((target("avx2"))) static inline void pack32(__m256i val, uint32_t drop,
                                                          uint8_t *dst, size_t &out)
{
    const uint32_t m0 = drop & 0xFF, m1 = (drop >> 8) & 0xFF, m2 = (drop >> 16) & 0xFF,
                   m3 = drop >> 24;
    const __m256i packed = _mm256_shuffle_epi8(
        val, _mm256_set_epi64x(int64_t(kCompact.hi[m3]), int64_t(kCompact.lo[m2]),
                               int64_t(kCompact.hi[m1]), int64_t(kCompact.lo[m0])));
    const __m128i a = _mm256_castsi256_si128(packed), b = _mm256_extracti128_si256(packed, 1);
    _mm_storel_epi64(reinterpret_cast<__m128i *>(dst + out), a);
    out += kCompact.kept[m0];
    _mm_storel_epi64(reinterpret_cast<__m128i *>(dst + out), _mm_unpackhi_epi64(a, a));
    out += kCompact.kept[m1];
    _mm_storel_epi64(reinterpret_cast<__m128i *>(dst + out), b);
    out += kCompact.kept[m2];
    _mm_storel_epi64(reinterpret_cast<__m128i *>(dst + out), _mm_unpackhi_epi64(b, b));
    out += kCompact.kept[m3];
}

__attribute__((target("avx2"))) static inline uint64_t mask(__m256i x)
{
    return uint64_t(uint32_t(_mm256_movemask_epi8(x)));
}

// The "=" mask moved up one byte across the lanes; byte 0 takes byte 31 of `before`.
__attribute__((target("avx2"))) static inline __m256i shiftedEq(__m256i eqV, __m256i before)
{
    const __m256i carry = _mm256_permute2x128_si256(eqV, before, 0x03);
    return _mm256_alignr_epi8(eqV, carry, 15);
}

__attribute__((target("avx2"))) static size_t decodeAvx2(const uint8_t *src, size_t len,
                                                         uint8_t *dst, DecodeState &st,
                                                         bool stripDots)
{
    // 64 bytes per step: the masks of both halves are joined into 64-bit words
    const __m256i cEq = _mm256_set1_epi8('='), cCr = _mm256_set1_epi8('\r'),
                  cLf = _mm256_set1_epi8('\n'), cDot = _mm256_set1_epi8('.'),
                  c42 = _mm256_set1_epi8(42), c64 = _mm256_set1_epi8(64);
    uint64_t esc = st.escape, ls = st.lineStart;
    size_t i = 0, out = 0;
    while (i + 64 <= len) {
        const __m256i v0 = _mm256_loadu_si256(reinterpret_cast<const __m256i *>(src + i));
        const __m256i v1 = _mm256_loadu_si256(reinterpret_cast<const __m256i *>(src + i + 32));
        const __m256i eq0 = _mm256_cmpeq_epi8(v0, cEq), eq1 = _mm256_cmpeq_epi8(v1, cEq);
        const uint64_t eq = mask(eq0) | (mask(eq1) << 32);
        const uint64_t cr = mask(_mm256_cmpeq_epi8(v0, cCr)) | (mask(_mm256_cmpeq_epi8(v1, cCr)) << 32);
        const uint64_t lf = mask(_mm256_cmpeq_epi8(v0, cLf)) | (mask(_mm256_cmpeq_epi8(v1, cLf)) << 32);
        const uint64_t dot = stripDots ? mask(_mm256_cmpeq_epi8(v0, cDot)) | (mask(_mm256_cmpeq_epi8(v1, cDot)) << 32) : 0;
        const uint64_t escM = (eq << 1) | esc;
        if (__builtin_expect((escM & eq) != 0, 0)) {
            out += scalarStep(src + i, 64, dst + out, esc, ls, stripDots);
            i += 64;
            continue;
        }
        const uint64_t lfReal = lf & ~escM;
        const uint64_t drop = (eq | cr | lfReal | (dot & ((lfReal << 1) | ls))) & ~escM;
        // escaped bytes (those after an "=") lose a further 64
        const __m256i e0 = shiftedEq(eq0, _mm256_set1_epi8(char(-int(esc))));
        const __m256i e1 = shiftedEq(eq1, eq0);
        esc = eq >> 63;
        ls = lfReal >> 63;
        const __m256i val0 = _mm256_sub_epi8(_mm256_sub_epi8(v0, c42), _mm256_and_si256(e0, c64));
        const __m256i val1 = _mm256_sub_epi8(_mm256_sub_epi8(v1, c42), _mm256_and_si256(e1, c64));
        pack32(val0, uint32_t(drop), dst, out);
        pack32(val1, uint32_t(drop >> 32), dst, out);
        i += 64;
    }
    st.escape = esc;
    st.lineStart = ls;
    out += decodeScalar(src + i, len - i, dst + out, st, stripDots);
    return out;
}

// With AVX-512 VBMI2 the kept bytes are packed by one compress per 64 bytes.
#define ND_AVX512 __attribute__((target("avx512f,avx512bw,avx512vbmi2,popcnt")))

ND_AVX512 static size_t decodeAvx512(const uint8_t *src, size_t len, uint8_t *dst,
                                     DecodeState &st, bool stripDots)
{
    const __m512i cEq = _mm512_set1_epi8('='), cCr = _mm512_set1_epi8('\r'),
                  cLf = _mm512_set1_epi8('\n'), cDot = _mm512_set1_epi8('.'),
                  c42 = _mm512_set1_epi8(42), c64 = _mm512_set1_epi8(64);
    uint64_t esc = st.escape, ls = st.lineStart;
    size_t i = 0, out = 0;
    // out never runs ahead of i, so the full 64-byte store stays inside dst[0, len)
    while (i + 64 <= len) {
        const __m512i v = _mm512_loadu_si512(src + i);
        const uint64_t eq = _mm512_cmpeq_epi8_mask(v, cEq);
        const uint64_t escM = (eq << 1) | esc;
        if (__builtin_expect((escM & eq) != 0, 0)) {
            out += scalarStep(src + i, 64, dst + out, esc, ls, stripDots);
            i += 64;
            continue;
        }
        const uint64_t cr = _mm512_cmpeq_epi8_mask(v, cCr);
        const uint64_t lfReal = _mm512_cmpeq_epi8_mask(v, cLf) & ~escM;
        const uint64_t dot = stripDots ? uint64_t(_mm512_cmpeq_epi8_mask(v, cDot)) : 0;
        const uint64_t keep = ~((eq | cr | lfReal | (dot & ((lfReal << 1) | ls))) & ~escM);
        esc = eq >> 63;
        ls = lfReal >> 63;
        __m512i val = _mm512_sub_epi8(v, c42);
        val = _mm512_mask_sub_epi8(val, escM, val, c64); // escaped bytes lose a further 64
        _mm512_storeu_si512(dst + out, _mm512_maskz_compress_epi8(keep, val));
        out += size_t(__builtin_popcountll(keep));
        i += 64;
    }
    st.escape = esc;
    st.lineStart = ls;
    out += decodeScalar(src + i, len - i, dst + out, st, stripDots);
    return out;
}

ND_AVX512 static size_t findKeywordAvx512(const uint8_t *p, size_t len)
{
    const __m512i cLf = _mm512_set1_epi8('\n'), cEq = _mm512_set1_epi8('='),
                  cY = _mm512_set1_epi8('y');
    size_t i = 0;
    while (i + 66 <= len) {
        _mm_prefetch(reinterpret_cast<const char *>(p + i + 4096), _MM_HINT_T0);
        const uint64_t m = _mm512_cmpeq_epi8_mask(_mm512_loadu_si512(p + i), cLf)
                           & _mm512_cmpeq_epi8_mask(_mm512_loadu_si512(p + i + 1), cEq)
                           & _mm512_cmpeq_epi8_mask(_mm512_loadu_si512(p + i + 2), cY);
        if (m)
            return i + size_t(__builtin_ctzll(m));
        i += 64;
    }
    for (; i + 2 < len; ++i)
        if (p[i] == '\n' && p[i + 1] == '=' && p[i + 2] == 'y')
            return i;
    return len;
}

__attribute__((target("avx2"))) static inline __m256i keywordAt(const uint8_t *q)
{
    const __m256i a = _mm256_cmpeq_epi8(_mm256_loadu_si256(reinterpret_cast<const __m256i *>(q)),
                                        _mm256_set1_epi8('\n'));
    const __m256i b = _mm256_cmpeq_epi8(_mm256_loadu_si256(reinterpret_cast<const __m256i *>(q + 1)),
                                        _mm256_set1_epi8('='));
    const __m256i c = _mm256_cmpeq_epi8(_mm256_loadu_si256(reinterpret_cast<const __m256i *>(q + 2)),
                                        _mm256_set1_epi8('y'));
    return _mm256_and_si256(_mm256_and_si256(a, b), c);
}

__attribute__((target("avx2"))) static size_t findKeywordAvx2(const uint8_t *p, size_t len)
{
    size_t i = 0;
    while (i + 66 <= len) {
        // the next page early: the search is what pulls the text in from memory
        _mm_prefetch(reinterpret_cast<const char *>(p + i + 4096), _MM_HINT_T0);
        const __m256i x0 = keywordAt(p + i), x1 = keywordAt(p + i + 32);
        if (!_mm256_testz_si256(_mm256_or_si256(x0, x1), _mm256_or_si256(x0, x1))) {
            const uint64_t m = uint64_t(uint32_t(_mm256_movemask_epi8(x0)))
                               | (uint64_t(uint32_t(_mm256_movemask_epi8(x1))) << 32);
            return i + size_t(__builtin_ctzll(m));
        }
        i += 64;
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
    case Kernel::Avx512:
        return __builtin_cpu_supports("avx512f") && __builtin_cpu_supports("avx512bw")
               && __builtin_cpu_supports("avx512vbmi2") && __builtin_cpu_supports("popcnt");
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
        for (Kernel k : {Kernel::Avx512, Kernel::Avx2, Kernel::Ssse3, Kernel::Sse2})
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
    case Kernel::Avx512: return "avx512";
    }
    return "?";
}

size_t decodeWith(Kernel k, const uint8_t *src, size_t len, uint8_t *dst, DecodeState &st,
                  bool stripDots)
{
#ifdef ND_YENC_X86
    if (cpuHas(k)) {
        switch (k) {
        case Kernel::Avx512: return decodeAvx512(src, len, dst, st, stripDots);
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
    static const bool avx512 = cpuHas(Kernel::Avx512), avx2 = cpuHas(Kernel::Avx2);
    if (avx512)
        return findKeywordAvx512(p, len);
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
