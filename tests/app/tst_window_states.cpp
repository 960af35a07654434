// The main window as a person meets it, against a scripted news server: which commands are on
// at start-up, while connected and during a download; the Connect button; Setup's Cancel; Find
// over the list that was active; the post window's refusal; temporary files at start-up.
#include "app/Commands.h"
#include "app/Paths.h"
#include "gui/app/frmMain.h"
#include "groups/GroupList.h"
#include "messages/MessageGrid.h"
#include "messages/GridController.h"
#include "news/Session.h"
#include "gui/options/frmSetup.h"
#include "post/Poster.h"
#include "gui/messages/frmFind.h"
#include "gui/post/PostWindows.h"
#include "gui/post/frmPostMsg.h"
#include "servers/ServerList.h"
#include "support/ScriptedNntpServer.h"
#include "support/TextFile.h"
#include "ui/ItemList.h"
#include "ui/Prompter.h"

#include <QAction>
#include <QApplication>
#include <QDir>
#include <QGroupBox>
#include <QFile>
#include <QItemSelectionModel>
#include <QLineEdit>
#include <QListView>
#include <QPushButton>
#include <QTableView>
#include <QTimer>
#include <QtTest>

namespace {

QByteArray article(int n, const QByteArray &subject, const QByteArray &body)
{
    return "220 " + QByteArray::number(n) + " <a" + QByteArray::number(n) + "@x> article\r\nFrom: a@b\r\nSubject: " + subject
           + "\r\nMessage-ID: <a" + QByteArray::number(n) + "@x>\r\n\r\n" + body + ".\r\n";
}

QByteArray overLine(int n, const QByteArray &subject)
{
    return QByteArray::number(n) + "\t" + subject + "\tAnn <ann@example.org>\tMon, 2 Nov 2026 10:0" + QByteArray::number(n % 10)
           + ":00 +0000\t<a" + QByteArray::number(n) + "@x>\t\t100\t3";
}

// A news server with two groups; alt.test holds three plain messages.
struct Server {
    ScriptedNntpServer srv;
    std::function<void(int)> onArticle;   // called while an ARTICLE is being answered
    QByteArray user;                      // credentials the server asks for ("" = none)
    void attach(frmMain &w) const
    {
        w.opt.NNTPServer = srv.address();
        w.opt.Timeout = 10;
        w.opt.NewMsgs = 0;
    }
    Server()
    {
        srv.respond = [this, base = srv.respond](const QByteArray &cmd) -> QByteArray {
            const QList<QByteArray> f = cmd.split(' ');
            if (cmd == "LIST ACTIVE" || cmd == "LIST")
                return "215 list\r\nalt.test 0000000003 0000000001 y\r\nalt.other 0000000010 0000000001 y\r\n.\r\n";
            if (f[0] == "GROUP")
                return f.value(1) == "alt.test" ? "211 3 1 3 alt.test\r\n" : "211 10 1 10 " + f.value(1) + "\r\n";
            if (cmd == "LIST OVERVIEW.FMT")
                return "500 no\r\n";
            if (f[0] == "OVER" || f[0] == "XOVER") {
                QByteArray out = "224 follows\r\n";
                for (int n = 1; n <= 3; ++n)
                    out += overLine(n, "message " + QByteArray::number(n)) + "\r\n";
                return out + ".\r\n";
            }
            if (f[0] == "ARTICLE") {
                const int n = f.value(1).toInt();
                if (onArticle)
                    onArticle(n);
                return article(n, "message " + QByteArray::number(n), "Hello\r\n");
            }
            if (f[0] == "AUTHINFO" && !user.isEmpty()) {
                if (f.value(1).toUpper() == "USER")
                    return f.value(2) == user ? "381 more\r\n" : "481 no\r\n";
                return "281 ok\r\n";
            }
            return base(cmd);
        };
    }
};

QImage iconImage(QAction *a)
{
    return a ? a->icon().pixmap(16, 16).toImage() : QImage();
}

} // namespace

class TstWindowStates : public QObject {
    Q_OBJECT
    static frmMain::Options quiet() { return frmMain::Options{true}; }

    // Connects through the command, lists the group list and opens alt.test as a person does.
    static void connectAndList(frmMain &w)
    {
        w.action(QStringLiteral("menuConnect"))->trigger();
        QTRY_VERIFY(w.lstGroups->count() == 2);
        const int at = w.lstGroups->findGroup(QStringLiteral("alt.test"));
        QVERIFY(at >= 0);
        w.lstGroups->clearSelection();
        w.lstGroups->setSelected(at, true);
        w.lstGroups->setCurrentIndex(at);
        w.groups->openSelectedGroup();
        QCOMPARE(w.grid->lastMessageRow(), 3);
    }

private slots:
    void init()
    {
        QFile::remove(SettingsStore().fileName());
        QFile::remove(ServerList::listFile());
    }

