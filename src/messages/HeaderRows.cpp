#include "messages/HeaderRows.h"

#include "messages/MessageGrid.h"
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

char *putNumber(char *d, int v, int width)
{
    if (width == 2 && v >= 0 && v < 100) {
        d[0] = char('0' + v / 10);
        d[1] = char('0' + v % 10);
        return d + 2;
    }
    if (width == 4 && v >= 0 && v < 10000) {
        d[0] = char('0' + v / 1000);
        d[1] = char('0' + v / 100 % 10);
        d[2] = char('0' + v / 10 % 10);
        d[3] = char('0' + v % 10);
        return d + 4;
    }
    char buf[16];
    int n = 0;
    do {
        buf[n++] = char('0' + v % 10);
        v /= 10;
    } while (v > 0);
    for (; n < width; ++n)
        buf[n] = '0';
    while (n > 0)
        *d++ = buf[--n];
    return d;
}

qsizetype findBytes(const char *p, qsizetype n, const char *what, qsizetype wn)
{
    if (n <= 0)
        return -1;
    if (wn == 1) {
        const void *q = std::memchr(p, what[0], size_t(n));
        return q ? static_cast<const char *>(q) - p : -1;
    }
    for (qsizetype i = 0; i + wn <= n;) {
        const void *q = std::memchr(p + i, what[0], size_t(n - wn + 1 - i));
        if (!q)
            return -1;
        i = static_cast<const char *>(q) - p;
        if (std::memcmp(p + i, what, size_t(wn)) == 0)
            return i;
        ++i;
    }
    return -1;
}

// Digits only, at most 9 of them.
bool digits(const char *p, qsizetype n, int &v)
{
    if (n < 1 || n > 9)
        return false;
    v = 0;
    for (qsizetype i = 0; i < n; ++i) {
        if (p[i] < '0' || p[i] > '9')
            return false;
        v = v * 10 + (p[i] - '0');
    }
    return true;
}

