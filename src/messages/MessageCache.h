#pragma once
#include "ui/LineReader.h"

#include <QByteArray>
#include <QString>
#include <QVector>

class MessageGrid;

// The message cache of one group: one line per grid row, each of the eight cells followed by
// 0x7F. Lines that begin with 0x7F (no article number) are not messages.
namespace listing {

// application directory + "/" + tag + "-" + tag + "-" + group + ".tmp"
QString messageCacheFile(const QString &serverTag, const QString &group);
// Rows 1..last of the grid (the empty last row included).
bool writeMessageCache(const QString &path, const MessageGrid &grid);
// The message lines of the file as packed grid rows (cells separated by 0x7F, nine cells).
bool readMessageCache(const QString &path, QVector<QByteArray> &rows);
// Reads the file a block at a time, so that a long file can be read between yields.
class MessageCacheReader {
public:
    explicit MessageCacheReader(const QString &path) : m_lines(path) {}
    bool isOpen() const { return m_lines.isOpen(); }
    bool atEnd() const { return m_lines.atEnd(); }
    // Appends the message lines of the next block (about blockBytes) as packed rows.
    void next(QVector<QByteArray> &rows, qint64 blockBytes = 4 << 20);
private:
    LineReader m_lines;
};
// One cache line of packed cells (8 cells each followed by 0x7F) -> packed row of 9 cells.
QByteArray cacheLineToRow(const QByteArray &line);

} // namespace listing