    // Every command: at start-up, while a download runs, and once it has ended.
    void commandStates()
    {
        using nd::Cmd;
        // Commands grouped by their states at start-up, while downloading and once listed. A
        // listing leaves the favourites' and the server-address commands on (they refuse to
        // start while a download runs) and Refresh Group List off.
        struct Row {
            bool atStart, downloading, listed;
            QList<Cmd> cmds;
        };
        const Row table[] = {
            {true, false, true, {Cmd::Setup, Cmd::Connect}},
            {false, false, true, {Cmd::Groups, Cmd::Download, Cmd::DownloadAll, Cmd::View, Cmd::PostCurrent, Cmd::EmailCurrent,
                                  Cmd::WebCurrent, Cmd::WebMessages, Cmd::ServersCurrent, Cmd::RefreshMessages}},
            {false, true, false, {Cmd::Stop}},
            {true, true, true, {Cmd::Exit, Cmd::Find, Cmd::FindNext, Cmd::DownloadFavorites, Cmd::PostFavorites, Cmd::EmailFavorites,
                                Cmd::EmailServers, Cmd::WebFavorites, Cmd::ServersServers, Cmd::ServersFavorites, Cmd::LoadFavorites}},
            {false, true, true, {Cmd::PostGroups, Cmd::EmailGroups, Cmd::WebGroups, Cmd::ServersGroups}},
            {true, false, false, {Cmd::FindGroupOnServers, Cmd::GenerateGroupList, Cmd::CheckServers}},
            {false, false, false, {Cmd::RefreshGroups}},
        };
        // the toolbar buttons stand for the commands at their positions
        const QMap<Cmd, QString> buttons = {{Cmd::Setup, "Setup"}, {Cmd::Groups, "Groups"}, {Cmd::Stop, "Stop"},
                                              {Cmd::Download, "Download"}, {Cmd::View, "View"}, {Cmd::PostCurrent, "Post"}};

        Server s;
        ScriptedPrompter p;
        frmMain w(&p, quiet());
        s.attach(w);
        QTemporaryDir dest;
        w.opt.DestDir = dest.path() + QLatin1Char('/');

        auto check = [&](const char *when, auto column) {
            QStringList wrong;
            for (const Row &r : table)
                for (Cmd cmd : r.cmds) {
                    const QString name = nd::commandName(cmd);
                    const bool want = column(r);
                    QAction *a = w.action(name);
                    if (!a || a->isEnabled() != want)
                        wrong << QStringLiteral("%1 %2").arg(name, want ? "off" : "on");
                    QAction *b = w.toolButton(buttons.value(cmd));
                    if (buttons.contains(cmd) && (!b || b->isEnabled() != want))
                        wrong << QStringLiteral("button %1 %2").arg(buttons.value(cmd), want ? "off" : "on");
                }
            const QString connectKey = w.toolButton(QStringLiteral("Connect")) ? QStringLiteral("Connect") : QStringLiteral("Disconnect");
            if (w.toolButton(connectKey)->isEnabled() != w.action(QStringLiteral("menuConnect"))->isEnabled())
                wrong << QStringLiteral("button %1 differs from its command").arg(connectKey);
            return wrong.isEmpty() ? QString() : QStringLiteral("%1: %2").arg(QLatin1String(when), wrong.join(", "));
        };

        QCOMPARE(check("start-up", [](const Row &r) { return r.atStart; }), QString());

        connectAndList(w);
        QCOMPARE(check("listed", [](const Row &r) { return r.listed; }), QString());

        QString during;
        bool groupsOpenable = true;
        s.onArticle = [&](int) {
            if (!during.isNull())
                return;
            during = check("downloading", [](const Row &r) { return r.downloading; });
            groupsOpenable = w.lstGroupsView->isEnabled();
        };
        QItemSelectionModel *sel = w.MSHResults->selectionModel();
        for (int r = 1; r <= 2; ++r)
            sel->select(w.grid->index(r - 1, 0), QItemSelectionModel::Select | QItemSelectionModel::Rows);
        w.action(QStringLiteral("menuDownload"))->trigger();
        QVERIFY(s.srv.sawCommand("ARTICLE"));
        QCOMPARE(during, QString());
        QVERIFY2(!groupsOpenable, "another group can be opened while the download runs");

        // the download gives everything back
        QCOMPARE(check("after the download", [](const Row &r) { return r.listed; }), QString());
        QVERIFY(w.lstGroupsView->isEnabled());
    }

