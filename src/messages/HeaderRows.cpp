#include "messages/HeaderRows.h"

#include "messages/MessageGrid.h"
#include "messages/OverviewRows.h"
#include "messages/RowArena.h"
#include "news/transport/NewsMessage.h"

#include <cstring>

namespace listing {

static QString before(const QString &s, const QString &mark)
{
    const qsizetype p = s.indexOf(mark);
    return p < 0 ? s : s.left(p);
}

QString NormaliseDate(const QString &date)
{
    QString d = before(date, QStringLiteral("-"));
    for (const char *zone : {"GMT", "EST", "EDT", "PST"})
        d = before(d, QString::fromLatin1(zone));
    const qsizetype comma = d.indexOf(QLatin1Char(','));
    if (comma >= 0)
        d = d.mid(comma + 1);
    d = before(d, QStringLiteral("+"));
    // one left-to-right pass: each run of two spaces becomes one
    QString out;
    out.reserve(d.size());
    for (qsizetype i = 0; i < d.size(); ++i) {
        out += d[i];
        if (d[i] == QLatin1Char(' ') && i + 1 < d.size() && d[i + 1] == QLatin1Char(' '))
            ++i;
    }
    return out.trimmed();
}

static int monthOf(const QString &name)
{
    static const char *months[] = {"jan", "feb", "mar", "apr", "may", "jun", "jul", "aug", "sep", "oct", "nov", "dec"};
    const QString n = name.left(3).toLower();
    for (int i = 0; i < 12; ++i)
        if (n == QLatin1String(months[i]))
            return i + 1;
    return 0;
}

QPair<QString, QString> formatDate(const QString &cleaned)
{
    const QStringList t = cleaned.split(QLatin1Char(' '), Qt::SkipEmptyParts);
    bool ok = t.size() >= 3;
    int day = 0, month = 0, year = 0, h = 0, mi = 0, s = 0;
    if (ok) {
        bool d1 = false, y1 = false;
        day = t[0].toInt(&d1);
        month = monthOf(t[1]);
        year = t[2].toInt(&y1);
        if (!d1 || !y1 || month == 0 || day < 1 || day > 31)
            ok = false;
        if (ok && t[2].size() <= 2)
            year += year < 70 ? 2000 : 1900;
        if (ok && t.size() >= 4) {
            const QStringList hms = t[3].split(QLatin1Char(':'));
            bool a = false, b = true, c = true;
            h = hms.value(0).toInt(&a);
            if (hms.size() > 1)
                mi = hms[1].toInt(&b);
            if (hms.size() > 2)
                s = hms[2].toInt(&c);
            if (!a || !b || !c || hms.size() < 2 || h > 23 || mi > 59 || s > 60)
                ok = false;
        }
    }
    if (!ok)
        return {cleaned, cleaned};
    const QString display = QStringLiteral("%1/%2/%3").arg(month, 2, 10, QLatin1Char('0')).arg(day, 2, 10, QLatin1Char('0')).arg(year, 4, 10, QLatin1Char('0'));
    const QString sort = QStringLiteral("%1/%2/%3 %4:%5:%6").arg(year, 4, 10, QLatin1Char('0')).arg(month, 2, 10, QLatin1Char('0'))
        .arg(day, 2, 10, QLatin1Char('0')).arg(h, 2, 10, QLatin1Char('0')).arg(mi, 2, 10, QLatin1Char('0')).arg(s, 2, 10, QLatin1Char('0'));
    return {display, sort};
}

QStringList rowCells(qint64 number, const QList<NewsTransportHeader> &headers)
{
    QStringList c(9, QString());
    c[0] = QString::number(number);
    for (const NewsTransportHeader &h : headers) {
        const QString &n = h.Name;
        if (n == QLatin1String("Author") || n == QLatin1String("From")) {
            c[3] = h.value;
        } else if (n == QLatin1String("Subject")) {
            c[2] = h.value;
        } else if (n == QLatin1String("Date")) {
            const auto f = formatDate(NormaliseDate(h.value));
            c[1] = f.first;
            c[6] = f.second;
        } else if (n == QLatin1String("References")) {
            c[7] = h.value;
        } else if (n == QLatin1String("Message-ID")) {
            c[5] = h.value;
        } else if (n == QLatin1String("Path")) {
            c[4] = h.value;
        }
    }
    if (c[6].isEmpty())
        c[6] = c[5];
    return c;
}

} // namespace listing

