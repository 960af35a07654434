#include "app/Paths.h"
#include "settings/Settings.h"
#include "settings/SettingsStore.h"

#include <QFile>
#include <QSettings>
#include <QtTest>

class TstSettings : public QObject {
    Q_OBJECT
private slots:
    void init()
    {
        QFile::remove(SettingsStore().fileName());
    }

    void defaultsOnEmptyStore()
    {
        SettingsStore store;
        Settings s;
        s.Timeout = 99;
        nd::readSettings(s, store);
        QCOMPARE(s.Timeout, 30);
        QCOMPARE(s.MinimumGroups, 1);
        QCOMPARE(s.AutoLoadGroups, 1);
        QCOMPARE(s.BinariesOnly, 0);
        QCOMPARE(s.ConfirmFileDelete, 1);
        QCOMPARE(s.Preview, 1);
        QCOMPARE(s.ShowMNumbers, 0);
        QCOMPARE(s.NewMsgs, 500);
        QVERIFY(s.WEBSave && s.FTPSave);
        QCOMPARE(s.FavoritesFile, nd::appDir() + QStringLiteral("/NewsdredgeFavorites.fav"));
        QCOMPARE(s.DestDir, nd::appDir() + QStringLiteral("/Download/"));
        QVERIFY(s.NNTPServer.isEmpty());
    }

    void mainBlockRoundTripsUnderExactKeys()
    {
        QFile fav(nd::appFile(QStringLiteral("mine.fav")));
        QVERIFY(fav.open(QIODevice::WriteOnly));
        fav.close();
        Settings s;
        s.Preview = 0;
        s.EmailAddress = QStringLiteral("me@example.org");
        s.Name = QStringLiteral("Zoë Q.");
        s.FavoritesFile = fav.fileName();
        s.BinariesOnly = 1;
        s.SaveHTTP = 0;
        s.SaveFTP = 0;
        s.AutoLoadGroups = 0;
        s.ConfirmFileDelete = 0;
        s.ShowMNumbers = 1;
        s.NNTPServer = QStringLiteral("nntps://news.example.org:563");
        s.Timeout = 45;
        s.MinimumGroups = 250;
        {
            SettingsStore store;
            nd::writeMainBlock(s, store);
            store.sync();
        }
        // keys are stored exactly as named, in section "Settings"
        QSettings raw(SettingsStore().fileName(), QSettings::IniFormat);
        QCOMPARE(raw.value(QStringLiteral("Settings/Minimum Groups")).toString(), QStringLiteral("250"));
        QCOMPARE(raw.value(QStringLiteral("Settings/Email Address")).toString(), QStringLiteral("me@example.org"));
        SettingsStore store;
        Settings r;
        nd::readSettings(r, store);
        QCOMPARE(r.Preview, 0);
        QCOMPARE(r.EmailAddress, s.EmailAddress);
        QCOMPARE(r.Name, s.Name);
        QCOMPARE(r.FavoritesFile, s.FavoritesFile);
        QCOMPARE(r.BinariesOnly, 1);
        QCOMPARE(r.SaveHTTP, 0);
        QCOMPARE(r.SaveFTP, 0);
        QCOMPARE(r.AutoLoadGroups, 0);
        QCOMPARE(r.ConfirmFileDelete, 0);
        QCOMPARE(r.ShowMNumbers, 1);
        QCOMPARE(r.NNTPServer, s.NNTPServer);
        QCOMPARE(r.Timeout, 45);
        QCOMPARE(r.MinimumGroups, 250);
    }

    // A stored value that cannot be used leaves the default in place.
    void unusableValuesKeepDefaults()
    {
        SettingsStore store;
        store.save(QStringLiteral("FavoritesFile"), QStringLiteral("/nonexistent/gone.fav"));
        store.save(QStringLiteral("Timeout"), QStringLiteral("soon"));
        store.save(QStringLiteral("NewMsgs"), QStringLiteral(""));
        Settings s;
        nd::readSettings(s, store);
        QCOMPARE(s.FavoritesFile, nd::defaultFavoritesFile());
        QCOMPARE(s.Timeout, 30);
        QCOMPARE(s.NewMsgs, 500);
    }