    // An address harvest over the current group keeps off what would end it early: a new
    // group list, a listing, a reconnect; afterwards they are as the listing left them.
    void harvestHoldsWhatWouldEndIt()
    {
        Server s;
        ScriptedPrompter p;
        frmMain w(&p, quiet());
        s.attach(w);
        connectAndList(w);
        const QStringList held = {"menuGroup", "menuConnect", "menuRefreshM", "menuRefreshG"};
        QMap<QString, bool> before, during;
        for (const QString &n : held)
            before[n] = w.action(n)->isEnabled();
        s.onArticle = [&](int) {
            if (!during.isEmpty())
                return;
            for (const QString &n : held)
                during[n] = w.action(n)->isEnabled() || w.toolButton(QStringLiteral("Groups"))->isEnabled();
        };
        w.action(QStringLiteral("menuWebC"))->trigger();
        QVERIFY(s.srv.sawCommand("ARTICLE"));
        for (const QString &n : held) {
            QVERIFY2(!during.value(n, true), qPrintable(n + " on during the harvest"));
            QVERIFY2(w.action(n)->isEnabled() == before[n], qPrintable(n + " not given back"));
        }
        QVERIFY(p.wasAsked(QStringLiteral("0 Web/FTP Addresses found and saved.")));
    }

    // The Connect button shows Disconnect's picture while connected and Connect's again after.
    void connectButtonFollowsTheSession()
    {
        Server s;
        ScriptedPrompter p;
        frmMain w(&p, quiet());
        s.attach(w);
        QAction *button = w.toolButton(QStringLiteral("Connect"));
        const QImage connectLook = iconImage(button);
        w.toolbarClick(QStringLiteral("Connect"));
        QTRY_VERIFY(w.IsConnectedIdle(false));
        QCOMPARE(w.toolButton(QStringLiteral("Disconnect")), button);
        QVERIFY(iconImage(button) != connectLook);
        w.toolbarClick(QStringLiteral("Disconnect"));
        QVERIFY(!w.IsConnectedIdle(false));
        QCOMPARE(w.toolButton(QStringLiteral("Connect")), button);
        QCOMPARE(iconImage(button), connectLook);
    }

    // Start-up removes what an abrupt end left: the application directory's and the download
    // directory's own temporary files, nothing else.
    void startUpCleansBothTemporaryDirectories()
    {
        QTemporaryDir dest;
        const QString d = dest.path() + QLatin1Char('/');
        for (const char *n : {"123456.tmp", "~image2.tmp", "keep.tmp", "999999.tmp", "pic.jpg"})
            QVERIFY(testfile::writeFile(d + QLatin1String(n), "x"));
        QVERIFY(testfile::writeFile(nd::appFile(QStringLiteral("left.tmp")), "x"));
        {
            SettingsStore st;
            st.save(QStringLiteral("DestDir"), d);
            st.save(QStringLiteral("NNTPServer"), QStringLiteral("127.0.0.1:1"));
            st.sync();
        }
        ScriptedPrompter p;
        frmMain w(&p, quiet());
        w.startUp();
        QCOMPARE(w.opt.DestDir, d);
        QVERIFY(!QFile::exists(nd::appFile(QStringLiteral("left.tmp"))));
        QStringList left = QDir(d).entryList(QDir::Files | QDir::Hidden);
        left.sort();
        QCOMPARE(left, (QStringList{"999999.tmp", "keep.tmp", "pic.jpg"}));
    }

