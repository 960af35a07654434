#pragma once
#include <QByteArray>
#include <QByteArrayView>
#include <QList>
#include <QPair>
#include <QString>
#include <QStringList>

struct NewsTransportHeader;

// Turning overview headers into message rows.
namespace listing {

// The date rule: drops a zone and a weekday, collapses double spaces, trims.
QString NormaliseDate(const QString &date);
// The display form "mm/dd/yyyy" and the sortable form "yyyy/mm/dd hh:mm:ss" of a cleaned date;
// both are the cleaned text itself when it cannot be read as a date.
QPair<QString, QString> formatDate(const QString &cleaned);
// The nine cells of one row: number, display date, subject, sender, Path, Message-ID, sortable
// date (the Message-ID when there is no date), References, and an empty download mark.
// Header names are matched exactly; a later header of a name wins.
QStringList rowCells(qint64 number, const QList<NewsTransportHeader> &headers);

} // namespace listing

struct OverviewFormat;
class RowArena;

namespace listing {

// The grid column a header fills by its exact name (1 for "Date", which fills 1 and 6), or -1.
int headerColumn(const QString &name);
// The column each field of an overview format fills, in field order.
QList<qint8> overviewColumns(const OverviewFormat &fmt);
// One overview line (dot-unstuffed, without CR LF) straight to a packed grid row, the same cells
// rowCells gives for the article parseOverviewLine makes of it (path: the Path fetched apart,
// or null), written into an arena and followed by a line end (so the arena's bytes are the rows'
// cache lines): row refers to it in place; sortCell and refCell are its columns 6 and 7.
// False when the line has no article number.
struct ArenaRow {
    QByteArray row;
    QByteArrayView sortCell, refCell;
};
bool overviewToArena(const char *line, qsizetype size, const OverviewFormat &fmt, const QList<qint8> &columns,
                     const char *path, qsizetype pathSize, RowArena &arena, ArenaRow &out);
// The date rule and both forms on bytes: fills display and sort (UTF-8).
void formatDateBytes(const char *date, qsizetype size, QByteArray &display, QByteArray &sort);

} // namespace listing
