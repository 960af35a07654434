#pragma once
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
// One cache line of packed cells (8 cells each followed by 0x7F) -> packed row of 9 cells.
QByteArray cacheLineToRow(const QByteArray &line);

} // namespace listing
