#include "settings/Settings.h"

#include "app/Paths.h"
#include "settings/SettingsStore.h"

#include <QDir>
#include <QFileInfo>

namespace nd {

QString defaultFavoritesFile()
{
    return appFile(QStringLiteral("NewsdredgeFavorites.fav"));
}

QString defaultDestDir()
{
    return appFile(QStringLiteral("Download")) + QLatin1Char('/');
}

QString normaliseDestDir(const QString &dir)
{
    QString d = dir.trimmed();
    if (d.isEmpty())
        return defaultDestDir();
    if (QDir::isRelativePath(d))
        d = QDir(appDir()).absoluteFilePath(d);
    return withTrailingSlash(d);
}

void readSettings(Settings &s, const SettingsStore &store)
{
    s.DestDir = normaliseDestDir(store.get(QStringLiteral("DestDir")));
    s.LastFind = store.get(QStringLiteral("LastFind"));
    s.SaveHTTP = store.getInt(QStringLiteral("SaveHTTP"), 1);
    s.SaveFTP = store.getInt(QStringLiteral("SaveFTP"), 1);
    s.FavoritesFile = store.get(QStringLiteral("FavoritesFile"), defaultFavoritesFile());
    if (s.FavoritesFile.isEmpty() || !QFileInfo::exists(s.FavoritesFile))
        s.FavoritesFile = defaultFavoritesFile();
    s.ConfirmFileDelete = store.getInt(QStringLiteral("ConfirmFileDelete"), 1);
    s.AutoLoadGroups = store.getInt(QStringLiteral("AutoLoadGroups"), 1);
    s.BinariesOnly = store.getInt(QStringLiteral("BinariesOnly"), 0);
    s.ShowMNumbers = store.getInt(QStringLiteral("ShowMNumbers"), 0);
    s.NNTPServer = store.get(QStringLiteral("NNTPServer"));
    s.Timeout = store.getInt(QStringLiteral("Timeout"), 30);
    s.EmailAddress = store.get(QStringLiteral("Email Address"));
    s.Name = store.get(QStringLiteral("Name"));
    s.MinimumGroups = store.getInt(QStringLiteral("Minimum Groups"), 1);
    s.Preview = store.getInt(QStringLiteral("Preview"), 1);
    s.FTPSave = store.getBool(QStringLiteral("FTPSave"), true);
    s.WEBSave = store.getBool(QStringLiteral("WEBSave"), true);
    s.NewMsgs = store.getInt(QStringLiteral("NewMsgs"), 500);
    s.ProxyHost = store.get(QStringLiteral("ProxyHost"));
    s.ProxyPort = store.getInt(QStringLiteral("ProxyPort"), 0);
}

void writeMainBlock(const Settings &s, SettingsStore &store)
{
    if (s.Timeout == 0)
        return;
    store.saveInt(QStringLiteral("Preview"), s.Preview);
    store.save(QStringLiteral("Email Address"), s.EmailAddress);
    store.save(QStringLiteral("Name"), s.Name);
    store.save(QStringLiteral("FavoritesFile"), s.FavoritesFile);
    store.saveInt(QStringLiteral("BinariesOnly"), s.BinariesOnly);
    store.saveInt(QStringLiteral("SaveHTTP"), s.SaveHTTP);
    store.saveInt(QStringLiteral("SaveFTP"), s.SaveFTP);
    store.saveInt(QStringLiteral("AutoLoadGroups"), s.AutoLoadGroups);
    store.saveInt(QStringLiteral("ConfirmFileDelete"), s.ConfirmFileDelete);
    store.saveInt(QStringLiteral("ShowMNumbers"), s.ShowMNumbers);
    store.save(QStringLiteral("NNTPServer"), s.NNTPServer);
    store.saveInt(QStringLiteral("Timeout"), s.Timeout);
    store.saveInt(QStringLiteral("Minimum Groups"), s.MinimumGroups);
}

QRect restoreMainGeometry(const SettingsStore &store, const QRect &desktop)
{
    const int screenW = desktop.width();
    const int screenH = desktop.height();
    int w = int(store.getDouble(QStringLiteral("Width"), 1000) / TwipsPerPixel);
    int h = int(store.getDouble(QStringLiteral("Height"), 1000) / TwipsPerPixel);
    // never smaller than usable, never larger than the desktop
    w = qBound(qMin(MinMainWidth, screenW), w, qMax(screenW, 1));
    h = qBound(qMin(MinMainHeight, screenH), h, qMax(screenH, 1));
    const double defTop = (screenH - h) / 2.0 * TwipsPerPixel;
    const double defLeft = (screenW - w) / 2.0 * TwipsPerPixel;
    int top = int(store.getDouble(QStringLiteral("Top"), defTop) / TwipsPerPixel);
    int left = int(store.getDouble(QStringLiteral("Left"), defLeft) / TwipsPerPixel);
    if (top < 0 || top >= screenH)
        top = screenH / 2;
    if (left < 0 || left >= screenW)
        left = screenW / 2;
    return QRect(desktop.x() + left, desktop.y() + top, w, h);
}

void storeMainGeometry(SettingsStore &store, const QRect &g)
{
    store.save(QStringLiteral("Top"), QString::number(g.y() * TwipsPerPixel));
    store.save(QStringLiteral("Left"), QString::number(g.x() * TwipsPerPixel));
    store.save(QStringLiteral("Width"), QString::number(g.width() * TwipsPerPixel));
    store.save(QStringLiteral("Height"), QString::number(g.height() * TwipsPerPixel));
}

} // namespace nd
