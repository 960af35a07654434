// Server checking, the group-list file and the group search against INN: extra nnrpd readers on
// loopback ports, each allowed to see its own set of groups, stand in for separate servers.
#include "app/Paths.h"
#include "app/Wait.h"
#include "gui/app/frmMain.h"
#include "groups/GroupList.h"
#include "news/Session.h"
#include "servers/ServerChecker.h"
#include "servers/ServerList.h"
#include "support/InnEnv.h"
#include "support/TextFile.h"
#include "ui/ItemList.h"
#include "ui/Prompter.h"

#include <QAction>
#include <QElapsedTimer>
#include <QFile>
#include <QGroupBox>
#include <QListView>
#include <QTcpServer>
#include <QTcpSocket>
#include <QTimer>
#include <QtTest>

namespace {

const QString Connected = QStringLiteral("Connected to NNTP Server");
const QString Disconnected = QStringLiteral("Disconnected from NNTP Server");
const QString Unchecked = QStringLiteral("????? ???    ");

bool portOpen(int port)
{
    QTcpSocket s;
    s.connectToHost(QStringLiteral("127.0.0.1"), quint16(port));
    return s.waitForConnected(1000);
}

// Accepts connections and never says a word: a server that hangs.
struct SilentServer {
    QTcpServer server;
    QList<QTcpSocket *> held;
    SilentServer()
    {
        server.listen(QHostAddress::LocalHost);
        QObject::connect(&server, &QTcpServer::newConnection, [this] {
            while (QTcpSocket *s = server.nextPendingConnection())
                held << s;
        });
    }
    QString address() const { return inn::server(server.serverPort()); }
    // runs f once, as soon as a client is held
    QTimer poll;
    void onceHeld(const std::function<void()> &f)
    {
        QObject::connect(&poll, &QTimer::timeout, [this, f] {
            if (!held.isEmpty()) {
                poll.stop();
                f();
            }
        });
        poll.start(5);
    }
};

struct Window {
    ScriptedPrompter p;
    frmMain w{&p, frmMain::Options{true}};
    Window()
    {
        w.opt.Timeout = 15;
        w.opt.NewMsgs = 100;
        w.opt.AutoLoadGroups = 0;   // never asked while a run is quiet
        w.opt.MinimumGroups = 3;
        w.opt.FavoritesFile = nd::appFile(QStringLiteral("NewsdredgeFavorites.fav"));
        w.lstFavorites->clear();
        w.lstFavorites->load(w.opt.FavoritesFile);
    }
    ItemList *servs() { return w.servers->lstServs; }
    // the server list as the setup dialog would have it: items, selection, current item
    void setServers(const QStringList &names, const QList<int> &selected)
    {
        servs()->clear();
        for (const QString &n : names)
            servs()->add(Unchecked + n);
        for (int i : selected)
            servs()->setSelected(i, true);
        if (!selected.isEmpty())
            servs()->setCurrentIndex(selected.first());
        QVERIFY(w.servers->save());
    }
    QStringList serverNames()
    {
        QStringList out;
        for (const QString &t : servs()->texts())
            out << ItemList::serverNameOf(t);
        return out;
    }
    QString state() { return w.session->transport()->StateText(); }
    // what must hold after every run, however it ended
    void verifyRestored(const QStringList &favorites)
    {
        QVERIFY(!w.S.QuietMode);
        QVERIFY(!w.serverChecker->running());
        QCOMPARE(state(), Disconnected);
        QCOMPARE(w.lstFavorites->texts(), favorites);
        QCOMPARE(w.lstHTTP->count(), 0);
        QVERIFY(w.lstGroupsView->isEnabled());
        QVERIFY(w.lstFavoritesView->isEnabled());
        for (const char *on : {"menuCheck", "menuGen", "menuScan", "menuConnect", "menuSetup"})
            QVERIFY2(w.action(on)->isEnabled(), on);
        QVERIFY(!w.action("menuStop")->isEnabled());
        QVERIFY(!p.wasAsked(QStringLiteral("Load Saved Group List?")));
    }
};

} // namespace

class TstCheckerInn : public QObject {
    Q_OBJECT

    QString tag;
    QString g(const QString &rest) const { return QStringLiteral("chk%1.%2").arg(tag, rest); }
    const int portGood = inn::base() + 10, portFew = portGood + 1, portNone = portGood + 2, portClosed = portGood + 9;
    const QString good = inn::server(portGood), few = inn::server(portFew), none = inn::server(portNone),
                  closed = inn::server(portClosed);
    QStringList favorites;   // the favourites file every test starts from

