#include "download/decoder/Decoders.h"

#include "download/decoder/Crc32.h"
#include "download/decoder/YencKernel.h"

#include <QDateTime>
#include <QFile>
#include <QFileInfo>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <condition_variable>
#include <cstring>
#include <deque>
#include <exception>
#include <map>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

#include <fcntl.h>
#include <stdio.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

namespace decoder {

namespace {

constexpr qint64 kChunk = 4 << 20;      // bytes of plain text copied per step
constexpr qint64 kWindow = 256 << 10;   // bytes of yEnc text searched and decoded per step
constexpr qint64 kMaxNumber = qint64(1) << 50;
constexpr qint64 kSplitFrom = 4 << 20;  // yEnc files from this size are decoded on several threads

// ---- small text helpers over raw bytes -------------------------------------

qint64 lineEnd(const char *d, qint64 pos, qint64 len)
{
    const void *p = memchr(d + pos, '\n', size_t(len - pos));
    return p ? qint64(static_cast<const char *>(p) - d) : len;
}

// The line [pos, end) without its CR.
QByteArray lineAt(const char *d, qint64 pos, qint64 end)
{
    qint64 e = end;
    if (e > pos && d[e - 1] == '\r')
        --e;
    return QByteArray(d + pos, int(std::min<qint64>(e - pos, 1 << 20)));
}

bool startsWith(const char *d, qint64 pos, qint64 len, const char *what)
{
    const qint64 n = qint64(strlen(what));
    return len - pos >= n && memcmp(d + pos, what, size_t(n)) == 0;
}

// Position of the first line starting with the keyword `what` (which begins
// with "=y", as "=ybegin" does) at or after pos, or -1. The keyword must lie
// within [pos, len).
qint64 findLineStarting(const char *d, qint64 pos, qint64 len, const char *what)
{
    if (pos == 0 && startsWith(d, 0, len, what))
        return 0;
    // every candidate is an LF followed by "=y": the SIMD keyword search finds those
    qint64 from = pos > 0 ? pos - 1 : 0;
    while (from < len) {
        const qint64 lf = from + qint64(yenc::findKeywordLine(reinterpret_cast<const uint8_t *>(d + from),
                                                              size_t(len - from)));
        if (lf >= len)
            return -1;
        if (startsWith(d, lf + 1, len, what))
            return lf + 1;
        from = lf + 1;
    }
    return -1;
}

// Value of " key=" in a keyword line: up to the next space, or (for name)
// the rest of the line.
bool keyword(const QByteArray &line, const char *key, QByteArray *value, bool restOfLine = false)
{
    const QByteArray needle = QByteArray(" ") + key + '=';
    const int at = line.indexOf(needle);
    if (at < 0)
        return false;
    const int start = at + int(needle.size());
    int end = restOfLine ? int(line.size()) : line.indexOf(' ', start);
    if (end < 0)
        end = int(line.size());
    *value = line.mid(start, end - start);
    if (restOfLine)
        *value = value->trimmed();
    return true;
}

bool keywordNumber(const QByteArray &line, const char *key, qint64 *number)
{
    QByteArray v;
    if (!keyword(line, key, &v) || v.isEmpty())
        return false;
    qint64 n = 0;
    for (char c : v) {
        if (c < '0' || c > '9')
            break;
        n = n * 10 + (c - '0');
        if (n > kMaxNumber)
            return false;
    }
    *number = n;
    return true;
}

bool keywordCrc(const QByteArray &line, const char *key, uint32_t *crc)
{
    QByteArray v;
    if (!keyword(line, key, &v))
        return false;
    if (v.startsWith("0x") || v.startsWith("0X"))
        v = v.mid(2);
    if (v.isEmpty() || v.size() > 8)
        return false;
    bool ok = false;
    const uint v32 = v.toUInt(&ok, 16);
    if (!ok)
        return false;
    *crc = v32;
    return true;
}

QString latin(const QByteArray &b)
{
    // names travel as bytes; take UTF-8 when they are, else Latin-1
    const QString u = QString::fromUtf8(b);
    return u.contains(QChar::ReplacementCharacter) ? QString::fromLatin1(b) : u;
}

// ---- base64 ----------------------------------------------------------------

struct B64Table {
    int8_t v[256];
    B64Table()
    {
        memset(v, -1, sizeof v);
        const char *a = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
        for (int i = 0; i < 64; ++i)
            v[uint8_t(a[i])] = int8_t(i);
    }
};
const B64Table kB64;

// The line with trailing blanks removed, when it is base64 text ("=" only at its end).
bool isBase64Line(const char *p, qint64 n, qint64 *used)
{
    while (n > 0 && (p[n - 1] == '\r' || p[n - 1] == ' ' || p[n - 1] == '\t'))
        --n;
    if (n == 0)
        return false;
    qint64 pad = 0;
    while (pad < n && pad < 3 && p[n - 1 - pad] == '=')
        ++pad;
    for (qint64 i = 0; i < n - pad; ++i)
        if (kB64.v[uint8_t(p[i])] < 0)
            return false;
    *used = n;
    return n > pad;
}

struct Base64State {
    uint32_t acc = 0;
    int bits = 0;
    bool done = false;
};

// Appends the bytes of one base64 line to out.
void base64Line(const char *p, qint64 n, Base64State &st, QByteArray &out)
{
    for (qint64 i = 0; i < n && !st.done; ++i) {
        const int v = kB64.v[uint8_t(p[i])];
        if (v < 0) {
            if (p[i] == '=')
                st.done = true;
            continue;
        }
        st.acc = (st.acc << 6) | uint32_t(v);
        st.bits += 6;
        if (st.bits >= 8) {
            st.bits -= 8;
            out.append(char((st.acc >> st.bits) & 0xFF));
        }
    }
}

// Sequential writer in large blocks.
class SeqWriter
{
public:
    explicit SeqWriter(OutputSink &s) : m_sink(s) {}
    QByteArray buf;
    bool flush(bool force = false)
    {
        if (buf.isEmpty() || (!force && buf.size() < (1 << 20)))
            return true;
        if (!m_sink.writeAt(m_pos, buf.constData(), buf.size()))
            return false;
        m_pos += buf.size();
        buf.clear();
        return true;
    }
    qint64 total() const { return m_pos + buf.size(); }

private:
    OutputSink &m_sink;
    qint64 m_pos = 0;
};

DecodeResult writeFailed(DecodeResult r, OutputSink &out)
{
    r.error = ErrorWrite;
    r.problems << QStringLiteral("cannot write the output: %1").arg(out.errorString());
    return r;
}

} // namespace

// ---- MemorySink --------------------------------------------------------------

bool OutputSink::submit(qint64 offset, char *buffer, qint64 len, uint32_t *crc)
{
    if (crc && len > 0)
        *crc = crc32::update(*crc, buffer, size_t(len));
    return submit(offset, buffer, len);
}

char *OutputSink::acquire(qint64 size)
{
    // one buffer per thread, so that sinks written from several threads can lend it
    static thread_local std::vector<char> scratch;
    if (qint64(scratch.size()) < size)
        scratch.resize(size_t(size));
    return scratch.data();
}

bool OutputSink::submit(qint64 offset, char *buffer, qint64 len)
{
    return len <= 0 || writeAt(offset, buffer, len);
}

QString MemorySink::errorString() const
{
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_error;
}

bool MemorySink::restart()
{
    std::lock_guard<std::mutex> lock(m_mutex);
    data.clear();
    return true;
}

bool MemorySink::writeAt(qint64 offset, const char *d, qint64 len)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    if (offset < 0 || len < 0 || offset + len > m_limit) {
        m_error = QStringLiteral("output larger than %1 bytes").arg(m_limit);
        return false;
    }
    if (offset + len > data.size())
        data.resize(offset + len, '\0');
    memcpy(data.data() + offset, d, size_t(len));
    return true;
}