// ---------------------------------------------------------------- overview lines to rows

namespace listing {

int headerColumn(const QString &n)
{
    if (n == QLatin1String("Author") || n == QLatin1String("From"))
        return 3;
    if (n == QLatin1String("Subject"))
        return 2;
    if (n == QLatin1String("Date"))
        return 1;
    if (n == QLatin1String("References"))
        return 7;
    if (n == QLatin1String("Message-ID"))
        return 5;
    if (n == QLatin1String("Path"))
        return 4;
    return -1;
}

QList<qint8> overviewColumns(const OverviewFormat &fmt)
{
    QList<qint8> cols;
    cols.reserve(fmt.names.size());
    for (const QString &n : fmt.names)
        cols.append(qint8(headerColumn(n)));
    return cols;
}

namespace {

// Copies a cell: 0x7F would split the row, so it becomes a blank. Returns the end.
char *putCell(char *d, const char *p, qsizetype n)
{
    if (n <= 0)
        return d;
    std::memcpy(d, p, size_t(n));
    for (char *q = static_cast<char *>(std::memchr(d, MessageGrid::Sep, size_t(n))); q;
         q = static_cast<char *>(std::memchr(q + 1, MessageGrid::Sep, size_t(d + n - q - 1))))
        *q = ' ';
    return d + n;
}

// Whether the bytes are all ASCII, and whether one of them is 0x7F, in one pass.
bool asciiScan(const char *p, qsizetype n, bool &hasSep)
{
    constexpr quint64 ones = 0x0101010101010101ULL, highs = 0x8080808080808080ULL, seps = 0x7F7F7F7F7F7F7F7FULL;
    quint64 acc = 0, sep = 0;
    qsizetype i = 0;
    for (; i + 8 <= n; i += 8) {
        quint64 w;
        std::memcpy(&w, p + i, 8);
        acc |= w;
        const quint64 x = w ^ seps;   // a zero byte where w holds 0x7F
        sep |= (x - ones) & ~x & highs;
    }
    for (; i < n; ++i) {
        acc |= static_cast<unsigned char>(p[i]);
        sep |= p[i] == MessageGrid::Sep;
    }
    hasSep = sep != 0;
    return (acc & highs) == 0;
}

// A field as the transport's text would be stored: UTF-8 when valid, else read as Latin-1.
// ASCII stays where it is; anything else is converted into keep. hasSep: whether it holds 0x7F.
void textCell(const char *&p, qsizetype &n, QByteArray &keep, bool &hasSep)
{
    hasSep = false;
    if (n <= 0 || asciiScan(p, n, hasSep))
        return;
    keep = textFromBytes(p, n).toUtf8();
    p = keep.constData();
    n = keep.size();
    hasSep = std::memchr(p, MessageGrid::Sep, size_t(n)) != nullptr;
}

// putCell for a cell whose 0x7F bytes are known to be there or not.
char *putCellKnown(char *d, const char *p, qsizetype n, bool hasSep)
{
    if (hasSep)
        return putCell(d, p, n);
    if (n > 0)
        std::memcpy(d, p, size_t(n));
    return d + n;
}

} // namespace

void formatDateBytes(const char *date, qsizetype size, QByteArray &display, QByteArray &sort)
{
    char db[10], sb[19];
    quint64 key = 0;
    if (isAscii(date, size) && OverviewRows::quickDate(date, size, size, db, sb, key)) {
        display = QByteArray(db, 10);
        sort = QByteArray(sb, 19);
        return;
    }
    const auto f = formatDate(NormaliseDate(textFromBytes(date, size)));
    display = f.first.toUtf8();
    sort = f.second.toUtf8();
}

// One overview line to a packed row: the row's bytes go where place(total) says. Returns the row's
// start (null when the line has no article number) and its size; sortCell and refCell are set to
// columns 6 and 7 as written. Lines the fast path does not take are built by the general way
// into general.
template <class Place>
static char *buildRow(const char *line, qsizetype size, const OverviewFormat &fmt, const QList<qint8> &columns,
                      const char *path, qsizetype pathSize, Place &&place, qsizetype &rowSize,
                      QByteArrayView *sortCell, QByteArrayView *refCell)
{
    const char *p = line;
    const char *end = line + size;
    const char *tab = static_cast<const char *>(std::memchr(p, '\t', size_t(end - p)));
    const char *numEnd = tab ? tab : end;
    if (numEnd == p)
        return nullptr;
    if (numEnd - p > 18) {   // not an article number of this world: the general way decides
        NewsTransportArticle a;
        if (!parseOverviewLine(line, size, fmt, a))
            return nullptr;
        if (path && !fmt.hasPath)
            a.Message.Headers.append(NewsTransportHeader{QStringLiteral("Path"), textFromBytes(path, pathSize)});
        const QByteArray row = MessageGrid::packRow(rowCells(a.Number, a.Message.Headers));
        char *d = place(row.size());
        std::memcpy(d, row.constData(), size_t(row.size()));
        rowSize = row.size();
        if (sortCell)
            *sortCell = MessageGrid::cellView(QByteArray::fromRawData(d, row.size()), 6);
        if (refCell)
            *refCell = MessageGrid::cellView(QByteArray::fromRawData(d, row.size()), 7);
        return d;
    }
    // the value of each column: the last field that fills it
    const char *cell[8] = {};
    qsizetype len[8] = {};
    bool has[8] = {};
    qint64 number = 0;
    if (!forEachOverviewField(line, size, fmt, qMin(fmt.names.size(), columns.size()), &number,
                              [&](qsizetype field, const char *v, const char *fEnd) {
                                  const int col = columns.at(field);
                                  if (col >= 0) {
                                      cell[col] = v;
                                      len[col] = fEnd - v;
                                      has[col] = true;
                                  }
                              }))
        return nullptr;
    if (path && !fmt.hasPath) {
        cell[4] = path;
        len[4] = pathSize;
        has[4] = true;
    }
    // the date's two forms
    QByteArray display, sort;
    if (has[1])
        formatDateBytes(cell[1], len[1], display, sort);
    const char *sortAt = sort.constData();
    qsizetype sortLen = sort.size();
    QByteArray keep[6];
    bool sep[8] = {};
    for (int c : {2, 3, 4, 5, 7})
        textCell(cell[c], len[c], keep[c == 7 ? 1 : c], sep[c]);
    const bool idSorts = sortLen == 0;   // no date: the Message-ID sorts in its place
    if (idSorts) {
        sortAt = cell[5];
        sortLen = len[5];
    }
    char num[24];
    int nd = 0;
    do {
        num[sizeof num - 1 - nd++] = char('0' + number % 10);
        number /= 10;
    } while (number > 0);
    const qsizetype total = nd + display.size() + len[2] + len[3] + len[4] + len[5] + sortLen + len[7] + 8;
    char *const row = place(total);
    char *d = row;
    std::memcpy(d, num + sizeof num - nd, size_t(nd));
    d += nd;
    *d++ = MessageGrid::Sep;
    d = putCell(d, display.constData(), display.size());
    *d++ = MessageGrid::Sep;
    for (int c = 2; c <= 5; ++c) {
        d = putCellKnown(d, cell[c], len[c], sep[c]);
        *d++ = MessageGrid::Sep;
    }
    if (sortCell)
        *sortCell = QByteArrayView(d, sortLen);
    d = idSorts ? putCellKnown(d, sortAt, sortLen, sep[5]) : putCell(d, sortAt, sortLen);
    *d++ = MessageGrid::Sep;
    if (refCell)
        *refCell = QByteArrayView(d, len[7]);
    d = putCellKnown(d, cell[7], len[7], sep[7]);
    *d++ = MessageGrid::Sep;   // then the empty download mark
    rowSize = total;
    return row;
}

bool overviewToArena(const char *line, qsizetype size, const OverviewFormat &fmt, const QList<qint8> &columns,
                     const char *path, qsizetype pathSize, RowArena &arena, ArenaRow &out)
{
    qsizetype n = 0;
    char *row = buildRow(line, size, fmt, columns, path, pathSize,
                         [&](qsizetype total) {
                             char *d = arena.alloc(total + 1);
                             d[total] = '\n';   // the row is its own cache line
                             return d;
                         },
                         n, &out.sortCell, &out.refCell);
    if (!row)
        return false;
    out.row = QByteArray::fromRawData(row, n);
    return true;
}

} // namespace listing