    // Cancel gives back the server list, its credentials and the current server; the next
    // connect uses what was there before the dialog opened.
    void setupCancelKeepsNoServerEdits()
    {
        Server s;
        s.user = "alice";
        ScriptedPrompter p;
        frmMain w(&p, quiet());
        w.opt.Timeout = 10;
        w.servers->lstServs->add(ServerList::Unchecked + s.srv.address(), QStringLiteral("alice|||pw"));
        w.servers->lstServs->add(QStringLiteral("00100  OK    news.b.example"));
        QVERIFY(w.servers->save());
        w.opt.NNTPServer = s.srv.address();

        w.setup = new frmSetup(w.shell(), *w.servers, w.session, &w);
        w.setup->openSetup();
        const QStringList before = w.servers->lstServs->texts();
        QVERIFY2(before.size() == 2, qPrintable(before.join(" / ")));
        // typed credentials for the scripted server, a new server, the other one deleted
        w.servers->makeCurrent(w.servers->findServer(s.srv.address()));
        w.setup->txtUserID->setText(QStringLiteral("mallory"));
        emit w.setup->txtUserID->editingFinished();
        QCOMPARE(w.servers->serverData(s.srv.address()), QStringLiteral("mallory|||pw"));
        p.inputs = {QStringLiteral("news.new.example")};
        w.setup->serverButton(QStringLiteral("New"))->trigger();
        w.servers->makeCurrent(w.servers->findServer(QStringLiteral("news.b.example")));
        w.servers->menuDelete();
        QCOMPARE(w.servers->lstServs->count(), 2);
        w.setup->cmdCancel->click();
        QVERIFY(!w.setup->isVisible());

        QCOMPARE(w.servers->lstServs->texts(), before);
        QCOMPARE(w.servers->serverData(s.srv.address()), QStringLiteral("alice|||pw"));
        QCOMPARE(w.opt.NNTPServer, s.srv.address());
        QCOMPARE(w.servers->lstServs->currentIndex(), w.servers->findServer(s.srv.address()));
        QCOMPARE(w.setup->frameServers->title(), QStringLiteral("NNTP Servers (2)"));

        w.action(QStringLiteral("menuConnect"))->trigger();
        QTRY_VERIFY(w.IsConnectedIdle(false));
        QVERIFY(s.srv.sawCommand("AUTHINFO USER alice"));
        QVERIFY(!s.srv.sawCommand("AUTHINFO USER mallory"));

        // and a list saved later (a marker change on connect) is the one from before
        ItemList file;
        QVERIFY(file.loadWithSecond(ServerList::listFile()));
        QVERIFY(file.findServer(QStringLiteral("news.b.example")) >= 0);
        QCOMPARE(file.findServer(QStringLiteral("news.new.example")), -1);
    }

    // Find searches the list that had the focus when the dialog was opened.
    void findSearchesTheListActiveWhenOpened()
    {
        ScriptedPrompter p;
        frmMain w(&p, quiet());
        w.lstGroups->add(QStringLiteral("alt.one (3)"));
        w.lstGroups->add(QStringLiteral("alt.binaries.two (5)"));
        w.grid->ResizeGrid();
        w.grid->SetRows(4);
        for (int r = 1; r <= 2; ++r)
            w.grid->setRowCells(r, {QString::number(r), QStringLiteral("11/02/2026"), QStringLiteral("message %1").arg(r),
                                    QStringLiteral("a@b")});
        w.show();
        QVERIFY(QTest::qWaitForWindowActive(&w));

        auto find = [&](const QString &text) {
            QTimer::singleShot(0, &w, [&w, text] {
                auto *dlg = qobject_cast<frmFind *>(QApplication::activeModalWidget());
                QVERIFY(dlg);
                // typed as a person does: the dialog's box has the focus
                QVERIFY(QTest::qWaitForWindowActive(dlg));
                dlg->txtSearch->setFocus();
                QTRY_VERIFY(dlg->txtSearch->hasFocus());
                dlg->txtSearch->setText(text);
                dlg->cmdOK->click();
                if (dlg->isVisible())
                    dlg->reject();
            });
            w.action(QStringLiteral("menuFind"))->trigger();
        };

        w.lstGroupsView->setFocus();
        QVERIFY(w.lstGroupsView->hasFocus());
        find(QStringLiteral("binaries"));
        QCOMPARE(w.lstGroups->selectedIndexes(), QList<int>{1});
        QCOMPARE(p.texts(), QStringList());

        // from the grid the grid is searched
        w.MSHResults->setFocus();
        find(QStringLiteral("message 2"));
        QCOMPARE(w.gridControl->currentRow(), 2);
        QCOMPARE(p.texts(), QStringList());
    }

    // A refused post command closes the post window that was open, so OK cannot post with the
    // refused scope.
    void refusedPostCommandClosesTheWindow()
    {
        ScriptedPrompter p;
        frmMain w(&p, quiet());
        w.lstGroups->add(QStringLiteral("alt.one (3)"));
        w.lstGroups->setSelected(0, true);
        QVERIFY(w.poster->OpenPost(Poster::SelectedGroups));
        QPointer<frmPostMsg> win = w.postWindows->window();
        QVERIFY(win && win->isVisible());

        w.lstGroups->clearSelection();
        QVERIFY(!w.poster->OpenPost(Poster::SelectedGroups));
        QCOMPARE(p.texts(), QStringList{QStringLiteral("Please Select Item(s) First")});
        QTRY_VERIFY(!win || !win->isVisible());
        QVERIFY(!w.postWindows->window() || !w.postWindows->window()->isVisible());
    }
};

QTEST_MAIN(TstWindowStates)
#include "tst_window_states.moc"
