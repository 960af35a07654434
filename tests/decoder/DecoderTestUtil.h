#pragma once
// Small encoders and helpers shared by the decoder, fuzz and download tests. The yEnc encoder here
// escapes exactly what it is told to, so tests can put escapes where they like.

#include <QByteArray>
#include <QDir>
#include <QFile>
#include <QRandomGenerator>
#include <QString>

#include "download/decoder/Crc32.h"
#include "download/decoder/Decoders.h"
#include "support/TextFile.h"

namespace testutil {

// Input "read from a file" that is really memory, for the decoders' file paths.
class MemoryReader : public decoder::InputReader
{
public:
    explicit MemoryReader(const QByteArray &b) : m_b(b) {}
    bool readAt(qint64 offset, char *buf, qint64 len) override
    {
        if (offset < 0 || len < 0 || offset + len > m_b.size())
            return false;
        memcpy(buf, m_b.constData() + offset, size_t(len));
        return true;
    }

private:
    QByteArray m_b;
};

inline QByteArray hex8(uint32_t v)
{
    return QByteArray::number(v, 16).rightJustified(8, '0');
}

inline uint32_t crcOf(const QByteArray &b)
{
    return crc32::update(0, b.constData(), size_t(b.size()));
}

// Raw yEnc lines (CR LF ends) of data. Critical bytes are always escaped; with
// escapeEdges, TAB and space at line ends and "." at line starts are escaped too.
inline QByteArray yencLines(const QByteArray &data, int lineLen = 128, bool escapeEdges = true)
{
    QByteArray out;
    int col = 0;
    for (int i = 0; i < data.size(); ++i) {
        const uchar c = uchar(uchar(data[i]) + 42);
        const bool last = i + 1 == data.size();
        bool esc = c == 0 || c == '\n' || c == '\r' || c == '=';
        if (escapeEdges && col == 0 && (c == '.' || c == '\t' || c == ' '))
            esc = true;
        if (escapeEdges && (col >= lineLen - 1 || last) && (c == '\t' || c == ' '))
            esc = true;
        if (esc) {
            out += '=';
            out += char(c + 64);
            col += 2;
        } else {
            out += char(c);
            ++col;
        }
        if (col >= lineLen && !last) {
            out += "\r\n";
            col = 0;
        }
    }
    out += "\r\n";
    return out;
}

inline QByteArray yencSingle(const QByteArray &data, const QByteArray &name, int lineLen = 128)
{
    return "=ybegin line=" + QByteArray::number(lineLen) + " size=" + QByteArray::number(data.size())
           + " name=" + name + "\r\n" + yencLines(data, lineLen) + "=yend size="
           + QByteArray::number(data.size()) + " crc32=" + hex8(crcOf(data)) + "\r\n";
}

// Part k (1-based) of total, covering [begin, end) of data.
inline QByteArray yencPart(const QByteArray &data, const QByteArray &name, int k, int total,
                           qint64 begin, qint64 end, int lineLen = 128)
{
    const QByteArray piece = data.mid(begin, end - begin);
    return "=ybegin part=" + QByteArray::number(k) + " total=" + QByteArray::number(total)
           + " line=" + QByteArray::number(lineLen) + " size=" + QByteArray::number(data.size())
           + " name=" + name + "\r\n=ypart begin=" + QByteArray::number(begin + 1)
           + " end=" + QByteArray::number(end) + "\r\n" + yencLines(piece, lineLen)
           + "=yend size=" + QByteArray::number(piece.size()) + " part=" + QByteArray::number(k)
           + " pcrc32=" + hex8(crcOf(piece)) + " crc32=" + hex8(crcOf(data)) + "\r\n";
}

// uuencoded text; zero encoded as "`" or as a space.
inline QByteArray uuencode(const QByteArray &data, const QByteArray &name, bool graveZero = true)
{
    auto enc = [&](uint v) -> char {
        v &= 0x3F;
        return v == 0 ? (graveZero ? '`' : ' ') : char(v + 0x20);
    };
    QByteArray out = "begin 644 " + name + "\r\n";
    for (int i = 0; i < data.size(); i += 45) {
        const int n = std::min(45, int(data.size()) - i);
        out += enc(uint(n));
        for (int j = 0; j < n; j += 3) {
            const uint b0 = uchar(data[i + j]);
            const uint b1 = j + 1 < n ? uchar(data[i + j + 1]) : 0;
            const uint b2 = j + 2 < n ? uchar(data[i + j + 2]) : 0;
            out += enc(b0 >> 2);
            out += enc(((b0 << 4) | (b1 >> 4)));
            out += enc(((b1 << 2) | (b2 >> 6)));
            out += enc(b2);
        }
        out += "\r\n";
    }
    out += enc(0);
    out += "\r\nend\r\n";
    return out;
}

// Every byte value, then random bytes up to n.
inline QByteArray randomBytes(qint64 n, quint32 seed)
{
    QByteArray b(n, Qt::Uninitialized);
    QRandomGenerator rng(seed);
    for (qint64 i = 0; i < n; ++i)
        b[i] = i < 256 ? char(i) : char(rng.generate() & 0xFF);
    return b;
}

using testfile::readFile;
using testfile::writeFile;

inline QByteArray lf(QByteArray text)
{
    return text.replace("\r\n", "\n");
}

} // namespace testutil
