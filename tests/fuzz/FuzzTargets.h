#pragma once
// Bodies of the decoder fuzz targets, shared by the libFuzzer entry points and
// by the replay driver that runs in ordinary builds.

#include <cstdint>
#include <cstdlib>
#include <algorithm>
#include <cstring>
#include <vector>

#include "download/decoder/Decoders.h"
#include "download/decoder/YencKernel.h"

namespace fuzz {

// Takes the decoded bytes without keeping them (reading each, so ASan checks
// the range), but insists on sane offsets. Huge announced sizes cost nothing.
class CheckingSink : public decoder::OutputSink
{
public:
    bool writeAt(qint64 offset, const char *data, qint64 len) override
    {
        if (offset < 0 || len < 0)
            abort();
        if (offset + len > (qint64(1) << 42))
            return false;
        for (qint64 i = 0; i < len; ++i)
            sum += uint8_t(data[i]);
        total += len;
        end = std::max(end, offset + len);
        return true;
    }
    QString errorString() const override { return QStringLiteral("too far"); }
    uint64_t sum = 0;
    qint64 total = 0;
    qint64 end = 0;   // the furthest byte written: the size of the file it would make
};

// Every kernel must give the scalar kernel's bytes, whole and split anywhere.
inline void checkKernels(const uint8_t *d, size_t n)
{
    if (n == 0)
        return;
    const size_t cut = size_t(d[0]) * 7 % (n + 1);
    for (bool dots : {false, true}) {
        std::vector<uint8_t> want(n), got(n);
        yenc::DecodeState s0;
        const size_t wn = yenc::decodeWith(yenc::Kernel::Scalar, d, n, want.data(), s0, dots);
        for (yenc::Kernel k : {yenc::Kernel::Sse2, yenc::Kernel::Ssse3, yenc::Kernel::Avx2,
                                yenc::Kernel::Avx512}) {
            if (!yenc::kernelSupported(k))
                continue;
            yenc::DecodeState s;
            size_t gn = yenc::decodeWith(k, d, cut, got.data(), s, dots);
            gn += yenc::decodeWith(k, d + cut, n - cut, got.data() + gn, s, dots);
            if (gn != wn || memcmp(got.data(), want.data(), wn) != 0 || s.escape != s0.escape ||
                s.lineStart != s0.lineStart)
                abort();
        }
    }
}

// The input "read from a file", for the decoder's file path.
class BufferReader : public decoder::InputReader
{
public:
    BufferReader(const uint8_t *d, size_t n) : d(d), n(n) {}
    bool readAt(qint64 offset, char *buf, qint64 len) override
    {
        if (offset < 0 || len < 0 || uint64_t(offset + len) > n)
            abort();
        memcpy(buf, d + offset, size_t(len));
        return true;
    }

private:
    const uint8_t *d;
    size_t n;
};

// Decoding in ranges on two threads, reading the text as from a file, must
// give what one pass over memory gives.
inline void checkRanges(const uint8_t *d, size_t n)
{
    if (n == 0)
        return;
    const char *text = reinterpret_cast<const char *>(d);
    decoder::MemorySink once(1 << 20), split(1 << 20);
    const decoder::DecodeResult a = decoder::decodeYenc(text, qint64(n), once);
    BufferReader reader(d, n);
    const decoder::DecodeResult b = decoder::decodeYenc(text, qint64(n), split, &reader, 2, 1 + d[n - 1] % 97);
    if (a.error != b.error)
        abort();
    // a write failure stops both, not necessarily at the same part
    if (a.error != decoder::ErrorWrite && (a.problems != b.problems || once.data != split.data))
        abort();
}

inline int fuzzYenc(const uint8_t *d, size_t n)
{
    checkKernels(d, n);
    CheckingSink sink;
    const decoder::DecodeResult r = decoder::decodeYenc(reinterpret_cast<const char *>(d), qint64(n), sink);
    if (r.error == decoder::NoError && !r.problems.isEmpty())
        abort(); // a fine result never carries problems
    if (sink.end > 3 * qint64(n))
        abort(); // no part is placed further than the input could fill, however large its claims
    checkRanges(d, n);
    return 0;
}

// A decoder that may give at most factor bytes for each byte of its text.
inline int fuzzBounded(const uint8_t *d, size_t n, decoder::DecodeResult (*decode)(const char *, qint64, decoder::OutputSink &),
                       qint64 factor)
{
    CheckingSink sink;
    decode(reinterpret_cast<const char *>(d), qint64(n), sink);
    if (sink.total > qint64(n) * factor)
        abort();
    return 0;
}

// each uuencoded line gives at most 63 bytes for its 2+ characters; MIME decoding never grows the text
inline int fuzzUu(const uint8_t *d, size_t n) { return fuzzBounded(d, n, decoder::decodeUuencode, 32); }
inline int fuzzMime(const uint8_t *d, size_t n) { return fuzzBounded(d, n, decoder::decodeMime, 1); }

} // namespace fuzz
