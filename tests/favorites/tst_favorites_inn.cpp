// Favourites against a real INN server: two readers on two loopback ports stand in for two
// servers; a counting forwarder in front of each tells when a session was opened.
#include "app/Paths.h"
#include "app/Wait.h"
#include "gui/app/frmMain.h"
#include "favorites/CountingProxy.h"
#include "groups/Favorites.h"
#include "news/Session.h"
#include "support/InnEnv.h"
#include "support/TextFile.h"
#include "ui/ItemList.h"
#include "ui/Prompter.h"

#include <QAction>
#include <QLabel>
#include <QListView>
#include <QProcess>
#include <QTemporaryDir>
#include <QTimer>
#include <QtTest>

namespace {

const QString Connected = QStringLiteral("Connected to NNTP Server");
const QString Disconnected = QStringLiteral("Disconnected from NNTP Server");

struct Window {
    ScriptedPrompter p;
    frmMain w{&p, frmMain::Options{true}};
    QString authServer;   // the server that asks for the test credentials
    explicit Window(const QString &auth) : authServer(auth)
    {
        w.opt.Timeout = 15;
        w.session->serverData = [this](const QString &s) {
            return s == authServer ? inn::authUser() + QStringLiteral("|||") + inn::authPassword() : QString();
        };
    }
    QString state() { return w.session->transport()->StateText(); }
};

// settles the forwarders' bookkeeping after a disconnect
void settle() { QTest::qWait(100); }

QByteArray uuencoded(const QString &name, const QByteArray &data)
{
    QProcess p;
    p.start(QStringLiteral("uuencode"), {name});
    p.write(data);
    p.closeWriteChannel();
    p.waitForFinished(30000);
    return p.readAllStandardOutput();
}

QByteArray randomBytes(int n, quint32 seed)
{
    QByteArray b(n, Qt::Uninitialized);
    quint32 x = seed;
    for (int i = 0; i < n; ++i) {
        x = x * 1664525u + 1013904223u;
        b[i] = char(x >> 24);
    }
    return b;
}

} // namespace

class TstFavoritesInn : public QObject {
    Q_OBJECT
private slots:
    void openingAFavoriteSwitchesServersOnlyWhenNeeded()
    {
        // the favourite's group must hold a message, or its listing clears the current group
        QVERIFY(!inn::post("From: Fav <fav@example.org>\nNewsgroups: alt.newsdredge.text\nSubject: for the favourite\n\nhello\n").isEmpty());
        CountingProxy a(inn::portOpen());
        CountingProxy b(inn::portAuth());
        Window x(b.address());
        x.w.lstFavorites->addMany({ItemList::marked('1', QStringLiteral("alt.test.newsdredge (%1) (3)").arg(a.address())),
                                   ItemList::marked('4', QStringLiteral("alt.newsdredge.text (%1)").arg(b.address()))});
        x.w.opt.NNTPServer = a.address();
        x.w.session->NNTP_Connect(false);
        QCOMPARE(x.state(), Connected);
        QCOMPARE(a.connections, 1);

        // nothing selected: the double-click warns
        QVERIFY(!x.w.favorites->OpenFavorite(true));
        QCOMPARE(x.p.texts(), QStringList{"Please Select Item(s) First"});
        // while connected the favourites download is off, and refuses when called anyway
        x.w.lstFavorites->selectAll();
        QVERIFY(!x.w.action("menuDowloadAllF")->isEnabled());
        x.w.favorites->DownloadFromFavorites();
        QCOMPARE(x.p.texts().last(), QStringLiteral("Please Disconnect First"));
        QCOMPARE(a.connections, 1);
        QVERIFY(x.w.lstFavorites->isSelected(0));
        x.w.lstFavorites->clearSelection();

        // a favourite of the other server: disconnect, make it current, connect
        x.w.lstFavorites->setSelected(1, true);
        x.w.lstFavorites->setCurrentIndex(1);
        x.w.favorites->OpenFavorite(true);
        settle();
        QCOMPARE((QList<int>{a.closed, b.connections}), (QList<int>{1, 1}));
        QCOMPARE(x.state(), Connected);
        QCOMPARE(x.w.opt.NNTPServer, b.address());
        QCOMPARE(x.w.session->transport()->Host(), b.address());
        QCOMPARE(x.w.S.ServerUserId, inn::authUser());
        QCOMPARE(x.w.S.CurrentGroup, QStringLiteral("alt.newsdredge.text"));
        // and the group is listed
        QVERIFY2(x.w.lblGrp->text().endsWith(QStringLiteral("  Group : alt.newsdredge.text")), qPrintable(x.w.lblGrp->text()));
        QVERIFY(x.w.windowTitle().contains(b.address()));

        // the same favourite again: the open session is kept
        x.w.favorites->OpenFavorite(true);
        settle();
        QCOMPARE((QList<int>{b.connections, b.closed}), (QList<int>{1, 0}));

        // with no session open, a favourite of the current server connects without a disconnect
        x.w.session->NNTP_Disconnect();
        settle();
        QCOMPARE(b.closed, 1);
        x.w.favorites->OpenFavorite(true);
        settle();
        QCOMPARE((QList<int>{a.connections, b.connections}), (QList<int>{1, 2}));
        QCOMPARE(x.state(), Connected);
    }

