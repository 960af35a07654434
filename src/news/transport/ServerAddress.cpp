#include "news/transport/NewsTransport.h"

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
    }
    while (s.endsWith(QLatin1Char('/')))
        s.chop(1);
    if (s.startsWith(QLatin1Char('['))) {   // [v6 address]:port
        const qsizetype close = s.indexOf(QLatin1Char(']'));
        if (close < 0)
            return a;
        a.host = s.mid(1, close - 1);
        s = s.mid(close + 1);
        if (s.startsWith(QLatin1Char(':'))) {
            bool ok = false;
            const uint p = s.mid(1).toUInt(&ok);
            if (!ok || p == 0 || p > 65535)
                return a;
            a.port = quint16(p);
        }
    } else {
        const qsizetype colon = s.lastIndexOf(QLatin1Char(':'));
        if (colon >= 0 && s.indexOf(QLatin1Char(':')) == colon) {
            bool ok = false;
            const uint p = s.mid(colon + 1).toUInt(&ok);
            if (!ok || p == 0 || p > 65535)
                return a;
            a.port = quint16(p);
            s.truncate(colon);
        }
        a.host = s;
    }
    a.valid = !a.host.isEmpty() && !a.host.contains(QLatin1Char(' ')) && !a.host.contains(QLatin1Char('/'));
    return a;
}
