#include "messages/HeaderRows.h"

#include "news/transport/NewsMessage.h"

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