    bool post(const QString &group, int n)
    {
        for (int i = 0; i < n; ++i) {
            const QByteArray a = "From: Checker <chk@example.org>\nNewsgroups: " + group.toUtf8()
                + "\nSubject: check " + QByteArray::number(i) + "\n\nbody " + QByteArray::number(i) + "\n";
            if (inn::post(a).isEmpty())
                return false;
        }
        return true;
    }

private slots:
    void initTestCase()
    {
        tag = QString::number(QDateTime::currentMSecsSinceEpoch() % 100000000);
        QVERIFY2(!portOpen(portClosed), "the closed port is in use");

        // in creation order, which is the order the readers list them in
        const QStringList groups = {g("good.a"), g("good.b"), g("good.c"), g("good.d"), g("few.a"),
                                    g("none.a"), g("none.b"), g("none.c"), g("none.d"), g("shared")};
        for (const QString &grp : groups)
            QVERIFY(inn::newGroup(grp));
        // good.a holds 4 messages (readable); a group with a single message is listed but not
        // readable; shared is readable
        QVERIFY(post(g("good.a"), 4));
        for (const char *one : {"good.b", "good.c", "good.d", "none.a", "none.b", "none.c", "none.d"})
            QVERIFY(post(g(QString::fromLatin1(one)), 1));
        QVERIFY(post(g("few.a"), 4));
        QVERIFY(post(g("shared"), 2));

        struct R { int port; const char *name; QString pattern; const char *access; };
        const R readers[] = {
            {portGood, "chkgood", g("good.*") + QLatin1Char(',') + g("shared"), "RPA"},   // 5 groups, posting
            {portFew, "chkfew", g("few.*") + QLatin1Char(',') + g("shared"), "R"},        // 2 groups
            {portNone, "chknone", g("none.*"), "RPA"},                                    // 4 groups, none readable
        };
        for (const R &r : readers) {
            QVERIFY(inn::harness("stop-reader", {QString::number(r.port)}));
            QVERIFY(inn::harness("start-reader", {QString::number(r.port), QLatin1String(r.name) + tag, r.pattern,
                                                  QLatin1String(r.access)}));
        }

        favorites = {ItemList::marked('1', QStringLiteral("alt.test.newsdredge (%1) (3)").arg(inn::server(inn::portOpen()))),
                     ItemList::marked('4', QStringLiteral("%1 (%2)").arg(g("shared"), good))};
    }

    void init()
    {
        ItemList l;
        l.addMany(favorites);
        QVERIFY(l.save(nd::appFile(QStringLiteral("NewsdredgeFavorites.fav"))));
    }

    void cleanupTestCase()
    {
        for (int p : {portGood, portFew, portNone})
            inn::harness("stop-reader", {QString::number(p)});
    }

    void refusalsStartNothing()
    {
        Window x;
        x.setServers({good, few}, {});
        // check: no current item, nothing happens
        x.w.action("menuCheck")->trigger();
        QVERIFY(x.p.asked.isEmpty());
        QCOMPARE(x.serverNames(), QStringList({good, few}));
        // generate and search: nothing selected
        x.w.action("menuGen")->trigger();
        x.w.action("menuScan")->trigger();
        QCOMPARE(x.p.texts(), QStringList({"Please Select Item(s) First", "Please Select Item(s) First"}));

        // cancelling the file dialog starts nothing
        x.p.clear();
        x.servs()->setSelected(0, true);
        x.servs()->setCurrentIndex(0);
        const QString out = nd::appFile(QStringLiteral("cancelled.txt"));
        x.w.action("menuGen")->trigger();
        QCOMPARE(x.p.asked.size(), 1);
        QCOMPARE(x.p.asked[0].kind, QStringLiteral("save"));
        QVERIFY(x.w.S.OutputFileName.isEmpty());
        QCOMPARE(x.state(), Disconnected);
        QVERIFY(!QFile::exists(out));
        // an empty group name starts nothing either
        x.p.clear();
        x.p.inputs = {QString()};
        x.w.action("menuScan")->trigger();
        QCOMPARE(x.p.texts(), QStringList{"Input Group Name to Look for : "});
        QCOMPARE(x.w.lstFavorites->texts(), favorites);

        // all three are refused while a session is open
        x.p.clear();
        x.w.opt.NNTPServer = good;
        x.w.session->NNTP_Connect(false);
        QCOMPARE(x.state(), Connected);
        x.w.serverChecker->menuCheck();
        x.w.serverChecker->menuGen();
        x.w.serverChecker->menuScan();
        QCOMPARE(x.p.texts(), QStringList({"Please Disconnect First", "Please Disconnect First", "Please Disconnect First"}));
        QCOMPARE(x.serverNames(), QStringList({good, few}));
        x.w.session->NNTP_Disconnect();
    }