    void favoritesDownloadOverTwoServers()
    {
        CountingProxy a(inn::portOpen());
        CountingProxy b(inn::portAuth());
        CountingProxy c(inn::portNoPost());
        const QString tag = QString::number(QDateTime::currentMSecsSinceEpoch() % 100000000);
        QStringList groups;
        QList<QByteArray> originals;
        for (int i = 0; i < 3; ++i) {
            const QString g = QStringLiteral("alt.binaries.newsdredge.fav%1.t%2").arg(i + 1).arg(tag);
            QVERIFY(inn::newGroup(g));
            groups << g;
            originals << randomBytes(20000 + 777 * i, 17u + i);
            const QString name = QStringLiteral("fav%1-%2.bin").arg(i + 1).arg(tag);
            const QByteArray article = "From: poster@x.test\r\nNewsgroups: " + g.toUtf8() + "\r\nSubject: Favourite file " + name.toUtf8()
                + " (1/1)\r\n\r\n" + uuencoded(name, originals.last());
            QVERIFY(!inn::post(article).isEmpty());
        }
        QTemporaryDir dest;
        Window x(b.address());
        x.w.opt.DestDir = dest.path() + QLatin1Char('/');
        x.w.opt.NNTPServer = c.address();
        // two favourites of server a, one of b, and one of c that is not selected
        x.w.lstFavorites->addMany({QStringLiteral("%1 (%2)").arg(groups[0], a.address()),
                                   QStringLiteral("%1 (%2)").arg(groups[1], c.address()),
                                   ItemList::marked('4', QStringLiteral("%1 (%2)").arg(groups[1], a.address())),
                                   ItemList::marked('1', QStringLiteral("%1 (%2) (1)").arg(groups[2], b.address()))});
        for (int i : {0, 2, 3})
            x.w.lstFavorites->setSelected(i, true);
        QVERIFY(x.w.action("menuDowloadAllF")->isEnabled());
        x.w.action("menuDowloadAllF")->trigger();
        settle();

        // each server was connected once, when its first favourite came up; c never
        // and the run ends disconnected: connections and closes of a, b, c
        QCOMPARE((QList<int>{a.connections, b.connections, c.connections, a.closed, b.closed, c.closed}), (QList<int>{1, 1, 0, 1, 1, 0}));
        QCOMPARE(x.state(), Disconnected);
        QCOMPARE(x.w.status(1), QStringLiteral("Finished Downloading From Favorites"));
        QCOMPARE(x.w.lstFavorites->selectedCount(), 0);
        QVERIFY(x.w.lstFavoritesView->isEnabled());
        // the files of the three groups are there, byte for byte
        for (int i = 0; i < 3; ++i) {
            QCOMPARE(testfile::readFile(dest.filePath(QStringLiteral("fav%1-%2.bin").arg(i + 1).arg(tag))), originals[i]);
        }
        // the listings marked the favourites that were visited
        QCOMPARE(ItemList::markerDigit(x.w.lstFavorites->text(0)), QChar('1'));
        QCOMPARE(ItemList::markerDigit(x.w.lstFavorites->text(2)), QChar('1'));
        QCOMPARE(x.w.lstFavorites->text(1), QStringLiteral("%1 (%2)").arg(groups[1], c.address()));
    }
    void stopEndsTheRunDisconnected()
    {
        CountingProxy a(inn::portOpen());
        CountingProxy b(inn::portAuth());
        Window x(b.address());
        x.w.lstFavorites->addMany({QStringLiteral("alt.test.newsdredge (%1)").arg(a.address()),
                                   QStringLiteral("alt.newsdredge.text (%1)").arg(a.address()),
                                   QStringLiteral("alt.newsdredge.text (%1)").arg(b.address())});
        // nothing selected: nothing starts
        x.w.favorites->DownloadFromFavorites();
        QCOMPARE(x.p.texts(), QStringList{"Please Select Item(s) First"});
        QCOMPARE(a.connections, 0);
        x.w.lstFavorites->selectAll();
        // Stop as soon as the first server answers
        QTimer stopper;
        QObject::connect(&stopper, &QTimer::timeout, [&] {
            if (a.connections > 0) {
                x.w.StopOperation();
                stopper.stop();
            }
        });
        stopper.start(5);
        x.w.favorites->DownloadFromFavorites();
        settle();
        QCOMPARE(b.connections, 0);
        QCOMPARE(x.state(), Disconnected);
        QCOMPARE(a.closed, a.connections);
        QVERIFY(x.w.lstFavorites->isSelected(2));
        QVERIFY(x.w.lstFavoritesView->isEnabled());
    }
};

QTEST_MAIN(TstFavoritesInn)
#include "tst_favorites_inn.moc"
