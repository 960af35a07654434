#pragma once
#include <QRect>
#include <QString>

class SettingsStore;

// The options that are read at start-up and held for the program's life.
struct Settings {
    QString NNTPServer;
    qint32 Timeout = 30;
    qint32 MinimumGroups = 1;
    QString DestDir;
    QString LastFind;
    QString FavoritesFile;
    int BinariesOnly = 0;
    int AutoLoadGroups = 1;
    int ConfirmFileDelete = 1;
    int ShowMNumbers = 0;
    int SaveHTTP = 1;
    int SaveFTP = 1;
    bool WEBSave = true;
    bool FTPSave = true;
    int Preview = 1;
    QString Name;
    QString EmailAddress;
    int NewMsgs = 500;
    QString ProxyHost;
    qint32 ProxyPort = 0;
};

namespace nd {

inline constexpr double TwipsPerPixel = 15.0;
// The smallest main window that stays usable, in logical pixels.
inline constexpr int MinMainWidth = 1000;
inline constexpr int MinMainHeight = 680;

QString defaultFavoritesFile();
QString defaultDestDir();
// The download directory rule: empty means the default; always ends with "/"; never relative.
QString normaliseDestDir(const QString &dir);

// Reads every value that start-up reads, in the order start-up reads them.
void readSettings(Settings &s, const SettingsStore &store);
// The main block written at shutdown; nothing when Timeout is 0.
void writeMainBlock(const Settings &s, SettingsStore &store);

// Main window geometry in pixels from the stored twips, with the off-screen corrections.
// desktop is the union of all screens.
QRect restoreMainGeometry(const SettingsStore &store, const QRect &desktop);
void storeMainGeometry(SettingsStore &store, const QRect &normalGeometry);

// The one-second tick: wraps to 0 past 32767.
inline qint32 nextSecondsTick(qint32 tick) { return tick + 1 > 32767 ? 0 : tick + 1; }

} // namespace nd
