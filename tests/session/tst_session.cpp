#include "app/BatchShell.h"
#include "app/Core.h"
#include "app/Paths.h"
#include "app/Wait.h"
#include "gui/app/frmMain.h"
#include "groups/GroupList.h"
#include "news/Session.h"
#include "support/ScriptedNntpServer.h"
#include "ui/ItemList.h"
#include "ui/Prompter.h"

#include <QAction>
#include <QApplication>
#include <QDialog>
#include <QElapsedTimer>
#include <QFile>
#include <QLabel>
#include <QtTest>
#include <sys/resource.h>

namespace {

const QString Disconnected = QStringLiteral("Disconnected from NNTP Server");
const QString Unable = QStringLiteral("Unable to Connect - ");

double cpuSeconds()
{
    rusage u{};
    getrusage(RUSAGE_SELF, &u);
    return u.ru_utime.tv_sec + u.ru_stime.tv_sec + (u.ru_utime.tv_usec + u.ru_stime.tv_usec) / 1e6;
}

struct Window {
    ScriptedPrompter p;
    frmMain w{&p, frmMain::Options{true}};
    QHash<QString, QString> data;   // server -> credential string
    Window()
    {
        w.session->serverData = [this](const QString &s) { return data.value(s); };
        w.opt.Timeout = 10;
    }
    // connects to the server and tells whether the session is open and idle
    bool connectTo(const QString &server)
    {
        w.opt.NNTPServer = server;
        w.session->NNTP_Connect(false);
        return w.IsConnectedIdle(false);
    }
    QString state() { return w.session->transport()->StateText(); }
};

} // namespace

class TstSession : public QObject {
    Q_OBJECT
private slots:
    void connectAndDisconnectSwitchTheWindow()
    {
        ScriptedNntpServer srv;
        Window x;
        QElapsedTimer t;   // a disconnect of a fresh object returns at once
        t.start();
        x.w.session->NNTP_Disconnect();
        QVERIFY(t.elapsed() < 2000);
        QCOMPARE(x.state(), Disconnected);
        QVERIFY(x.connectTo(srv.address()));
        QCOMPARE(x.w.action("menuConnect")->text(), QStringLiteral("&Disconnect"));
        QCOMPARE(x.w.toolButton("Disconnect")->toolTip(), QStringLiteral("Disconnect"));
        QCOMPARE(x.w.S.ServerFileTag, QStringLiteral("127_0_0_1_%1").arg(srv.serverPort()));
        QVERIFY(x.w.S.PostingAllowed);
        QVERIFY(x.w.IsConnectedIdle(false));
        QVERIFY(!x.w.action("menuStop")->isEnabled());
        // the same server again does nothing
        x.w.session->NNTP_Connect(false);
        QCOMPARE(srv.connections, 1);
        // the connect command toggles by its caption
        x.w.action("menuConnect")->trigger();
        QCOMPARE(x.state(), Disconnected);
        QCOMPARE(x.w.action("menuConnect")->text(), QStringLiteral("&Connect to Server"));
        QCOMPARE(x.w.status(1), QStringLiteral("Click on CONNECT to connect to Server"));
        QCOMPARE(x.w.lblGrp->text(), QStringLiteral("  Group List"));
        QCOMPARE(x.w.toolButton("Connect")->toolTip(), QStringLiteral("Connect"));
        QVERIFY(srv.sawCommand("QUIT"));
    }

    void credentialsFromTheDataString()
    {
        ScriptedNntpServer srv;
        Window x;
        // a data string beginning with the separator: no credentials at all
        x.data[srv.address()] = QStringLiteral("|||secret");
        QVERIFY(x.connectTo(srv.address()));
        QVERIFY(!srv.sawCommand("AUTHINFO"));
        x.w.session->NNTP_Disconnect();
        // ending with the separator: user ID and an empty password
        srv.commands.clear();
        x.data[srv.address()] = QStringLiteral("reader|||");
        QVERIFY(x.connectTo(srv.address()));
        QVERIFY(srv.sawCommand("AUTHINFO USER reader"));
        QCOMPARE(x.w.S.ServerUserId, QStringLiteral("reader"));
        QCOMPARE(x.w.S.ServerPassword, QString());
        QCOMPARE(NewsSession::splitCredentials(QStringLiteral("a|||b|||c")), qMakePair(QStringLiteral("a"), QStringLiteral("b|||c")));
        QCOMPARE(NewsSession::splitCredentials(QStringLiteral("no separator")), qMakePair(QString(), QString()));
    }