QString DecodeResult::reason() const
{
    if (problems.size() <= 6)
        return problems.join(QStringLiteral("; "));
    return QStringList(problems.mid(0, 5)).join(QStringLiteral("; "))
           + QStringLiteral("; and %1 more problems").arg(problems.size() - 5);
}

// ---- yEnc ----------------------------------------------------------------------

namespace {

struct YPart {
    qint64 begin = 0; // 0-based offset
    qint64 size = 0;
    uint32_t crc = 0;
    bool good = false;
    QString problem; // why it is not good
    // The sink may compute the CRC as it writes (on its own thread); it is
    // checked once the sink has drained.
    const uint32_t *crcSlot = nullptr;
    bool crcPending = false;
    uint32_t pcrc = 0;
    QString crcProblem;
};

void settle(YPart &p)
{
    if (p.crcSlot)
        p.crc = *p.crcSlot;
    if (p.crcPending && p.crc != p.pcrc) {
        p.problem = p.crcProblem;
        p.good = false;
    }
    p.crcPending = false;
}

// What the first header says; every later header is read against it.
struct YFile {
    qint64 at = -1; // where the first "=ybegin" line starts; -1: none
    bool multi = false;
    qint64 size = -1;
    QString name;
};

YFile firstYencHeader(const char *d, qint64 len)
{
    YFile f;
    qint64 pos = 0;
    for (;;) {
        const qint64 yb = findLineStarting(d, pos, len, "=ybegin");
        if (yb < 0)
            return f;
        const qint64 e = lineEnd(d, yb, len);
        const QByteArray head = lineAt(d, yb, e);
        pos = e < len ? e + 1 : len;
        if (head.size() > 7 && head[7] != ' ' && head[7] != '\t')
            continue; // some other "=ybeginXXX" word
        qint64 partNo = -1;
        keywordNumber(head, "part", &partNo);
        keywordNumber(head, "size", &f.size);
        f.multi = partNo >= 0;
        QByteArray name;
        if (keyword(head, "name", &name, true))
            f.name = latin(name);
        f.at = yb;
        return f;
    }
}

// The input as the header parsing sees it: straight from memory, or through
// small reads when it is a file (touching the mapped pages costs a page fault
// each time). Pointers stay valid until the next call.
class Peek
{
public:
    Peek(const char *d, qint64 len, InputReader *reader) : d(d), len(len), reader(reader) {}

    // The bytes from pos on: *avail of them (at least min(want, len - pos)
    // unless reading failed).
    const char *at(qint64 pos, qint64 want, qint64 *avail)
    {
        pos = std::clamp<qint64>(pos, 0, len);
        if (!reader) {
            *avail = len - pos;
            return d + pos;
        }
        const qint64 need = std::min(want, len - pos);
        if (pos < m_from || pos + need > m_to) {
            const qint64 n = std::min(len - pos, std::max<qint64>(need, 16 << 10));
            if (qint64(m_buf.size()) < n)
                m_buf.resize(size_t(n));
            if (n > 0 && !reader->readAt(pos, m_buf.data(), n)) {
                m_failed = true;
                m_from = m_to = 0;
                *avail = 0;
                return m_buf.data();
            }
            m_from = pos;
            m_to = pos + n;
        }
        *avail = m_to - pos;
        return m_buf.data() + (pos - m_from);
    }

    bool startsWith(qint64 pos, const char *what)
    {
        const qint64 n = qint64(strlen(what));
        qint64 avail = 0;
        const char *p = at(pos, n, &avail);
        return avail >= n && memcmp(p, what, size_t(n)) == 0;
    }

    // Where the line from pos ends (its LF, or the end of the input).
    qint64 lineEnd(qint64 pos)
    {
        while (pos < len) {
            qint64 avail = 0;
            const char *p = at(pos, 64 << 10, &avail);
            if (avail <= 0)
                return len;
            const void *lf = memchr(p, '\n', size_t(avail));
            if (lf)
                return pos + qint64(static_cast<const char *>(lf) - p);
            pos += avail;
        }
        return len;
    }

    // The line [pos, end) without its CR, at most 1 MiB of it.
    QByteArray line(qint64 pos, qint64 end)
    {
        qint64 e = end, avail = 0;
        if (e > pos) {
            const char *last = at(e - 1, 1, &avail);
            if (avail > 0 && *last == '\r')
                --e;
        }
        const qint64 n = std::min<qint64>(e - pos, 1 << 20);
        if (n <= 0)
            return {};
        const char *p = at(pos, n, &avail);
        return QByteArray(p, int(std::min(n, avail)));
    }

    // As findLineStarting() over [pos, limit).
    qint64 findLineStarting(qint64 pos, qint64 limit, const char *what)
    {
        if (!reader)
            return decoder::findLineStarting(d, pos, limit, what);
        const qint64 n = qint64(strlen(what));
        if (pos == 0 && n <= limit && startsWith(0, what))
            return 0;
        qint64 from = pos > 0 ? pos - 1 : 0;
        while (from < limit) {
            qint64 avail = 0;
            const char *p = at(from, std::min<qint64>(limit - from, 64 << 10), &avail);
            avail = std::min(avail, limit - from);
            if (avail <= 0)
                return -1;
            const qint64 k = qint64(yenc::findKeywordLine(reinterpret_cast<const uint8_t *>(p), size_t(avail)));
            if (k < avail) {
                const qint64 start = from + k + 1;
                if (start + n <= limit && startsWith(start, what))
                    return start;
                from = start;
                continue;
            }
            if (from + avail >= limit)
                return -1;
            from += std::max<qint64>(avail - 2, 1); // "\n=y" may straddle the pieces
        }
        return -1;
    }

