#include "news/transport/NewsMessage.h"

#include <QStringDecoder>
#include <cstring>

QString NewsTransportMessage::header(const QString &name) const
{
    for (qsizetype i = Headers.size() - 1; i >= 0; --i)
        if (Headers.at(i).Name == name)
            return Headers.at(i).value;
    return QString();
}

QList<NewsTransportArticle> NewsTransportGroup::TakeArticles()
{
    QList<NewsTransportArticle> out;
    out.swap(Articles);
    return out;
}

bool isAscii(const char *p, qsizetype n)
{
    qsizetype i = 0;
    quint64 acc = 0;
    for (; i + 8 <= n; i += 8) {
        quint64 w;
        std::memcpy(&w, p + i, 8);
        acc |= w;
    }
    for (; i < n; ++i)
        acc |= quint8(p[i]);
    return (acc & 0x8080808080808080ULL) == 0;
}

QString textFromBytes(const char *data, qsizetype size)
{
    if (size <= 0)
        return QString();
    if (isAscii(data, size))
        return QString::fromLatin1(data, size);
    QStringDecoder dec(QStringDecoder::Utf8, QStringDecoder::Flag::Stateless);
    QString s = dec.decode(QByteArrayView(data, size));
    if (dec.hasError())
        return QString::fromLatin1(data, size);
    return s;
}

QString textFromBytes(const QByteArray &bytes)
{
    return textFromBytes(bytes.constData(), bytes.size());
}

ServerAddress parseServerAddress(const QString &entry)
{
    ServerAddress a;
    QString s = entry.trimmed();
    if (s.startsWith(QLatin1String("nntps://"), Qt::CaseInsensitive)) {
        a.tls = true;
        a.port = 563;
        s = s.mid(8);
    } else if (s.startsWith(QLatin1String("nntp://"), Qt::CaseInsensitive)) {
        s = s.mid(7);
    } else if (s.contains(QLatin1String("://"))) {
        return a;  // some other scheme
    }
    while (s.endsWith(QLatin1Char('/')))
        s.chop(1);
    QString host = s;
    QString port;
    if (s.startsWith(QLatin1Char('['))) {  // [IPv6]:port
        const qsizetype close = s.indexOf(QLatin1Char(']'));
        if (close < 0)
            return a;
        host = s.mid(1, close - 1);
        const QString rest = s.mid(close + 1);
        if (!rest.isEmpty()) {
            if (!rest.startsWith(QLatin1Char(':')))
                return a;
            port = rest.mid(1);
            if (port.isEmpty())
                return a;
        }
    } else {
        const qsizetype colon = s.lastIndexOf(QLatin1Char(':'));
        if (colon >= 0) {
            if (s.indexOf(QLatin1Char(':')) != colon)  // bare IPv6 without a port
                host = s;
            else {
                host = s.left(colon);
                port = s.mid(colon + 1);
                if (port.isEmpty())
                    return a;
            }
        }
    }
    if (host.isEmpty())
        return a;
    for (QChar c : host)
        if (c.isSpace() || c == QLatin1Char('/') || c == QLatin1Char('@'))
            return a;
    if (!port.isEmpty()) {
        bool ok = false;
        const uint p = port.toUInt(&ok);
        if (!ok || p == 0 || p > 65535)
            return a;
        a.port = quint16(p);
    }
    a.host = host;
    a.valid = true;
    return a;
}

// Header names are shared strings, so a million overview rows cost no name copies.
namespace {
struct StdNames {
    QString subject = QStringLiteral("Subject"), from = QStringLiteral("From"),
            date = QStringLiteral("Date"), msgid = QStringLiteral("Message-ID"),
            refs = QStringLiteral("References"), bytes = QStringLiteral("Bytes"),
            lines = QStringLiteral("Lines"), path = QStringLiteral("Path"),
            xref = QStringLiteral("Xref");
};
const StdNames &stdNames()
{
    static const StdNames n;
    return n;
}
}  // namespace

OverviewFormat OverviewFormat::fromLines(const QList<QByteArray> &lines)
{
    const StdNames &n = stdNames();
    OverviewFormat f;
    f.names = {n.subject, n.from, n.date, n.msgid, n.refs, n.bytes, n.lines};
    f.full = QList<bool>(7, false);
    for (qsizetype i = 7; i < lines.size(); ++i) {
        QByteArray l = lines.at(i).trimmed();
        if (l.isEmpty())
            continue;
        bool full = false;
        if (l.toLower().endsWith(":full")) {
            full = true;
            l.chop(5);
        }
        if (l.startsWith(':'))
            l = l.mid(1);
        if (l.endsWith(':'))
            l.chop(1);
        QString name = QString::fromLatin1(l);
        if (name.compare(QLatin1String("Path"), Qt::CaseInsensitive) == 0) {
            name = n.path;
            f.hasPath = true;
        } else if (name.compare(QLatin1String("Xref"), Qt::CaseInsensitive) == 0) {
            name = n.xref;
        }
        f.names.append(name);
        f.full.append(full);
    }
    return f;
}

bool parseOverviewLine(const char *line, qsizetype size, const OverviewFormat &fmt,
                       NewsTransportArticle &out)
{
    QList<NewsTransportHeader> headers;
    headers.reserve(fmt.names.size() + (fmt.hasPath ? 0 : 1));
    qint64 number = 0;
    if (!forEachOverviewField(line, size, fmt, fmt.names.size(), &number,
                              [&](qsizetype field, const char *v, const char *fEnd) {
                                  headers.append(NewsTransportHeader{fmt.names.at(field), textFromBytes(v, fEnd - v)});
                              }))
        return false;
    out.Number = number;
    out.Message.Headers = std::move(headers);
    return true;
}
