#include "app/Paths.h"
#include "messages/MessageCache.h"

#include <QDir>
#include <QFile>
#include <QRegularExpression>
#include <QStandardPaths>

namespace nd {

QString appDir()
{
    QString dir = qEnvironmentVariable("NEWSDREDGE_HOME");
    if (dir.isEmpty())
        dir = QStandardPaths::writableLocation(QStandardPaths::AppDataLocation);
    if (dir.isEmpty())
        dir = QDir::homePath() + QStringLiteral("/.newsdredge");
    while (dir.size() > 1 && dir.endsWith(QLatin1Char('/')))
        dir.chop(1);
    QDir().mkpath(dir);
    return dir;
}

QString appFile(const QString &name)
{
    QString n = name;
    while (n.startsWith(QLatin1Char('/')) || n.startsWith(QLatin1Char('\\')))
        n.remove(0, 1);
    return appDir() + QLatin1Char('/') + n;
}

QString cacheDir()
{
    const QString dir = appFile(QStringLiteral("Cache"));
    QDir().mkpath(dir);
    return dir;
}

void cleanAppTempFiles()
{
    listing::waitForCacheWrites();   // a listing's cache still being written would come back
    QDir dir(appDir());
    const QStringList names = dir.entryList({QStringLiteral("*.tmp")}, QDir::Files | QDir::Hidden);
    for (const QString &n : names)
        QFile::remove(dir.filePath(n));
}

bool isOwnDownloadTempName(const QString &fileName)
{
    if (fileName == QLatin1String("~image2.tmp"))
        return true;
    static const QRegularExpression re(QStringLiteral("^([0-9]{6})\\.tmp$"));
    const auto m = re.match(fileName);
    if (!m.hasMatch())
        return false;
    const int n = m.captured(1).toInt();
    return n >= 100000 && n <= 355995;
}

void cleanDownloadTempFiles(const QString &destDir)
{
    if (destDir.isEmpty())
        return;
    QDir dir(destDir);
    if (!dir.exists())
        return;
    const QStringList names = dir.entryList({QStringLiteral("*.tmp")}, QDir::Files | QDir::Hidden);
    for (const QString &n : names)
        if (isOwnDownloadTempName(n))
            QFile::remove(dir.filePath(n));
}

QString withTrailingSlash(const QString &dir)
{
    if (dir.isEmpty() || dir.endsWith(QLatin1Char('/')))
        return dir;
    return dir + QLatin1Char('/');
}

} // namespace nd
