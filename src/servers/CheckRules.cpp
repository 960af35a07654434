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

QString groupListLine(const QString &groupItem, const QString &server)
{
    QString name = groupItem.trimmed();
    if (name.startsWith(QChar(0x00FF)))
        name.remove(0, 2);
    const qsizetype paren = name.indexOf(QLatin1Char('('));
    if (paren >= 0)
        name.truncate(paren);
    return name.trimmed() + QStringLiteral(" (") + server + QLatin1Char(')');
}

FoundGroup groupSearchLines(const QString &groupItem, const QString &server)
{
    const qsizetype paren = groupItem.indexOf(QLatin1Char('('));
    const QString before = (paren < 0 ? groupItem : groupItem.left(paren)).trimmed();
    const QString head = before + QStringLiteral(" (") + server + QLatin1Char(')');
    if (paren < 0)
        return {head, head};   // an item without a count ("listing failed")
    const QString count = groupItem.mid(paren);
    const qsizetype close = count.indexOf(QLatin1Char(')'));
    return {head + QLatin1Char(' ') + count, head + QLatin1Char(' ') + (close < 0 ? count : count.left(close + 1))};
}

QString removalReason(int listedMessages, int minimumGroups, bool readableGroupFound)
{
    if (listedMessages < minimumGroups)
        return QStringLiteral("Not Enough Groups");
    if (!readableGroupFound)
        return QStringLiteral("No Readable Messages");
    return QString();
}

} // namespace servers
