#include "gui/ui/ListLook.h"

#include "ui/ItemList.h"

#include <QApplication>
#include <QBrush>
#include <QColor>
#include <QFont>
#include <QHash>
#include <QStyle>

namespace nd::gui {

namespace {

QIcon styleIcon(QStyle::StandardPixmap which)
{
    return QApplication::style() ? QApplication::style()->standardIcon(which) : QIcon();
}

QVariant markerLook(int role, QChar marker)
{
    if (role == Qt::ForegroundRole) {
        switch (marker.unicode()) {
        case '1': return QBrush(QColor(0, 110, 0));
        case '2': return QBrush(QColor(180, 0, 0));
        case '4': return QBrush(QColor(0, 0, 160));
        default: return QVariant();
        }
    }
    if (role == Qt::FontRole && marker == QLatin1Char('1')) {
        QFont f;
        f.setBold(true);
        return f;
    }
    return QVariant();
}

} // namespace

QIcon iconForKey(const QString &key)
{
    if (key.isEmpty())
        return QIcon();
    static QHash<QString, QIcon> cache;   // by theme and key, so each file type is looked up once
    const QString cacheKey = QIcon::themeName() + QLatin1Char('|') + key;
    auto it = cache.constFind(cacheKey);
    if (it != cache.constEnd())
        return *it;
    QIcon icon;
    for (const QString &n : key.split(QLatin1Char('|'), Qt::SkipEmptyParts)) {
        if (n == QLatin1String("std:file"))
            icon = styleIcon(QStyle::SP_FileIcon);
        else if (n == QLatin1String("std:dirlink"))
            icon = styleIcon(QStyle::SP_DirLinkIcon);
        else if (QIcon::hasThemeIcon(n))
            icon = QIcon::fromTheme(n);
        if (!icon.isNull())
            break;
    }
    if (icon.isNull())
        icon = styleIcon(QStyle::SP_FileIcon);
    cache.insert(cacheKey, icon);
    return icon;
}

void installListLook()
{
    ItemList::setPresentation([](int role, const QString &iconKey, QChar marker) -> QVariant {
        if (role == Qt::DecorationRole) {
            const QIcon icon = iconForKey(iconKey);
            return icon.isNull() ? QVariant() : QVariant(icon);
        }
        return markerLook(role, marker);
    });
}

} // namespace nd::gui