    bool failed() const { return m_failed; }

private:
    const char *d;
    qint64 len;
    InputReader *reader;
    std::vector<char> m_buf;
    qint64 m_from = 0, m_to = 0;
    bool m_failed = false;
};

// One run over the headers that start in a range of the input, decoding each
// part's text (which may run on past the range) into the sink as it goes. Every
// "=ybegin" line is one a single pass would visit too (a part's text ends at
// the first keyword line), so passes over consecutive ranges can run at once
// and be joined afterwards in input order.
class YencPass
{
public:
    // What a header did, in input order, for joining ranges.
    struct Seen {
        qint64 partNo;
        bool wanted; // not already present and good
        bool placed; // its range within the file is valid
        YPart part;  // what it leaves in the parts map (when wanted)
    };

    YencPass(const char *d, qint64 len, OutputSink &out, InputReader *reader, const YFile &file,
             bool record)
        : d(d), len(len), out(out), reader(reader), file(file), record(record)
    {
    }

    // Buffers a thread reuses from one pass to the next.
    struct Scratch {
        std::vector<char> window; // text read from the file
    };

    // The headers starting in [pos, stop). False after a read or write failure,
    // which r then describes.
    bool run(qint64 pos, qint64 stop, DecodeResult &r, Scratch &scratch);

    std::map<qint64, YPart> parts; // by part number
    std::vector<Seen> seen;        // only when recording
    qint64 total = -1;
    bool haveFileCrc = false;
    uint32_t fileCrc = 0;
    qint64 bytesWritten = 0;

private:
    const char *d;
    qint64 len;
    OutputSink &out;
    InputReader *reader;
    const YFile &file;
    bool record;
    std::deque<uint32_t> crcSlots; // stable addresses for the sink
};

bool YencPass::run(qint64 pos, qint64 stop, DecodeResult &r, Scratch &scratch)
{
    std::vector<char> &window = scratch.window;
    if (reader)
        window.resize(size_t(kWindow + 2));
    const bool multi = file.multi;
    Peek peek(d, len, reader);
    auto readFailed = [&r] {
        r.error = ErrorRead;
        r.problems << QStringLiteral("cannot read the input");
        return false;
    };
    for (;;) {
        // a header starting before stop has its keyword before stop + 7
        const qint64 yb = peek.findLineStarting(pos, std::min(len, stop + 7), "=ybegin");
        if (peek.failed())
            return readFailed();
        if (yb < 0 || yb >= stop)
            break;
        const qint64 ybEnd = peek.lineEnd(yb);
        const QByteArray head = peek.line(yb, ybEnd);
        pos = ybEnd < len ? ybEnd + 1 : len;
        if (head.size() > 7 && head[7] != ' ' && head[7] != '\t')
            continue; // some other "=ybeginXXX" word

        qint64 partNo = -1, size = -1, n = 0;
        keywordNumber(head, "part", &partNo);
        keywordNumber(head, "size", &size);
        if (keywordNumber(head, "total", &n) && total < 0)
            total = n;
        if (size != file.size)
            continue; // a part of some other file
        if (partNo < 0)
            partNo = multi ? 0 : 1;

        // the range the part covers
        qint64 begin = 1, end = size;
        if (multi) {
            if (peek.startsWith(pos, "=ypart")) {
                const qint64 e = peek.lineEnd(pos);
                const QByteArray pl = peek.line(pos, e);
                pos = e < len ? e + 1 : len;
                if (!keywordNumber(pl, "begin", &begin) || !keywordNumber(pl, "end", &end))
                    begin = end = -1;
            } else {
                begin = end = -1;
            }
        }
        const QString label = multi ? QStringLiteral("part %1").arg(partNo) : QStringLiteral("file");

        auto known = parts.find(partNo);
        if (known != parts.end() && known->second.crcPending) {
            if (!out.drain()) {
                r = writeFailed(r, out);
                return false;
            }
            settle(known->second);
        }
        const bool wanted = known == parts.end() || !known->second.good; // else: posted twice
        // Each decoded byte takes at least one byte of input, so even with parts missing in
        // between, a part starting further into the file than twice the whole input claims what
        // the data here does not support (believing it would make a sparse file of any size a
        // header names). What a placed part writes ends within its own data: the file stays
        // within three times the input.
        const bool beyond = begin - 1 > 2 * len;
        const bool placed = begin >= 1 && end >= begin - 1 && size >= 0 && end <= size && !beyond;
        const qint64 expected = end - begin + 1;

        // The part's text runs to the next keyword line. It is searched and
        // decoded window by window, so each window is read from memory once.
        YPart p;
        p.begin = begin - 1;
        qint64 decoded = 0;
        uint32_t *partCrc = &crcSlots.emplace_back(0);
        yenc::DecodeState st;
        qint64 at = pos;
        if (!peek.startsWith(at, "=y")) {
            while (at < len) {
                const qint64 n = std::min(kWindow, len - at);
                const qint64 look = std::min(n + 2, len - at);
                const char *text = d + at;
                if (reader) {
                    if (!reader->readAt(at, window.data(), look))
                        return readFailed();
                    text = window.data();
                }
                const qint64 k = qint64(yenc::findKeywordLine(reinterpret_cast<const uint8_t *>(text), size_t(look)));
                const bool stop = k < look;
                const qint64 seg = stop ? k + 1 : n;
                if (wanted && placed) {
                    char *buf = out.acquire(seg);
                    const qint64 got = qint64(yenc::decode(reinterpret_cast<const uint8_t *>(text), size_t(seg),
                                                           reinterpret_cast<uint8_t *>(buf), st));
                    // the CRC covers what is written: all of it, unless the part is too long
                    // and therefore bad anyway
                    const qint64 room = std::max<qint64>(0, std::min(got, expected - decoded));
                    if (!out.submit(p.begin + decoded, buf, room, partCrc)) {
                        r = writeFailed(r, out);
                        return false;
                    }
                    bytesWritten += room;
                    decoded += got;
                }
                at += seg;
                if (stop)
                    break;
            }
        }
        const qint64 dataEnd = at;
        // a part without "=yend" still counts when its size is right
        bool havePcrc = false, haveCrc = false;
        uint32_t pcrc = 0, crc = 0;
        pos = dataEnd;
        if (peek.startsWith(dataEnd, "=yend")) {
            const qint64 e = peek.lineEnd(dataEnd);
            const QByteArray tail = peek.line(dataEnd, e);
            pos = e < len ? e + 1 : len;
            havePcrc = keywordCrc(tail, "pcrc32", &pcrc);
            haveCrc = keywordCrc(tail, "crc32", &crc);
        }
        if (haveCrc) {
            if (!multi && !havePcrc) {
                havePcrc = true;
                pcrc = crc;
            }
            if (!haveFileCrc) {
                haveFileCrc = true;
                fileCrc = crc;
            }
        }
        if (peek.failed())
            return readFailed();
        YPart kept; // what this header leaves in the map
        bool keep = false;
        if (wanted && !placed) {
            if (known == parts.end()) {
                kept.problem = beyond && end <= size && begin <= end
                                   ? QStringLiteral("%1 claims bytes %2 to %3, beyond the %4 bytes of data received")
                                         .arg(label).arg(begin).arg(end).arg(len)
                                   : QStringLiteral("%1 has no valid position").arg(label);
                keep = true;
            }
        } else if (wanted) {
            p.size = std::min(decoded, expected);
            p.crcSlot = partCrc;
            if (decoded < expected)
                p.problem = QStringLiteral("%1 truncated (%2 of %3 bytes)").arg(label).arg(decoded).arg(expected);
            else if (decoded > expected)
                p.problem = QStringLiteral("%1 longer than announced (%2 instead of %3 bytes)")
                                .arg(label).arg(decoded).arg(expected);
            p.good = p.problem.isEmpty();
            if (p.good && havePcrc) {
                p.crcPending = true;
                p.pcrc = pcrc;
                p.crcProblem = multi ? QStringLiteral("CRC error in part %1").arg(partNo) : QStringLiteral("CRC error");
            }
            kept = p;
            keep = true;
        }
        if (keep)
            parts[partNo] = kept;
        if (record)
            seen.push_back({partNo, wanted, placed, kept});
    }
    return true;
}

// Joins the passes over consecutive ranges into the first one's parts map, as
// one pass over the whole input would have left it. False when that pass would
// have written differently: a part good in one range and posted again in a
// later one, or ranges writing over the same bytes (whose order then counts).
bool joinPasses(std::vector<std::unique_ptr<YencPass>> &passes)
{
    struct Extent {
        qint64 begin, end;
        size_t range;
    };
    std::vector<Extent> extents;
    for (size_t i = 0; i < passes.size(); ++i)
        for (const YencPass::Seen &s : passes[i]->seen)
            if (s.wanted && s.placed && s.part.size > 0)
                extents.push_back({s.part.begin, s.part.begin + s.part.size, i});
    std::sort(extents.begin(), extents.end(), [](const Extent &a, const Extent &b) { return a.begin < b.begin; });
    // the two furthest ends reached so far by different ranges
    qint64 end1 = -1, end2 = -1;
    size_t range1 = 0;
    for (const Extent &e : extents) {
        if (e.begin < (e.range == range1 ? end2 : end1))
            return false;
        if (e.range == range1) {
            end1 = std::max(end1, e.end);
        } else if (e.end > end1) {
            end2 = end1;
            end1 = e.end;
            range1 = e.range;
        } else {
            end2 = std::max(end2, e.end);
        }
    }

    std::map<qint64, YPart> &parts = passes[0]->parts;
    for (size_t i = 1; i < passes.size(); ++i)
        for (const YencPass::Seen &s : passes[i]->seen) {
            const auto known = parts.find(s.partNo);
            const bool wanted = known == parts.end() || !known->second.good;
            if (wanted != s.wanted)
                return false;
            if (wanted && (s.placed || known == parts.end()))
                parts[s.partNo] = s.part;
        }
    return true;
}

} // namespace

