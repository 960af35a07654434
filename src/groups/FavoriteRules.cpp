#include "groups/FavoriteRules.h"

#include "ui/ItemList.h"

namespace FavoriteRules {

QString CleanNewsGroup(const QString &item)
{
    QString s = ItemList::withoutMarker(item);
    const qsizetype blank = s.indexOf(QLatin1Char(' '));
    if (blank >= 0)
        s.truncate(blank);
    return s;
}

QString GetServerName(const QString &item)
{
    const QString s = ItemList::withoutMarker(item);
    const qsizetype open = s.indexOf(QLatin1Char('('));
    if (open < 0)
        return QString();
    const qsizetype close = s.indexOf(QLatin1Char(')'), open + 1);
    if (close < 0)
        return QString();
    return s.mid(open + 1, close - open - 1).trimmed();
}

QString groupOfItem(const QString &item)
{
    const qsizetype open = item.indexOf(QLatin1Char('('));
    return CleanNewsGroup(open < 0 ? item : item.left(open));
}

int findFavorite(const QStringList &items, const QString &group, const QString &server)
{
    for (int i = 0; i < items.size(); ++i)
        if (CleanNewsGroup(items[i]) == group
            && GetServerName(items[i]).compare(server, Qt::CaseInsensitive) == 0)
            return i;
    return -1;
}

std::optional<QString> itemForDrop(const QString &groupItem, const QString &server,
                                   const QStringList &favorites)
{
    QString group;
    QString countText;
    const qsizetype open = groupItem.indexOf(QLatin1Char('('));
    if (open >= 0) {
        group = CleanNewsGroup(groupItem.left(open));
        if (ItemList::hasMarker(groupItem)) {
            const qsizetype close = groupItem.indexOf(QLatin1Char(')'), open);
            if (close >= 0)
                countText = groupItem.mid(open, close - open + 1);
        }
    } else {
        // a marked item without a count (listing failed) still names its group after the marker
        group = CleanNewsGroup(groupItem.trimmed());
    }
    if (group.isEmpty() || server.isEmpty())
        return std::nullopt;
    if (findFavorite(favorites, group, server) >= 0)
        return std::nullopt;

    bool ok = false;
    const qint64 count = countText.mid(1, countText.size() - 2).trimmed().toLongLong(&ok);
    const QChar digit = ok && count > 0 ? QLatin1Char('1') : QLatin1Char('4');
    QString text = group + QStringLiteral(" (") + server + QLatin1Char(')');
    if (!countText.isEmpty())
        text += QLatin1Char(' ') + countText;
    return ItemList::marked(digit, text);
}

QString itemAfterListing(const QString &group, const QString &server, qint64 count, bool error)
{
    const QString base = group + QStringLiteral(" (") + server + QLatin1Char(')');
    if (error)
        return ItemList::marked(QLatin1Char('2'), base);
    if (count >= 1)
        return ItemList::marked(QLatin1Char('1'), base + QStringLiteral(" (%1)").arg(count));
    return ItemList::marked(QLatin1Char('4'), base);
}

QString shortName(const QString &path)
{
    QString name = path;
    const qsizetype slash = qMax(name.lastIndexOf(QLatin1Char('/')), name.lastIndexOf(QLatin1Char('\\')));
    if (slash >= 0)
        name = name.mid(slash + 1);
    const qsizetype dot = name.indexOf(QLatin1Char('.'));
    if (dot >= 0)
        name.truncate(dot);
    return name;
}

} // namespace FavoriteRules
