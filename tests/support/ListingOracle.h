#pragma once
// The listing's order as plainly as it can be said, for tests to hold the fast ways against:
// newest first by the sortable date (column 6), then by the References (column 7), both
// ignoring case; rows that tie keep the order they came in.
#include "messages/MessageGrid.h"

#include <QByteArray>
#include <QVector>
#include <algorithm>

namespace testlisting {

inline void sortAsListed(QVector<QByteArray> &rows)
{
    std::stable_sort(rows.begin(), rows.end(), [](const QByteArray &a, const QByteArray &b) {
        int c = MessageGrid::cellOf(a, 6).compare(MessageGrid::cellOf(b, 6), Qt::CaseInsensitive);
        if (c == 0)
            c = MessageGrid::cellOf(a, 7).compare(MessageGrid::cellOf(b, 7), Qt::CaseInsensitive);
        return c > 0;
    });
}

} // namespace testlisting