DecodeResult decodeYenc(const char *d, qint64 len, OutputSink &out, InputReader *reader, int workers,
                        qint64 rangeBytes)
{
    DecodeResult r;
    const YFile file = firstYencHeader(d, len);
    if (file.at < 0) {
        r.error = ErrorNoData;
        r.problems << QStringLiteral("no yEnc data found");
        return r;
    }
    r.fileName = file.name;

    // ranges of rangeBytes from the first header on; each pass takes the headers
    // that start in its range
    std::vector<qint64> starts{file.at};
    if (workers > 1 && rangeBytes > 0 && out.concurrent()) {
        rangeBytes = std::max(rangeBytes, (len - file.at) / 4096 + 1); // a bounded number of passes
        while (len - starts.back() > rangeBytes)
            starts.push_back(starts.back() + rangeBytes);
    }

    std::vector<std::unique_ptr<YencPass>> passes;
    bool ok = true;
    if (starts.size() > 1) {
        const size_t n = starts.size();
        std::vector<DecodeResult> results(n, r);
        std::vector<char> done(n, 0);
        for (size_t i = 0; i < n; ++i)
            passes.push_back(std::make_unique<YencPass>(d, len, out, reader, file, true));
        std::atomic<size_t> next{0};
        std::atomic<bool> failed{false};
        std::exception_ptr thrown;
        std::mutex thrownMutex;
        auto work = [&] {
            try {
                YencPass::Scratch scratch;
                for (size_t i; !failed && (i = next++) < n;) {
                    done[i] = passes[i]->run(starts[i], i + 1 < n ? starts[i + 1] : len, results[i], scratch);
                    if (!done[i])
                        failed = true;
                }
            } catch (...) {
                std::lock_guard<std::mutex> lock(thrownMutex);
                thrown = std::current_exception();
                failed = true;
            }
        };
        std::vector<std::thread> helpers;
        for (int w = 1; w < workers && size_t(w) < n; ++w)
            helpers.emplace_back(work);
        work();
        for (std::thread &t : helpers)
            t.join();
        if (thrown)
            std::rethrow_exception(thrown);
        for (size_t i = 0; i < n; ++i)
            if (!done[i] && results[i].error != NoError)
                return results[i];
        if (!out.drain())
            return writeFailed(r, out);
        for (auto &pass : passes) {
            for (auto &kv : pass->parts)
                settle(kv.second);
            for (YencPass::Seen &s : pass->seen)
                settle(s.part);
        }
        ok = joinPasses(passes);
        if (!ok) {
            // written out of order: start again in one pass
            passes.clear();
            if (!out.restart())
                return writeFailed(r, out);
        }
    }
    if (passes.empty()) {
        passes.push_back(std::make_unique<YencPass>(d, len, out, reader, file, false));
        YencPass::Scratch scratch;
        if (!passes[0]->run(file.at, len, r, scratch))
            return r;
        if (!out.drain())
            return writeFailed(r, out);
        for (auto &kv : passes[0]->parts)
            settle(kv.second);
    }

    const std::map<qint64, YPart> &parts = passes[0]->parts;
    qint64 total = -1;
    bool haveFileCrc = false;
    uint32_t fileCrc = 0;
    for (const auto &pass : passes) {
        r.bytesWritten += pass->bytesWritten;
        if (total < 0)
            total = pass->total;
        if (!haveFileCrc && pass->haveFileCrc) {
            haveFileCrc = true;
            fileCrc = pass->fileCrc;
        }
    }
    const bool multi = file.multi;
    const qint64 fileSize = file.size;
    for (const auto &kv : parts)
        if (!kv.second.good)
            r.problems << kv.second.problem;
    if (fileSize < 0) {
        r.problems << QStringLiteral("the yEnc header gives no size");
    } else {
        if (multi && total > 0) {
            qint64 present = 0;
            for (const auto &kv : parts)
                if (kv.first >= 1 && kv.first <= total)
                    ++present;
            const qint64 missing = total - present;
            qint64 listed = 0;
            for (qint64 k = 1; k <= total && listed < missing && listed < 20; ++k)
                if (parts.find(k) == parts.end()) {
                    r.problems << QStringLiteral("part %1 missing").arg(k);
                    ++listed;
                }
            if (missing > listed)
                r.problems << QStringLiteral("%1 more parts missing").arg(missing - listed);
        } else if (parts.empty()) {
            r.problems << QStringLiteral("no part could be decoded");
        }
        // every byte of the file must come from a good part
        std::vector<YPart> good;
        for (const auto &kv : parts)
            if (kv.second.good)
                good.push_back(kv.second);
        std::sort(good.begin(), good.end(), [](const YPart &a, const YPart &b) { return a.begin < b.begin; });
        qint64 covered = 0;
        bool contiguous = true;
        uint32_t whole = 0;
        for (const YPart &p : good) {
            if (p.begin > covered) {
                if (r.problems.isEmpty())
                    r.problems << QStringLiteral("bytes %1 to %2 missing").arg(covered + 1).arg(p.begin);
                contiguous = false;
            }
            if (p.begin != covered)
                contiguous = false;
            else
                whole = crc32::combine(whole, p.crc, uint64_t(p.size));
            covered = std::max(covered, p.begin + p.size);
        }
        if (covered < fileSize && r.problems.isEmpty())
            r.problems << QStringLiteral("bytes %1 to %2 missing").arg(covered + 1).arg(fileSize);
        if (r.problems.isEmpty() && haveFileCrc && multi && contiguous && whole != fileCrc)
            r.problems << QStringLiteral("CRC error in the whole file");
    }
    if (!r.problems.isEmpty())
        r.error = ErrorDamaged;
    return r;
}

