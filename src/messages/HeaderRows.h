#pragma once
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
