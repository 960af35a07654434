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

void MessageCacheReader::next(QVector<QByteArray> &rows, qint64 blockBytes)
{
    // empty lines and lines that begin with 0x7F hold no message
    m_lines.next([&rows](const char *line, qsizetype size) {
        if (size > 0 && line[0] != MessageGrid::Sep)
            rows.append(cacheLineToRow(QByteArray(line, size)));
    }, blockBytes);
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
