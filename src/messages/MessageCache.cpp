#include "messages/MessageCache.h"

#include "app/Paths.h"
#include "messages/MessageGrid.h"
#include "ui/BlockFile.h"

#include <QFile>

namespace listing {

QString messageCacheFile(const QString &serverTag, const QString &group)
{
    return nd::appFile(serverTag + QLatin1Char('-') + serverTag + QLatin1Char('-') + group.trimmed() + QStringLiteral(".tmp"));
}

bool writeMessageCache(const QString &path, const MessageGrid &grid)
{
    BlockFile f(path, 4 << 20);
    if (!f.isOpen())
        return false;
    const int rows = grid.Rows();
    for (int r = 1; r < rows; ++r) {
        const QByteArray packed = grid.packedRow(r);
        // the first eight cells, each followed by 0x7F
        int cells = 0;
        qsizetype start = 0;
        while (cells < 8 && start < packed.size()) {
            const qsizetype sep = packed.indexOf(MessageGrid::Sep, start);
            const qsizetype end = sep < 0 ? packed.size() : sep;
            f.append(packed.constData() + start, end - start);
            if (sep < 0)
                break;
            f.append(MessageGrid::Sep);
            ++cells;
            start = sep + 1;
        }
        for (; cells < 8; ++cells)
            f.append(MessageGrid::Sep);
        f.endLine();
    }
    return f.commit();
}

QByteArray cacheLineToRow(const QByteArray &line)
{
    QByteArray row;
    row.reserve(line.size() + 1);
    int cells = 0;
    qsizetype start = 0;
    while (cells < 8 && start <= line.size()) {
        qsizetype end = line.indexOf(MessageGrid::Sep, start);
        if (end < 0)
            end = line.size();
        if (cells)
            row += MessageGrid::Sep;
        row.append(line.constData() + start, end - start);
        ++cells;
        start = end + 1;
        if (end == line.size())
            break;
    }
    for (; cells < 9; ++cells)
        row += MessageGrid::Sep;
    return row;
}

MessageCacheReader::MessageCacheReader(const QString &path)
    : m_file(path)
{
    m_open = m_file.open(QIODevice::ReadOnly);
}

void MessageCacheReader::next(QVector<QByteArray> &rows, qint64 blockBytes)
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
        if (stop > start && all[start] != MessageGrid::Sep)
            rows.append(cacheLineToRow(all.mid(start, stop - start)));
        start = end + 1;
    }
    m_pos = qMin(start, all.size());
}

bool readMessageCache(const QString &path, QVector<QByteArray> &rows)
{
    MessageCacheReader r(path);
    if (!r.isOpen())
        return false;
    while (!r.atEnd())
        r.next(rows);
    return true;
}

} // namespace listing
