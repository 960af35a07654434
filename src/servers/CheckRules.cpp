#include "servers/CheckRules.h"

#include <QLocale>

namespace servers {

QString statusMarkedItem(qint64 groupCount, bool postingAllowed, const QString &name)
{
    return QStringLiteral("%1%2%3").arg(groupCount, 5, 10, QLatin1Char('0'))
        .arg(postingAllowed ? QLatin1String("  OK    ") : QLatin1String("  NO    "), name);
}

QString serverNameOfItem(const QString &item)
{
    const qsizetype p = item.indexOf(QLatin1String("    "));
    return (p < 0 ? item : item.mid(p + 4)).trimmed();
}

QByteArray checkLogLine(const QString &server, const QString &reason, const QDateTime &when)
{
    const QString date = QLocale::system().toString(when, QLocale::ShortFormat);
    return (server + QLatin1Char('\t') + date + QLatin1Char('\t') + QStringLiteral(" REMOVED:") + reason).toUtf8() + "\r\n";
}

} // namespace servers