    void checkRemovesOnlyTheBadServers()
    {
        Window x;
        const QString other = inn::server(inn::portOpen());
        // good, then one with too few groups (the second), one without readable messages and a
        // closed port; the last server is not selected
        x.setServers({good, few, none, closed, other}, {0, 1, 2, 3});
        // a removed server's group cache goes with it; an earlier log is appended to
        QVERIFY(testfile::writeFile(ServerChecker::groupCacheFile(closed), "alt.old (3)\n"));
        QVERIFY(testfile::writeFile(ServerChecker::checkLogFile(), "earlier\r\n"));

        QElapsedTimer t;
        t.start();
        x.w.action("menuCheck")->trigger();
        QVERIFY2(t.elapsed() < 60000, "a closed port must not hold the run up");

        // the good one is marked: five groups, posting allowed; the unselected one is untouched
        QCOMPARE(x.servs()->texts(), QStringList({QStringLiteral("00005  OK    ") + good, Unchecked + other}));
        // and so is the file, which the run wrote and read back
        ItemList file;
        QVERIFY(file.loadWithSecond(ServerList::listFile()));
        QCOMPARE(file.texts(), x.servs()->texts());
        QCOMPARE(x.w.setupServerFrameCaption(), QStringLiteral("NNTP Servers (2)"));

        const QStringList lines = testfile::lines(ServerChecker::checkLogFile());
        QCOMPARE(lines.size(), 4);
        QCOMPARE(lines[0], QStringLiteral("earlier"));
        const QStringList removed = {few, none, closed};
        for (int i = 0; i < 3; ++i) {
            const QStringList f = lines[i + 1].split(QLatin1Char('\t'));
            QCOMPARE(f.size(), 3);
            QCOMPARE(f[0], removed[i]);
            QVERIFY(!f[1].isEmpty());
            // with a minimum of 3, an empty listing is too few, whatever the reason it is empty
            QCOMPARE(f[2], QStringLiteral(" REMOVED:Not Enough Groups"));
        }
        QVERIFY(QFile::exists(ServerChecker::groupCacheFile(good)));
        for (const QString &s : removed)
            QVERIFY2(!QFile::exists(ServerChecker::groupCacheFile(s)), qPrintable(s));

        x.verifyRestored(favorites);
        QCOMPARE(x.w.opt.NNTPServer, QString());   // the current server is given back
        QVERIFY(x.w.frameHTTP->title().startsWith(QStringLiteral("Web/FTP Addresses")));
    }

    void aServerWithoutReadableMessages()
    {
        Window x;
        x.w.opt.MinimumGroups = 0;
        x.w.opt.NNTPServer = good;
        x.setServers({none, good}, {0});
        QFile::remove(ServerChecker::checkLogFile());
        x.w.action("menuCheck")->trigger();
        QCOMPARE(x.serverNames(), QStringList{good});
        const QStringList lines = testfile::lines(ServerChecker::checkLogFile());
        QCOMPARE(lines.size(), 1);
        QVERIFY(lines[0].startsWith(none + QLatin1Char('\t')));
        QVERIFY(lines[0].endsWith(QStringLiteral("\t REMOVED:No Readable Messages")));
        x.verifyRestored(favorites);
        QCOMPARE(x.w.opt.NNTPServer, good);
    }