    void destDirAlwaysEndsWithSlashAndIsAbsolute()
    {
        QCOMPARE(nd::normaliseDestDir(QStringLiteral("/data/news")), QStringLiteral("/data/news/"));
        QCOMPARE(nd::normaliseDestDir(QStringLiteral("/data/news/")), QStringLiteral("/data/news/"));
        QCOMPARE(nd::normaliseDestDir(QString()), nd::defaultDestDir());
        QVERIFY(nd::normaliseDestDir(QStringLiteral("rel")).startsWith(nd::appDir()));
    }

    void geometryCorrections()
    {
        const QRect desk(0, 0, 1600, 1000);
        SettingsStore store;
        // first start: centred, and never smaller than usable
        QRect g = nd::restoreMainGeometry(store, desk);
        QVERIFY(g.width() >= nd::MinMainWidth && g.height() >= nd::MinMainHeight);
        QCOMPARE(g.x(), (1600 - g.width()) / 2);
        QCOMPARE(g.y(), (1000 - g.height()) / 2);

        store.save(QStringLiteral("Width"), QStringLiteral("15000"));   // 1000 px
        store.save(QStringLiteral("Height"), QStringLiteral("12000"));  // 800 px
        store.save(QStringLiteral("Top"), QStringLiteral("-1500"));     // -100 px
        store.save(QStringLiteral("Left"), QString::number(1600 * 15)); // the screen width
        g = nd::restoreMainGeometry(store, desk);
        QCOMPARE(g.size(), QSize(1000, 800));
        QCOMPARE(g.y(), 500);
        QCOMPARE(g.x(), 800);

        store.save(QStringLiteral("Top"), QStringLiteral("1500"));
        store.save(QStringLiteral("Left"), QStringLiteral("3000"));
        g = nd::restoreMainGeometry(store, desk);
        QCOMPARE(g.topLeft(), QPoint(200, 100));

        // a second screen to the right: still on screen
        store.save(QStringLiteral("Left"), QString::number(2000 * 15));
        g = nd::restoreMainGeometry(store, QRect(0, 0, 3200, 1000));
        QCOMPARE(g.x(), 2000);

        // a stored tiny window is made usable
        store.save(QStringLiteral("Width"), QStringLiteral("1000"));
        store.save(QStringLiteral("Height"), QStringLiteral("1000"));
        g = nd::restoreMainGeometry(store, desk);
        QVERIFY(g.width() >= nd::MinMainWidth && g.height() >= nd::MinMainHeight);
    }

    void geometryStoredInTwips()
    {
        SettingsStore store;
        nd::storeMainGeometry(store, QRect(10, 20, 800, 600));
        QCOMPARE(store.getDouble(QStringLiteral("Left"), 0), 150.0);
        QCOMPARE(store.getDouble(QStringLiteral("Top"), 0), 300.0);
        QCOMPARE(store.getDouble(QStringLiteral("Width"), 0), 12000.0);
        QCOMPARE(store.getDouble(QStringLiteral("Height"), 0), 9000.0);
    }

    void secondsTickWraps()
    {
        QCOMPARE(nd::nextSecondsTick(0), 1);
        QCOMPARE(nd::nextSecondsTick(32766), 32767);
        QCOMPARE(nd::nextSecondsTick(32767), 0);
    }

    void readOnlyStoreWritesNothing()
    {
        SettingsStore store;
        store.setReadOnly(true);
        store.save(QStringLiteral("NNTPServer"), QStringLiteral("x"));
        QVERIFY(!store.contains(QStringLiteral("NNTPServer")));
    }
};

QTEST_MAIN(TstSettings)
#include "tst_settings.moc"