// The common written forms of a cleaned ASCII date, read exactly as formatDate reads them.
// False when the text is not one of them (formatDate then decides).
bool quickDate(const char *p, qsizetype n, int &day, int &month, int &year, int &h, int &mi, int &s)
{
    const char *tok[5];
    qsizetype len[5];
    int t = 0;
    for (qsizetype i = 0; i < n;) {
        if (p[i] == ' ') {
            ++i;
            continue;
        }
        if (t == 5)
            return false;
        qsizetype j = i;
        while (j < n && p[j] != ' ')
            ++j;
        tok[t] = p + i;
        len[t] = j - i;
        ++t;
        i = j;
    }
    if (t < 3 || t > 4)
        return false;
    if (!digits(tok[0], len[0], day) || !digits(tok[2], len[2], year) || day < 1 || day > 31 || len[1] < 3)
        return false;
    static const char months[] = "janfebmaraprmayjunjulaugsepoctnovdec";
    char m3[3];
    for (int k = 0; k < 3; ++k) {
        const char c = tok[1][k];
        if (!((c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z')))
            return false;
        m3[k] = char(c | 0x20);
    }
    month = 0;
    for (int k = 0; k < 12; ++k)
        if (std::memcmp(months + 3 * k, m3, 3) == 0)
            month = k + 1;
    if (month == 0)
        return false;
    if (len[2] <= 2)
        year += year < 70 ? 2000 : 1900;
    h = mi = s = 0;
    if (t == 4) {
        const char *q = tok[3];
        const qsizetype qn = len[3];
        const char *c1 = static_cast<const char *>(std::memchr(q, ':', size_t(qn)));
        if (!c1 || !digits(q, c1 - q, h))
            return false;
        const char *rest = c1 + 1;
        const char *c2 = static_cast<const char *>(std::memchr(rest, ':', size_t(q + qn - rest)));
        if (!digits(rest, (c2 ? c2 : q + qn) - rest, mi))
            return false;
        if (c2) {
            if (std::memchr(c2 + 1, ':', size_t(q + qn - c2 - 1)) || !digits(c2 + 1, q + qn - c2 - 1, s))
                return false;
        }
        if (h > 23 || mi > 59 || s > 60)
            return false;
    }
    return true;
}

} // namespace

// The date rule and both forms into the buffers (display at least 16 bytes, sort at least 32)
// for ASCII dates in the common written forms; false when formatDate has to decide.
static bool quickDateForms(const char *date, qsizetype size, char *display, int &dlen, char *sort, int &slen,
                           const char **cleaned, qsizetype *cleanedSize, char (&stack)[128], QByteArray &scratch)
{
    // the date rule on bytes: cut at "-", the zones, after ",", at "+"
    const char *p = date;
    qsizetype n = size;
    auto cutBefore = [&](const char *mark, qsizetype mn) {
        const qsizetype at = findBytes(p, n, mark, mn);
        if (at >= 0)
            n = at;
    };
    cutBefore("-", 1);
    cutBefore("GMT", 3);
    cutBefore("EST", 3);
    cutBefore("EDT", 3);
    cutBefore("PST", 3);
    const qsizetype comma = findBytes(p, n, ",", 1);
    if (comma >= 0) {
        p += comma + 1;
        n -= comma + 1;
    }
    cutBefore("+", 1);
    auto ws = [](char c) { return c == ' ' || (c >= '\t' && c <= '\r'); };
    {
        // collapsing double spaces changes no word, so the common forms are read in place
        qsizetype b = 0, e = n;
        while (b < e && ws(p[b]))
            ++b;
        while (e > b && ws(p[e - 1]))
            --e;
        int day, month, year, h, mi, s;
        if (quickDate(p + b, e - b, day, month, year, h, mi, s)) {
            *cleaned = p + b;
            *cleanedSize = e - b;
            char *d = display;
            d = putNumber(d, month, 2);
            *d++ = '/';
            d = putNumber(d, day, 2);
            *d++ = '/';
            d = putNumber(d, year, 4);
            dlen = int(d - display);
            d = sort;
            d = putNumber(d, year, 4);
            *d++ = '/';
            d = putNumber(d, month, 2);
            *d++ = '/';
            d = putNumber(d, day, 2);
            *d++ = ' ';
            d = putNumber(d, h, 2);
            *d++ = ':';
            d = putNumber(d, mi, 2);
            *d++ = ':';
            d = putNumber(d, s, 2);
            slen = int(d - sort);
            return true;
        }
    }
    char *out = stack;
    if (n > qsizetype(sizeof stack)) {
        scratch.resize(n);
        out = scratch.data();
    }
    qsizetype o = 0;
    for (qsizetype i = 0; i < n; ++i) {
        out[o++] = p[i];
        if (p[i] == ' ' && i + 1 < n && p[i + 1] == ' ')
            ++i;
    }
    qsizetype b = 0, e = o;
    while (b < e && ws(out[b]))
        ++b;
    while (e > b && ws(out[e - 1]))
        --e;
    *cleaned = out + b;
    *cleanedSize = e - b;
    return false;
}

void formatDateBytes(const char *date, qsizetype size, QByteArray &display, QByteArray &sort)
{
    if (!isAscii(date, size)) {
        const auto f = formatDate(NormaliseDate(textFromBytes(date, size)));
        display = f.first.toUtf8();
        sort = f.second.toUtf8();
        return;
    }
    char db[16], sb[32];
    int dl = 0, sl = 0;
    const char *cleaned = nullptr;
    qsizetype cn = 0;
    QByteArray scratch;
    char stack[128];
    if (quickDateForms(date, size, db, dl, sb, sl, &cleaned, &cn, stack, scratch)) {
        display = QByteArray(db, dl);
        sort = QByteArray(sb, sl);
        return;
    }
    const auto f = formatDate(QString::fromLatin1(cleaned, cn));
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
    char db[16], sb[32];
    int dl = 0, sl = 0;
    QByteArray bigDisplay, bigSort, scratch;
    char stack[128];
    const char *display = db, *sort = sb;
    qsizetype displayLen = 0, sortLen = 0;
    bool ownDate = false;   // both forms are digits and separators of our own: no 0x7F in them
    if (has[1]) {
        const char *cleaned = nullptr;
        qsizetype cn = 0;
        if (isAscii(cell[1], len[1]) && quickDateForms(cell[1], len[1], db, dl, sb, sl, &cleaned, &cn, stack, scratch)) {
            displayLen = dl;
            sortLen = sl;
            ownDate = true;
        } else {
            formatDateBytes(cell[1], len[1], bigDisplay, bigSort);
            display = bigDisplay.constData();
            displayLen = bigDisplay.size();
            sort = bigSort.constData();
            sortLen = bigSort.size();
        }
    }
    QByteArray keep[6];
    bool sep[8] = {};
    for (int c : {2, 3, 4, 5, 7})
        textCell(cell[c], len[c], keep[c == 7 ? 1 : c], sep[c]);
    if (sortLen == 0) {   // no date: the Message-ID sorts in its place
        sort = cell[5];
        sortLen = len[5];
    }
    char num[24];
    int nd = 0;
    do {
        num[sizeof num - 1 - nd++] = char('0' + number % 10);
        number /= 10;
    } while (number > 0);
    const qsizetype total = nd + displayLen + len[2] + len[3] + len[4] + len[5] + sortLen + len[7] + 8;
    char *const row = place(total);
    char *d = row;
    std::memcpy(d, num + sizeof num - nd, size_t(nd));
    d += nd;
    *d++ = MessageGrid::Sep;
    d = ownDate ? putCellKnown(d, display, displayLen, false) : putCell(d, display, displayLen);
    *d++ = MessageGrid::Sep;
    for (int c = 2; c <= 5; ++c) {
        d = putCellKnown(d, cell[c], len[c], sep[c]);
        *d++ = MessageGrid::Sep;
    }
    if (sortCell)
        *sortCell = QByteArrayView(d, sortLen);
    if (ownDate)
        d = putCellKnown(d, sort, sortLen, false);
    else
        d = sort == cell[5] ? putCellKnown(d, sort, sortLen, sep[5]) : putCell(d, sort, sortLen);
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
