// Favourites against a real INN server: two readers on two loopback ports stand in for two
// servers; a counting forwarder in front of each tells when a session was opened.
#include "app/Paths.h"
#include "app/Wait.h"
#include "app/frmMain.h"
#include "favorites/CountingProxy.h"
#include "groups/Favorites.h"
#include "news/Session.h"
#include "support/InnEnv.h"
#include "ui/ItemList.h"
#include "ui/Prompter.h"

#include <QAction>
#include <QLabel>
#include <QListView>
#include <QProcess>
#include <QtTest>

namespace {

const QString Connected = QStringLiteral("Connected to NNTP Server");
const QString Disconnected = QStringLiteral("Disconnected from NNTP Server");

struct Window {
    ScriptedPrompter p;
    frmMain w{&p, frmMain::Options{false, true}};
    QString authServer;
    Window()
    {
        w.opt.Timeout = 15;
        w.session->serverData = [this](const QString &s) {
            return s == authServer ? inn::authUser() + QStringLiteral("|||") + inn::authPassword() : QString();
        };
    }
    QString state() { return w.session->transport()->StateText(); }
};

// settles the forwarders' bookkeeping after a disconnect
void settle()
{
    for (int i = 0; i < 5; ++i)
        QTest::qWait(20);
}

} // namespace

class TstFavoritesInn : public QObject {
    Q_OBJECT
private slots:
    void openingAFavoriteSwitchesServersOnlyWhenNeeded()
    {
        CountingProxy a(inn::portOpen());
        CountingProxy b(inn::portAuth());
        Window x;
        x.authServer = b.address();
        x.w.lstFavorites->addMany({ItemList::marked('1', QStringLiteral("alt.test.newsdredge (%1) (3)").arg(a.address())),
                                   ItemList::marked('4', QStringLiteral("alt.newsdredge.text (%1)").arg(b.address()))});
        x.w.opt.NNTPServer = a.address();
        x.w.session->NNTP_Connect(false);
        QCOMPARE(x.state(), Connected);
        QCOMPARE(a.connections, 1);

        // nothing selected: the double-click warns
        QVERIFY(!x.w.favorites->OpenFavorite(true));
        QCOMPARE(x.p.texts(), QStringList{"Please Select Item(s) First"});

        // a favourite of the other server: disconnect, make it current, connect
        x.w.lstFavorites->setSelected(1, true);
        x.w.lstFavorites->setCurrentIndex(1);
        x.w.favorites->OpenFavorite(true);
        settle();
        QCOMPARE(a.closed, 1);
        QCOMPARE(b.connections, 1);
        QCOMPARE(x.state(), Connected);
        QCOMPARE(x.w.opt.NNTPServer, b.address());
        QCOMPARE(x.w.session->transport()->Host(), b.address());
        QCOMPARE(x.w.S.ServerUserId, inn::authUser());
        QCOMPARE(x.w.S.CurrentGroup, QStringLiteral("alt.newsdredge.text"));
        QVERIFY(x.w.windowTitle().contains(b.address()));

        // the same favourite again: the open session is kept
        x.w.favorites->OpenFavorite(true);
        settle();
        QCOMPARE(b.connections, 1);
        QCOMPARE(b.closed, 0);

        // with no session open, a favourite of the current server connects without a disconnect
        x.w.session->NNTP_Disconnect();
        settle();
        QCOMPARE(b.closed, 1);
        x.w.favorites->OpenFavorite(true);
        settle();
        QCOMPARE(b.connections, 2);
        QCOMPARE(x.state(), Connected);
        QCOMPARE(a.connections, 1);
    }

    void favoritesDownloadIsRefusedWhileConnected()
    {
        CountingProxy a(inn::portOpen());
        Window x;
        x.w.lstFavorites->addMany({QStringLiteral("alt.test.newsdredge (%1)").arg(a.address())});
        x.w.opt.NNTPServer = a.address();
        x.w.session->NNTP_Connect(false);
        x.w.lstFavorites->selectAll();
        // the command is off while connected, and the procedure itself refuses too
        QVERIFY(!x.w.action("menuDowloadAllF")->isEnabled());
        x.w.favorites->DownloadFromFavorites();
        QCOMPARE(x.p.texts(), QStringList{"Please Disconnect First"});
        QCOMPARE(a.connections, 1);
        QVERIFY(x.w.lstFavorites->isSelected(0));
        x.w.session->NNTP_Disconnect();
        // and with nothing selected
        x.p.clear();
        x.w.lstFavorites->clearSelection();
        x.w.favorites->DownloadFromFavorites();
        QCOMPARE(x.p.texts(), QStringList{"Please Select Item(s) First"});
    }
};

QTEST_MAIN(TstFavoritesInn)
#include "tst_favorites_inn.moc"