    void switchingServersDeletesTheOldCaches()
    {
        ScriptedNntpServer a, b;
        Window x;
        QVERIFY(x.connectTo(a.address()));
        const QString cacheA = nd::appFile(NewsSession::ServerFileTag(a.address()) + QStringLiteral("-alt_test.tmp"));
        const QString cacheB = nd::appFile(NewsSession::ServerFileTag(b.address()) + QStringLiteral("-alt_test.tmp"));
        for (const QString &f : {cacheA, cacheB})
            QVERIFY(QFile(f).open(QIODevice::WriteOnly));
        QVERIFY(x.connectTo(b.address()));
        QCOMPARE(x.w.session->transport()->Host(), b.address());
        QVERIFY(a.sawCommand("QUIT"));
        QVERIFY(!QFile::exists(cacheA));
        QVERIFY(QFile::exists(cacheB));
    }

    void silentServerGivesUpWithinTimeoutWithoutBurningCpu()
    {
        ScriptedNntpServer srv;
        srv.silent = true;
        Window x;
        x.w.opt.NNTPServer = srv.address();
        x.w.opt.Timeout = 5;
        QElapsedTimer t;
        t.start();
        const double cpu0 = cpuSeconds();
        x.w.session->NNTP_Connect(false);
        const double cpu = cpuSeconds() - cpu0;
        QVERIFY(!x.w.IsConnectedIdle(false));
        // gives up after the sixth second tick at the latest
        QVERIFY2(t.elapsed() <= 7000, qPrintable(QString::number(t.elapsed())));
        QVERIFY2(t.elapsed() >= 4000, qPrintable(QString::number(t.elapsed())));
        QVERIFY2(cpu < 0.5, qPrintable(QStringLiteral("CPU %1 s while waiting").arg(cpu)));
        QVERIFY(x.w.status(2).startsWith(Unable));
        QCOMPARE(x.w.S.LastFailureReason, QStringLiteral("Could Not Connect "));
        QCOMPARE(x.w.action("menuConnect")->text(), QStringLiteral("&Connect to Server"));
        QVERIFY(x.w.action("menuConnect")->isEnabled());

        // a refused connection fails at once, with its reason
        quint16 port;
        {
            QTcpServer probe;
            probe.listen(QHostAddress::LocalHost, 0);
            port = probe.serverPort();
        }
        t.start();
        QVERIFY(!x.connectTo(QStringLiteral("127.0.0.1:%1").arg(port)));
        QVERIFY(t.elapsed() < 5000);
        QVERIFY(x.w.status(2).startsWith(Unable) && x.w.status(2).size() > Unable.size());
    }

    void postingPermissionComesFromTheConnect()
    {
        ScriptedNntpServer srv;
        srv.greeting = "201 no posting here\r\n";
        Window x;
        x.w.S.PostingAllowed = true;
        QVERIFY(x.connectTo(srv.address()));
        QVERIFY(!x.w.S.PostingAllowed);
        // outside a connect the phrases change nothing
        x.w.session->Debug(x.w.session->transport(), QStringLiteral("200 Posting Allowed"));
        QVERIFY(!x.w.S.PostingAllowed);
    }

    void failedTransactionShowsTheLastLineUnlessQuietAndLimitExceededDisconnects()
    {
        ScriptedNntpServer srv;
        srv.respond = [](const QByteArray &cmd) -> QByteArray {
            if (cmd.startsWith("GROUP"))
                return "411 no such group\r\n";
            if (cmd.startsWith("QUIT"))
                return "205 bye\r\n";
            return "200 ok\r\n";
        };
        Window x;
        QVERIFY(x.connectTo(srv.address()));
        QVERIFY(!x.w.session->runTransaction([](NewsTransport *t) { t->SelectGroup(QStringLiteral("alt.nowhere")); }));
        QCOMPARE(x.w.S.TransportError, -1);
        QTRY_VERIFY(x.p.wasAsked(QStringLiteral("411 no such group")));
        x.p.clear();
        x.w.S.QuietMode = true;
        QVERIFY(!x.w.session->runTransaction([](NewsTransport *t) { t->SelectGroup(QStringLiteral("alt.nowhere")); }));
        QCOMPARE(x.w.S.TransportError, -1);
        QTest::qWait(50);
        QVERIFY(x.p.asked.isEmpty());

        x.w.S.QuietMode = false;
        x.p.answers = {Prompter::AnswerOk, Prompter::AnswerNo};
        x.w.session->Debug(x.w.session->transport(), QStringLiteral("502 download limit exceeded"));
        QCOMPARE(x.w.S.TransportError, -1);
        QTRY_VERIFY(!x.w.IsConnectedIdle(false));
        QTRY_VERIFY(x.p.wasAsked(QStringLiteral("Would you like information on additional download bandwidth?")));
        QVERIFY(x.p.wasAsked(QStringLiteral("We're sorry, but your Download Limit has been exceeded.")));
    }

