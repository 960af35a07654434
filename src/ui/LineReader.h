#pragma once
#include <QByteArray>
#include <QFile>

// Reads a text file a block at a time and hands over its lines (CR LF or LF, the line end
// taken off; a last line without an end counts too), so that a long file can be read
// between yields without holding it whole.
class LineReader {
public:
    explicit LineReader(const QString &path) : m_file(path) { m_open = m_file.open(QIODevice::ReadOnly); }
    bool isOpen() const { return m_open; }
    bool atEnd() const { return !m_open || (m_eof && m_pos >= m_buf.size()); }

    // Reads about blockBytes more and calls onLine(data, size) for every whole line in it.
    template <class OnLine>
    void next(OnLine &&onLine, qint64 blockBytes)
    {
        if (!m_open)
            return;
        if (!m_eof) {
            // keep the unfinished line, add the next block
            m_buf.remove(0, m_pos);
            m_pos = 0;
            const QByteArray more = m_file.read(blockBytes);
            if (more.isEmpty())
                m_eof = true;
            m_buf += more;
        }
        const QByteArray &all = m_buf;
        qsizetype start = m_pos;
        while (start < all.size()) {
            qsizetype end = all.indexOf('\n', start);
            if (end < 0) {
                if (!m_eof)
                    break;   // the rest comes with the next block
                end = all.size();
            }
            qsizetype stop = end;
            if (stop > start && all[stop - 1] == '\r')
                --stop;
            onLine(all.constData() + start, stop - start);
            start = end + 1;
        }
        m_pos = qMin(start, all.size());
    }

private:
    QFile m_file;
    QByteArray m_buf;
    qsizetype m_pos = 0;
    bool m_open = false, m_eof = false;
};