// ---- uuencode -------------------------------------------------------------------

namespace {

// A uuencoded line is data only when its length character agrees with its length.
bool uuDataLine(const char *p, qint64 n)
{
    if (n < 1)
        return false;
    const uint8_t c0 = uint8_t(p[0]);
    if (c0 < 0x20 || c0 > 0x60)
        return false;
    const qint64 bytes = (c0 - 0x20) & 0x3F;
    const qint64 chars = (bytes + 2) / 3 * 4;
    const qint64 rest = n - 1;
    // up to three trailing blanks may have been lost on the way; encoders may add a checksum
    if (rest < chars - 3 || rest > chars + 2)
        return false;
    for (qint64 i = 1; i < n; ++i)
        if (uint8_t(p[i]) < 0x20 || uint8_t(p[i]) > 0x60)
            return false;
    return true;
}

// A line that is not data by uuDataLine but has the shape of one: only characters of the
// uuencode alphabet, a whole number of 4-character groups after the length character, and no
// blank (text in capitals has them) unless the line is as long as full data lines are. Its
// length character has been damaged on the way.
bool uuDamagedLine(const char *p, qint64 n)
{
    if (n < 9 || (n - 1) % 4 != 0)
        return false;
    bool blank = false, ruler = true;   // a ruler: "-----", "=====" (text, not data)
    for (qint64 i = 0; i < n; ++i) {
        const uint8_t c = uint8_t(p[i]);
        if (c < 0x20 || c > 0x60)
            return false;
        blank = blank || c == 0x20;
        ruler = ruler && c == uint8_t(p[0]);
    }
    return !ruler && (!blank || n >= 57);
}

void uuLine(const char *p, qint64 n, QByteArray &out)
{
    const qint64 bytes = (uint8_t(p[0]) - 0x20) & 0x3F;
    auto ch = [&](qint64 i) -> uint32_t { return i < n ? uint32_t((uint8_t(p[i]) - 0x20) & 0x3F) : 0u; };
    qint64 left = bytes;
    for (qint64 i = 1; left > 0; i += 4) {
        const uint32_t v = (ch(i) << 18) | (ch(i + 1) << 12) | (ch(i + 2) << 6) | ch(i + 3);
        const char three[3] = {char(v >> 16), char(v >> 8), char(v)};
        out.append(three, int(std::min<qint64>(3, left)));
        left -= 3;
    }
}

// "begin 644 name" (case ignored); "begin-base64 644 name" sets *b64.
bool uuBeginLine(const QByteArray &line, QByteArray *name, bool *b64)
{
    if (line.size() < 6 || qstrnicmp(line.constData(), "begin", 5) != 0)
        return false;
    int i = 5;
    *b64 = false;
    if (line.mid(5, 7).toLower() == "-base64") {
        *b64 = true;
        i = 12;
    }
    const int ws = i;
    while (i < line.size() && (line[i] == ' ' || line[i] == '\t'))
        ++i;
    if (i == ws)
        return false;
    const int digits = i;
    while (i < line.size() && line[i] >= '0' && line[i] <= '7')
        ++i;
    if (i - digits < 3 || i - digits > 4 || i >= line.size() || (line[i] != ' ' && line[i] != '\t'))
        return false;
    *name = line.mid(i).trimmed();
    return true;
}

qint64 findUuBegin(const char *d, qint64 len, QByteArray *name, bool *b64, qint64 *afterLine)
{
    qint64 pos = 0;
    while (pos < len) {
        const qint64 e = lineEnd(d, pos, len);
        if (e - pos >= 6 && (d[pos] == 'b' || d[pos] == 'B')) {
            if (uuBeginLine(lineAt(d, pos, e), name, b64)) {
                *afterLine = e < len ? e + 1 : len;
                return pos;
            }
        }
        pos = e + 1;
    }
    return -1;
}

} // namespace

DecodeResult decodeUuencode(const char *d, qint64 len, OutputSink &out)
{
    DecodeResult r;
    QByteArray name;
    bool b64 = false;
    qint64 pos = 0;
    if (findUuBegin(d, len, &name, &b64, &pos) < 0) {
        r.error = ErrorNoData;
        r.problems << QStringLiteral("no uuencoded data found");
        return r;
    }
    r.fileName = latin(name);
    SeqWriter w(out);
    Base64State bst;
    bool ended = false;
    qint64 damagedLines = 0, firstDamaged = 0;
    qint64 lineNo = 1;   // counted from the line after "begin"
    while (pos < len) {
        const qint64 e = lineEnd(d, pos, len);
        qint64 n = e - pos;
        if (n > 0 && d[pos + n - 1] == '\r')
            --n;
        const char *p = d + pos;
        pos = e + 1;
        qint64 t = n;
        while (t > 0 && (p[t - 1] == ' ' || p[t - 1] == '\t'))
            --t;
        if (b64) {
            if (t == 4 && memcmp(p, "====", 4) == 0) {
                ended = true;
                break;
            }
            qint64 used = 0;
            if (!bst.done && isBase64Line(p, n, &used))
                base64Line(p, used, bst, w.buf);
        } else {
            if (t == 3 && qstrnicmp(p, "end", 3) == 0) {
                ended = true;
                break;
            }
            if (uuDataLine(p, n)) {
                uuLine(p, n, w.buf);
            } else if (uuDamagedLine(p, n)) {
                if (damagedLines++ == 0)
                    firstDamaged = lineNo;
            }
        }
        ++lineNo;
        if (!w.flush())
            return writeFailed(r, out);
    }
    if (!w.flush(true))
        return writeFailed(r, out);
    r.bytesWritten = w.total();
    if (damagedLines > 0) {
        r.error = ErrorDamaged;
        r.problems << QStringLiteral("%1 data line(s) whose length character disagrees with the line (the first on line %2 after \"begin\")")
                          .arg(damagedLines).arg(firstDamaged);
    }
    if (!ended) {
        r.error = ErrorDamaged;
        r.problems << QStringLiteral("the data ends without its \"end\" line (last part truncated or missing)");
    }
    return r;
}