    void noServerConfigured()
    {
        Window x;
        x.p.answers = {Prompter::AnswerOk, Prompter::AnswerNo, Prompter::AnswerOk};
        // the setup dialog opens modally: close it once it shows
        QString shown;
        QTimer::singleShot(0, &x.w, [&] {
            if (auto *d = qobject_cast<QDialog *>(QApplication::activeModalWidget())) {
                shown = d->objectName();
                d->reject();
            }
        });
        x.w.session->NNTP_Connect(true);
        QCOMPARE(shown, QStringLiteral("frmSetup"));
        QCOMPARE(x.p.texts().mid(0, 3), (QStringList{
            "Newsdredge! has detected no Usenet server configured.",
            "We highly recommend a free Usenet account.  Would you like to go there now?",
            "Please manually configure Newsdredge! with Usenet Server, ID and Password if necessary in setup to use this functionality."}));
    }

    // The session and the group list over a shell with no window: the Connect command opens the
    // session and loads the list, a refused list is told through the load's result, and the
    // command then closes the session.
    void sessionAndGroupListRunWithoutAWindow()
    {
        ScriptedNntpServer srv;
        bool refuse = false;
        srv.respond = [&refuse, base = srv.respond](const QByteArray &cmd) -> QByteArray {
            if (cmd.startsWith("LIST"))
                return refuse ? "503 program fault\r\n" : "215 list\r\nalt.one 20 11 y\r\nalt.two 5 5 y\r\n.\r\n";
            return base(cmd);
        };
        ScriptedPrompter p;
        BatchShell sh(&p);
        Core core(sh);
        sh.opt.NNTPServer = srv.address();
        sh.opt.Timeout = 10;
        NewsSession session(sh, *core.lstGroups, *core.lstMsgBuffer, *core.grid);
        GroupList groups(sh, session, *core.lstGroups, *core.lstMsgBuffer, *core.grid);
        int loaded = 0;
        connect(&groups, &GroupList::groupListLoaded, [&loaded] { ++loaded; });

        QVERIFY(sh.runCommand(nd::Cmd::Connect));
        QVERIFY(session.isConnected());
        QCOMPARE(core.lstGroups->texts(), (QStringList{ItemList::marked('1', "alt.one (9)"), "alt.two (0)"}));
        QCOMPARE(loaded, 1);
        QCOMPARE(sh.status(nd::PanelState), QStringLiteral("Double-click Group to List Messages"));
        QVERIFY(sh.menuState(nd::Cmd::Groups));
        QVERIFY(!sh.menuState(nd::Cmd::Stop));

        refuse = true;
        const TransactionResult r = groups.LoadGroupList(false);
        QCOMPARE(r.outcome, TransactionResult::Outcome::Failed);
        QCOMPARE(r.status, 503);
        QCOMPARE(sh.status(nd::PanelDetail), QStringLiteral("Error Retrieving Group List"));
        QCOMPARE(loaded, 1);
        QVERIFY(session.isConnected());

        // the command reads "Disconnect" now
        QVERIFY(sh.runCommand(nd::Cmd::Connect));
        QVERIFY(!session.isConnected());
        QVERIFY(srv.sawCommand("QUIT"));
        QCOMPARE(sh.status(nd::PanelState), QStringLiteral("Click on CONNECT to connect to Server"));
        QVERIFY(core.lstGroups->texts().isEmpty());
    }
};

QTEST_MAIN(TstSession)
#include "tst_session.moc"