    void groupListOfTwoServers()
    {
        Window x;
        // a stale cache of the second server is what a group-list run reads when it is there
        QFile::remove(ServerChecker::groupCacheFile(few));
        x.setServers({few, good, none}, {0, 1});
        const QString out = nd::appFile(QStringLiteral("groups.txt"));
        QFile::remove(out);
        x.p.files = {out};
        x.w.action("menuGen")->trigger();

        const QStringList expected = {
            // the first selected server's groups first, in its order
            g("few.a") + " (" + few + ")", g("shared") + " (" + few + ")",
            g("good.a") + " (" + good + ")", g("good.b") + " (" + good + ")", g("good.c") + " (" + good + ")",
            g("good.d") + " (" + good + ")", g("shared") + " (" + good + ")"};
        QCOMPARE(testfile::lines(out), expected);
        QVERIFY(testfile::readFile(out).endsWith(")\r\n"));
        QCOMPARE(x.w.S.OutputFileName, out);
        QCOMPARE(x.p.texts().last(), QStringLiteral("File Saved : (") + out + QLatin1Char(')'));
        // the server list is left as it was
        QCOMPARE(x.serverNames(), QStringList({few, good, none}));
        x.verifyRestored(favorites);

        // a second run rewrites the file
        x.p.clear();
        x.servs()->clearSelection();
        x.servs()->setSelected(1, true);
        x.p.files = {out};
        x.w.action("menuGen")->trigger();
        QCOMPARE(testfile::lines(out), expected.mid(2));
    }

    void groupSearchAddsEachServerOnce()
    {
        Window x;
        x.setServers({good, few, none}, {0, 1, 2});
        const QString shared = g("shared");
        x.p.inputs = {shared.toUpper()};
        x.w.action("menuScan")->trigger();
        QCOMPARE(x.p.texts(), QStringList{"Input Group Name to Look for : "});
        // good already has it as a favourite; few gets it with its count; none does not carry it
        const QStringList after = favorites + QStringList{ItemList::marked('1', QStringLiteral("%1 (%2) (1)").arg(shared, few))};
        QCOMPARE(testfile::lines(x.w.opt.FavoritesFile), after);
        x.verifyRestored(after);
        QCOMPARE(x.serverNames(), QStringList({good, few, none}));
    }

    void stopEndsTheRunAndGivesEverythingBack()
    {
        SilentServer silent;
        SilentServer second;
        Window x;
        x.w.opt.Timeout = 30;
        x.setServers({silent.address(), second.address(), good}, {0, 1, 2});
        QElapsedTimer sinceStop;
        silent.onceHeld([&] {
            x.w.StopOperation();
            sinceStop.start();
        });
        x.w.action("menuCheck")->trigger();
        QVERIFY(sinceStop.isValid());
        // ended by the Stop, not by the 30 second time-out
        QVERIFY2(sinceStop.elapsed() < 10000, qPrintable(QString::number(sinceStop.elapsed())));
        QCOMPARE(second.held.size(), 0);
        // nothing is removed or marked by a stopped run
        QCOMPARE(x.servs()->texts(), QStringList({Unchecked + silent.address(), Unchecked + second.address(), Unchecked + good}));
        QCOMPARE(x.w.status(1), QStringLiteral("Stopped"));
        x.verifyRestored(favorites);
    }

    void closingTheWindowKeepsTheFavorites()
    {
        SilentServer silent;
        Window x;
        x.setServers({silent.address(), good}, {0, 1});
        silent.onceHeld([&] {
            // the check list stands in the favourites list now
            QCOMPARE(x.w.lstFavorites->count(), 2);
            x.w.close();
        });
        x.w.action("menuCheck")->trigger();
        nd::waitUntil([&] { return x.w.shutdownDone(); });
        // shutdown wrote the favourites, not the servers being checked
        QCOMPARE(testfile::lines(x.w.opt.FavoritesFile), favorites);
        QCOMPARE(x.w.lstFavorites->texts(), favorites);
        QVERIFY(!x.w.S.QuietMode);
        QCOMPARE(x.serverNames(), QStringList({silent.address(), good}));
    }

    void aNormalConnectMarksTheServer()
    {
        Window x;
        QFile::remove(ServerChecker::groupCacheFile(few));
        x.setServers({few, good}, {1});
        x.w.opt.NNTPServer = few;
        x.w.session->NNTP_Connect(true);
        QCOMPARE(x.state(), Connected);
        QCOMPARE(x.w.lstGroups->count(), 2);
        // read-only reader: posting not allowed
        QCOMPARE(x.servs()->text(0), QStringLiteral("00002  NO    ") + few);
        QCOMPARE(x.servs()->text(1), Unchecked + good);
        ItemList file;
        QVERIFY(file.loadWithSecond(ServerList::listFile()));
        QCOMPARE(file.texts(), x.servs()->texts());
        x.w.session->NNTP_Disconnect();
    }
};

QTEST_MAIN(TstCheckerInn)
#include "tst_checker_inn.moc"