// ---- MIME attachment text ----------------------------------------------------------

namespace {

bool isBlank(const char *p, qint64 n)
{
    for (qint64 i = 0; i < n; ++i)
        if (p[i] != ' ' && p[i] != '\t' && p[i] != '\r')
            return false;
    return true;
}

bool isBlank(const QByteArray &line)
{
    return isBlank(line.constData(), line.size());
}

// "Name: value" as in a MIME part header
bool isHeaderLine(const QByteArray &line)
{
    const int colon = line.indexOf(':');
    if (colon <= 0 || (colon + 1 < line.size() && line[colon + 1] != ' ' && line[colon + 1] != '\t'))
        return false;
    for (int i = 0; i < colon; ++i)
        if (!isalnum(uchar(line[i])) && line[i] != '-')
            return false;
    return true;
}

} // namespace

DecodeResult decodeMime(const char *d, qint64 len, OutputSink &out)
{
    DecodeResult r;
    r.fileName = announcedFileName(FormatMime, d, len);
    // skip blank lines and MIME header lines in front of the data
    qint64 pos = 0;
    bool inHeader = false;
    while (pos < len) {
        const qint64 e = lineEnd(d, pos, len);
        const QByteArray line = lineAt(d, pos, e);
        bool skip = isBlank(line);
        if (!skip && inHeader && (line[0] == ' ' || line[0] == '\t'))
            skip = true; // folded header line
        if (!skip)
            skip = inHeader = isHeaderLine(line);
        if (!skip)
            break;
        pos = e + 1;
    }
    if (pos >= len) {
        r.error = ErrorNoData;
        r.problems << QStringLiteral("no attachment data found");
        return r;
    }

    SeqWriter w(out);
    const qint64 firstEnd = lineEnd(d, pos, len);
    qint64 used = 0;
    const bool b64 = isBase64Line(d + pos, firstEnd - pos, &used) && used % 4 == 0;
    if (b64) {
        Base64State st;
        while (pos < len && !st.done) {
            const qint64 e = lineEnd(d, pos, len);
            const char *p = d + pos;
            const qint64 n = e - pos;
            pos = e + 1;
            if (isBlank(p, n))
                continue;
            if (!isBase64Line(p, n, &used))
                break;    // the next boundary or disposition line
            base64Line(p, used, st, w.buf);
            if (!w.flush())
                return writeFailed(r, out);
        }
    } else {
        // not base64: the text as it stands, without the blank line the download appended
        qint64 n = len;
        if (n >= 4 && memcmp(d + n - 4, "\r\n\r\n", 4) == 0)
            n -= 4;
        pos = 0;
        while (pos < n) {
            const qint64 step = std::min<qint64>(kChunk, n - pos);
            if (!out.writeAt(pos, d + pos, step))
                return writeFailed(r, out);
            pos += step;
        }
        r.bytesWritten = n;
        return r;
    }
    if (!w.flush(true))
        return writeFailed(r, out);
    r.bytesWritten = w.total();
    if (r.bytesWritten == 0) {
        r.error = ErrorNoData;
        r.problems << QStringLiteral("no attachment data found");
    }
    return r;
}

DecodeResult decodeBuffer(int format, const char *data, qint64 len, OutputSink &out, InputReader *reader)
{
    switch (format) {
    case FormatYenc: return decodeYenc(data, len, out, reader);
    case FormatUuencode: return decodeUuencode(data, len, out);
    case FormatMime: return decodeMime(data, len, out);
    default: break;
    }
    DecodeResult r;
    r.error = ErrorFormat;
    r.problems << QStringLiteral("unknown format code %1").arg(format);
    return r;
}

int detectFormat(const char *data, qint64 len)
{
    qint64 yb = 0;
    while ((yb = findLineStarting(data, yb, len, "=ybegin")) >= 0) {
        if (yb + 7 >= len || data[yb + 7] == ' ' || data[yb + 7] == '\t')
            return FormatYenc;
        ++yb;
    }
    QByteArray name;
    bool b64 = false;
    qint64 after = 0;
    if (findUuBegin(data, len, &name, &b64, &after) >= 0)
        return FormatUuencode;
    return FormatMime;
}

QString announcedFileName(int format, const char *d, qint64 len)
{
    if (format == FormatYenc) {
        const qint64 yb = findLineStarting(d, 0, len, "=ybegin");
        if (yb < 0)
            return {};
        QByteArray name;
        if (keyword(lineAt(d, yb, lineEnd(d, yb, len)), "name", &name, true))
            return latin(name);
        return {};
    }
    if (format == FormatUuencode) {
        QByteArray name;
        bool b64 = false;
        qint64 after = 0;
        if (findUuBegin(d, len, &name, &b64, &after) >= 0)
            return latin(name);
        return {};
    }
    // MIME: a filename= parameter in front of the data
    const QByteArray head(d, int(std::min<qint64>(len, 64 * 1024)));
    const int at = head.indexOf("filename=");
    if (at < 0)
        return {};
    int s = at + 9, e;
    if (s < head.size() && head[s] == '"') {
        ++s;
        e = head.indexOf('"', s);
    } else {
        e = s;
        while (e < head.size() && head[e] != ';' && head[e] != '\r' && head[e] != '\n')
            ++e;
    }
    if (e < 0)
        e = head.size();
    return latin(head.mid(s, e - s).trimmed());
}

QString safeFileName(const QString &raw)
{
    QString n = raw;
    const int cut = std::max(n.lastIndexOf(QLatin1Char('/')), n.lastIndexOf(QLatin1Char('\\')));
    if (cut >= 0)
        n = n.mid(cut + 1);
    QString clean;
    for (QChar c : n)
        if (c.unicode() >= 0x20 && c.unicode() != 0x7F)
            clean += c == QLatin1Char(':') ? QLatin1Char('_') : c;
    clean = clean.trimmed();
    if (clean == QLatin1String(".") || clean == QLatin1String(".."))
        return {};
    return clean;
}

// ---- files ---------------------------------------------------------------------

