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
        // timeout, minimum groups, auto-load, binaries only, confirm delete, preview, numbers, newest
        QCOMPARE((QList<int>{s.Timeout, s.MinimumGroups, s.AutoLoadGroups, s.BinariesOnly, s.ConfirmFileDelete, s.Preview,
                             s.ShowMNumbers, s.NewMsgs}), (QList<int>{30, 1, 1, 0, 1, 1, 0, 500}));
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
        // every value above differs from its default, so each one read back was stored
        QCOMPARE((QList<int>{r.Preview, r.BinariesOnly, r.SaveHTTP, r.SaveFTP, r.AutoLoadGroups, r.ConfirmFileDelete,
                             r.ShowMNumbers, r.Timeout, r.MinimumGroups}), (QList<int>{0, 1, 0, 0, 0, 0, 1, 45, 250}));
        QCOMPARE((QStringList{r.EmailAddress, r.Name, r.FavoritesFile, r.NNTPServer}),
                 (QStringList{s.EmailAddress, s.Name, s.FavoritesFile, s.NNTPServer}));
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
        QList<double> twips;
        for (const char *key : {"Left", "Top", "Width", "Height"})
            twips << store.getDouble(QLatin1String(key), 0);
        QCOMPARE(twips, (QList<double>{150, 300, 12000, 9000}));
    }

    void secondsTickWraps()
    {
        QCOMPARE((QList<int>{nd::nextSecondsTick(0), nd::nextSecondsTick(32766), nd::nextSecondsTick(32767)}), (QList<int>{1, 32767, 0}));
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