namespace {

bool pwriteAll(int fd, const char *p, qint64 left, qint64 off, QString *error)
{
    while (left > 0) {
        const ssize_t n = ::pwrite(fd, p, size_t(left), off_t(off));
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0) {
            *error = QString::fromLocal8Bit(strerror(n < 0 ? errno : ENOSPC));
            return false;
        }
        p += n;
        off += n;
        left -= n;
    }
    return true;
}

// A sink whose blocks are written to a file at their offsets, from a pool of buffers that
// go round: the decoders decode into a buffer (acquire), hand it over (submit), and the
// buffer comes back once its block is on disk.
class PooledFileSink : public OutputSink
{
public:
    PooledFileSink(int fd, qint64 bufferSize, int poolSize) : m_fd(fd), m_bufferSize(bufferSize), m_pool(poolSize) {}

    bool writeAt(qint64 offset, const char *data, qint64 len) override
    {
        while (len > 0) {
            const qint64 n = std::min<qint64>(len, m_bufferSize);
            char *b = acquire(n);
            memcpy(b, data, size_t(n));
            if (!submit(offset, b, n))
                return false;
            offset += n;
            data += n;
            len -= n;
        }
        return true;
    }

    char *acquire(qint64 size) override
    {
        if (size > m_bufferSize)
            return OutputSink::acquire(size); // not expected: the decoders ask for less
        std::unique_lock<std::mutex> lock(m_mutex);
        if (m_free.empty() && m_made < m_pool) {
            ++m_made;
            m_owned.emplace_back(new char[size_t(m_bufferSize)]);
            return m_owned.back().get();
        }
        m_cond.wait(lock, [this] { return !m_free.empty(); });
        char *b = m_free.back();
        m_free.pop_back();
        return b;
    }

    bool submit(qint64 offset, char *buffer, qint64 len) override
    {
        return submit(offset, buffer, len, nullptr);
    }
    using OutputSink::submit;

protected:
    struct Job {
        qint64 offset;
        char *buffer;
        qint64 len;
        uint32_t *crc; // updated by the writer, in queue order (when it does the CRC)
    };

    bool ownsBuffer(const char *b) const
    {
        for (const auto &o : m_owned)
            if (o.get() == b)
                return true;
        return false;
    }

    // Writes one queued block with the lock released; the buffer goes back to the pool.
    void writeJob(std::unique_lock<std::mutex> &lock, const Job &job, bool withCrc)
    {
        const bool skip = m_failed;
        lock.unlock();
        QString error;
        if (withCrc && job.crc && job.len > 0)
            *job.crc = crc32::update(*job.crc, job.buffer, size_t(job.len));
        if (!skip)
            pwriteAll(m_fd, job.buffer, job.len, job.offset, &error);
        lock.lock();
        if (!error.isEmpty() && !m_failed) {
            m_failed = true;
            m_error = error;
        }
        m_free.push_back(job.buffer);
        m_cond.notify_all();
    }

    const int m_fd;
    const qint64 m_bufferSize;
    const int m_pool;
    mutable std::mutex m_mutex;
    std::condition_variable m_cond;
    std::deque<Job> m_queue;
    std::vector<char *> m_free;
    std::vector<std::unique_ptr<char[]>> m_owned;
    int m_made = 0;
    bool m_failed = false;
    QString m_error;
};

// Written by the decoding threads themselves. File writes take the file's lock,
// so only one can make progress at a time: a thread that submits a block while
// no other is writing writes it, and whatever the others queue meanwhile; the
// others go on decoding into further buffers of the pool. Blocks are written
// in the order they were submitted.
class SharedFileSink : public PooledFileSink
{
public:
    SharedFileSink(int fd, int threads) : PooledFileSink(fd, kWindow + 64, 4 * threads) {}

    bool submit(qint64 offset, char *buffer, qint64 len, uint32_t *crc) override
    {
        if (crc && len > 0)
            *crc = crc32::update(*crc, buffer, size_t(len)); // while the bytes are still in this cache
        std::unique_lock<std::mutex> lock(m_mutex);
        if (!ownsBuffer(buffer)) {
            // an oversized block in a plain buffer: written here, after everything before it
            m_cond.wait(lock, [this] { return m_queue.empty() && !m_writing; });
            if (!m_failed && !pwriteAll(m_fd, buffer, len, offset, &m_error))
                m_failed = true;
            return !m_failed;
        }
        if (m_failed) {
            m_free.push_back(buffer);
            m_cond.notify_all();
            return false;
        }
        m_queue.push_back({offset, buffer, len, nullptr});
        if (m_writing)
            return true;
        m_writing = true;
        while (!m_queue.empty()) {
            const Job job = m_queue.front();
            m_queue.pop_front();
            writeJob(lock, job, false);
        }
        m_writing = false;
        m_cond.notify_all();
        return !m_failed;
    }

    bool drain() override
    {
        std::unique_lock<std::mutex> lock(m_mutex);
        m_cond.wait(lock, [this] { return m_queue.empty() && !m_writing; });
        return !m_failed;
    }

    bool concurrent() const override { return true; }

    bool restart() override { return drain() && ::ftruncate(m_fd, 0) == 0; }

    QString errorString() const override
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        return m_error;
    }

private:
    bool m_writing = false;
};

// Writes to the output file on a thread of its own, so that decoding the next
// window overlaps writing the last one. Buffers go round a small pool.
class FileSink : public PooledFileSink
{
public:
    explicit FileSink(int fd) : PooledFileSink(fd, 1 << 20, 8), m_writer([this] { run(); }) {}
    ~FileSink() override { finish(); }

    bool submit(qint64 offset, char *buffer, qint64 len, uint32_t *crc) override
    {
        std::unique_lock<std::mutex> lock(m_mutex);
        if (!ownsBuffer(buffer)) {
            if (crc && len > 0)
                *crc = crc32::update(*crc, buffer, size_t(len));
            // an oversized request got the plain scratch buffer: write it here, in order
            m_cond.wait(lock, [this] { return m_queue.empty() && m_free.size() == size_t(m_made); });
            if (!m_failed && !pwriteAll(m_fd, buffer, len, offset, &m_error))
                m_failed = true;
            return !m_failed;
        }
        if (m_failed) {
            m_free.push_back(buffer);
            return false;
        }
        m_queue.push_back({offset, buffer, len, crc});
        m_cond.notify_all();
        return true;
    }

    bool drain() override
    {
        std::unique_lock<std::mutex> lock(m_mutex);
        m_cond.wait(lock, [this] { return m_queue.empty() && m_free.size() == size_t(m_made); });
        return !m_failed;
    }

    bool finish() override
    {
        {
            std::lock_guard<std::mutex> lock(m_mutex);
            if (m_done)
                return !m_failed;
            m_done = true;
            m_cond.notify_all();
        }
        m_writer.join();
        return !m_failed;
    }

    QString errorString() const override { return m_error; }

private:
    void run()
    {
        std::unique_lock<std::mutex> lock(m_mutex);
        for (;;) {
            m_cond.wait(lock, [this] { return !m_queue.empty() || m_done; });
            if (m_queue.empty())
                return;
            const Job job = m_queue.front();
            m_queue.pop_front();
            writeJob(lock, job, true);
        }
    }

    bool m_done = false;
    std::thread m_writer; // last: starts once the rest is ready
};

// The whole input in memory (mapped when possible), plus window reads
// through the file for the bulk of the data.
class InputMap : public InputReader
{
public:
    bool open(const QString &path, QString *error)
    {
        m_file.setFileName(path);
        if (!m_file.open(QIODevice::ReadOnly)) {
            *error = m_file.errorString();
            return false;
        }
        m_size = m_file.size();
        if (m_size == 0)
            return true;
        void *m = ::mmap(nullptr, size_t(m_size), PROT_READ, MAP_PRIVATE, m_file.handle(), 0);
        if (m != MAP_FAILED) {
            m_map = m;
            return true;
        }
        m_copy = m_file.readAll();
        if (m_copy.size() != m_size) {
            *error = m_file.errorString();
            return false;
        }
        return true;
    }
    ~InputMap()
    {
        if (m_map)
            ::munmap(m_map, size_t(m_size));
    }
    const char *data() const
    {
        return m_map ? static_cast<const char *>(m_map) : m_size ? m_copy.constData() : "";
    }
    qint64 size() const { return m_size; }

    bool readAt(qint64 offset, char *buf, qint64 len) override
    {
        if (!m_map) {
            memcpy(buf, data() + offset, size_t(len));
            return true;
        }
        while (len > 0) {
            const ssize_t n = ::pread(m_file.handle(), buf, size_t(len), off_t(offset));
            if (n < 0 && errno == EINTR)
                continue;
            if (n <= 0)
                return false;
            buf += n;
            offset += n;
            len -= n;
        }
        return true;
    }

private:
    QFile m_file;
    void *m_map = nullptr;
    QByteArray m_copy;
    qint64 m_size = 0;
};

} // namespace

QString workingName(const QString &outputPath)
{
    static std::atomic<quint32> counter{0};
    const quint64 salt = (quint64(::getpid()) << 32) ^ quint64(QDateTime::currentMSecsSinceEpoch()) ^
                         (quint64(++counter) * 0x9E3779B97F4A7C15ull);
    return outputPath + QLatin1Char('.') + QString::number(salt % 0xFFFFFFFFFull, 36) +
           QStringLiteral(".decoding.tmp");
}

FileDecodeResult decodeFile(const QString &inputPath, const QString &outputPath, int format,
                            bool overwrite)
{
    FileDecodeResult res;
    auto fail = [&](int code, const QString &text) {
        res.error = code;
        res.errorText = text;
        return res;
    };
    if (format != FormatMime && format != FormatUuencode && format != FormatYenc)
        return fail(ErrorFormat, QStringLiteral("unknown format code %1").arg(format));
    if (outputPath.isEmpty())
        return fail(ErrorWrite, QStringLiteral("no output file name"));
    if (!overwrite) {
        for (const QString &taken : {outputPath, outputPath + QStringLiteral(".damaged")})
            if (QFileInfo::exists(taken) || QFileInfo(taken).isSymLink())
                return fail(ErrorExists, QStringLiteral("%1 already exists and is not overwritten").arg(taken));
    }

    InputMap in;
    QString why;
    if (!in.open(inputPath, &why))
        return fail(ErrorRead, QStringLiteral("cannot read %1: %2").arg(inputPath, why));

    // A working file of our own: created here, under a name nobody else has, never a file that
    // was there before.
    QString partial;
    QFile outFile;
    {
        int fd = -1;
        for (int tries = 0; fd < 0 && tries < 100; ++tries) {
            partial = workingName(outputPath);
            fd = ::open(QFile::encodeName(partial).constData(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
            if (fd < 0 && errno != EEXIST)
                break;
        }
        if (fd < 0)
            return fail(ErrorWrite, QStringLiteral("cannot write %1: %2").arg(partial, QString::fromLocal8Bit(strerror(errno))));
        if (!outFile.open(fd, QIODevice::ReadWrite | QIODevice::Unbuffered, QFileDevice::AutoCloseHandle)) {
            ::close(fd);
            QFile::remove(partial);
            return fail(ErrorWrite, QStringLiteral("cannot write %1: %2").arg(partial, outFile.errorString()));
        }
    }
    DecodeResult r;
    bool written = false;
    QString writeError;
    const int cores = int(std::thread::hardware_concurrency());
    if (format == FormatYenc && in.size() >= kSplitFrom && cores > 1) {
        // big yEnc sets: ranges decoded on several threads, which also do the writing
        const int workers = std::min(cores, 4);
        SharedFileSink sink(outFile.handle(), workers);
        r = decodeYenc(in.data(), in.size(), sink, &in, workers,
                       std::clamp<qint64>(in.size() / 64, 1 << 20, 16 << 20));
        written = sink.finish();
        writeError = sink.errorString();
    } else {
        FileSink sink(outFile.handle());
        r = decodeBuffer(format, in.data(), in.size(), sink, &in);
        written = sink.finish();
        writeError = sink.errorString();
    }
    res.fileName = r.fileName;
    outFile.close();
    if (!written || r.error == ErrorWrite) {
        QFile::remove(partial);
        return fail(ErrorWrite, QStringLiteral("cannot write %1: %2").arg(outputPath, writeError));
    }
    if (r.error != NoError && r.error != ErrorDamaged) {
        QFile::remove(partial);
        return fail(r.error, r.reason());
    }
    const QString target = r.error == ErrorDamaged ? outputPath + QStringLiteral(".damaged") : outputPath;
    const QByteArray from = QFile::encodeName(partial), to = QFile::encodeName(target);
    if (overwrite) {
        if (::rename(from.constData(), to.constData()) != 0) {
            QFile::remove(partial);
            return fail(ErrorWrite, QStringLiteral("cannot write %1").arg(target));
        }
    } else if (::renameat2(AT_FDCWD, from.constData(), AT_FDCWD, to.constData(), RENAME_NOREPLACE) != 0) {
        // also taken when the file turned up while decoding ran: it stays as it is
        const int e = errno;
        QFile::remove(partial);
        if (e == EEXIST)
            return fail(ErrorExists, QStringLiteral("%1 already exists and is not overwritten").arg(target));
        return fail(ErrorWrite, QStringLiteral("cannot write %1: %2").arg(target, QString::fromLocal8Bit(strerror(e))));
    }
    res.outputPath = target;
    if (r.error == ErrorDamaged) {
        res.error = ErrorDamaged;
        res.errorText = r.reason() + QStringLiteral(" (kept as %1)").arg(QFileInfo(target).fileName());
    }
    return res;
}

} // namespace decoder
