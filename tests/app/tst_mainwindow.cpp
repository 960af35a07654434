#include "app/Paths.h"
#include "app/Wait.h"
#include "gui/app/frmMain.h"
#include "messages/MessageGrid.h"
#include "ui/ItemList.h"
#include "ui/Prompter.h"

#include <QAction>
#include <QDir>
#include <QFile>
#include <QGroupBox>
#include <QLabel>
#include <QMenuBar>
#include <QProgressBar>
#include <QScrollBar>
#include <QSystemTrayIcon>
#include <QTableView>
#include <QTimer>
#include <QToolBar>
#include <QtTest>

class TstMainWindow : public QObject {
    Q_OBJECT
    static frmMain::Options quiet() { return frmMain::Options{false, true}; }
private slots:
    void init()
    {
        QFile::remove(SettingsStore().fileName());
    }

    void firstStartRunsFirstRunDialogue()
    {
        ScriptedPrompter p;
        p.answers = {Prompter::AnswerOk, Prompter::AnswerNo};
        frmMain w(&p, quiet());
        w.startUp();
        QCOMPARE(w.windowTitle(), QStringLiteral("Newsdredge! v3.8 () "));
        QCOMPARE(p.texts(), (QStringList{
            "It appears you have no Usenet server defined.  To access Usenet you must have a server assigned.",
            "Would you like information on obtaining a free Usenet server account?"}));
        QCOMPARE(p.asked[0].icon, Prompter::Critical);
        QCOMPARE(w.opt.Timeout, 30);
        QCOMPARE(w.lblFav->text(), QStringLiteral("  Favorite Groups [NewsdredgeFavorites] (0)"));
        QVERIFY(QDir(nd::appFile(QStringLiteral("Cache"))).exists());
    }

    void menuTreeHasExactCaptions()
    {
        ScriptedPrompter p;
        frmMain w(&p, quiet());
        const QList<QPair<QString, QString>> expect = {
            {"menuFile", "&File"}, {"menuFav", "&Favorites (Subscribed)"}, {"menuNew", "&New Favorites File"},
            {"menuLoad", "&Load Favorites"}, {"menuSave", "S&ave Favorites"}, {"menuSetup", "&Setup"},
            {"menuExit", "E&xit"}, {"menuFind", "&Find"}, {"menuFindNext", "Find &Next"},
            {"menuConnect", "&Connect to Server"}, {"menuGroup", "&Groups"}, {"menuStop", "&Stop Transaction"},
            {"menuSearch", "&Search for Media"}, {"menuretreive", "&Retrieve"}, {"menuDownloadAll", "&All Attachments"},
            {"menuDownload", "from Selected Messages"}, {"menuDowloadAllF", "from Selected &Favorite Groups"},
            {"menuView", "&View (Download) Attachment (right-Click)"}, {"menuRefreshM", "&Refresh Message List"},
            {"menuRefreshG", "Refresh &Group List"}, {"menuPreviewL", "&Large Image Preview"},
            {"menuPreview", "&Preview Incoming Images"}, {"menuPostC", "to Current Group"},
            {"menuPostG", "to Selected Groups"}, {"menuPostF", "to Selected &Favorites"},
            {"menuFindGroup", "Find &Group"}, {"menuScan", "in &Selected Servers (add to Favorites)"},
            {"menuScanE", "in Se&lected Servers (add to Favories Exclusively)"},
            {"menuWeb", "Find && Web/FTP Addresses"}, {"menuWebM", "in Selected &Messages"},
            {"menuFindServers", "F&ind Open Servers"}, {"menuServS", "in S&elected Servers"},
            {"menuEmail", "Find &Email Addresses"}, {"menuGen", "&Generate List of Groups on Selected Servers"},
            {"menuAuto", "&Schedule Auto Download"}, {"menuCheck", "Check and Verify &Selected Servers"},
            {"menuQuickHelp", "&Quick Help"}, {"menuDemo", "&Online Demo"}, {"menuSupport", "&Support"},
            {"menuAbout", "&About"}};
        for (const auto &e : expect) {
            QAction *a = w.action(e.first);
            QVERIFY2(a, qPrintable(e.first));
            QCOMPARE(a->text(), e.second);
        }
        QVERIFY(w.action(QStringLiteral("menuVisit"))->text().startsWith(QStringLiteral("&Visit ")));
        // commands not attached to anything stay disabled even when switched on
        w.SetMenuState(49, true);
        QVERIFY(!w.action(QStringLiteral("menuAuto"))->isEnabled());
        QVERIFY(!w.action(QStringLiteral("menuScanE"))->isEnabled());
        // tool tips of the toolbar
        QCOMPARE(w.toolButton(QStringLiteral("Setup"))->toolTip(), QStringLiteral("Setup options"));
        QCOMPARE(w.toolButton(QStringLiteral("Links"))->toolTip(), QStringLiteral("Show links"));
        QCOMPARE(w.toolButton(QStringLiteral("Connect"))->toolTip(), QStringLiteral("Connect to server"));
    }

    void setMenuStateCodesAndScopes()
    {
        ScriptedPrompter p;
        frmMain w(&p, quiet());
        int calls = 0;
        const QStringList names = {"menuWebC", "menuEmailC", "menuPostC", "menuServC", "menuWebG", "menuEmailG",
                                   "menuPostG", "menuServG", "menuWebF", "menuEmailF", "menuPostF", "menuServF",
                                   "menuDowloadAllF", "menuWebM", "menuEmailS", "menuServS", "menuScan", "menuGen",
                                   "menuCheck", "menuGroup", "menuStop", "menuSetup"};
        for (const QString &n : names)
            w.wireCommand(n, [&calls] { ++calls; });
        const QHash<QString, QStringList> scopes = {
            {"CG", {"menuWebC", "menuEmailC", "menuPostC", "menuServC"}},
            {"SG", {"menuWebG", "menuEmailG", "menuPostG", "menuServG"}},
            {"FA", {"menuWebF", "menuEmailF", "menuPostF", "menuServF", "menuDowloadAllF"}},
            {"SM", {"menuWebM"}},
            {"SS", {"menuEmailS", "menuServS"}},
            {"SR", {"menuScan", "menuGen", "menuCheck"}}};
        // the disconnected state has some scopes off: every scope on to start with
        for (auto it = scopes.begin(); it != scopes.end(); ++it)
            w.MenuOnOff(it.key(), true);
        for (auto it = scopes.begin(); it != scopes.end(); ++it) {
            w.MenuOnOff(it.key(), false);
            for (const QString &n : it.value())
                QVERIFY2(!w.action(n)->isEnabled(), qPrintable(it.key() + " " + n));
            // the other scopes are untouched
            for (auto jt = scopes.begin(); jt != scopes.end(); ++jt)
                if (jt.key() != it.key())
                    for (const QString &n : jt.value())
                        QVERIFY2(w.action(n)->isEnabled(), qPrintable(it.key() + " touched " + n));
            w.MenuOnOff(it.key(), true);
        }
        // codes below 30 drive the toolbar button at that position too
        w.SetMenuState(3, false);
        QVERIFY(!w.action(QStringLiteral("menuGroup"))->isEnabled());
        QVERIFY(!w.toolButton(QStringLiteral("Groups"))->isEnabled());
        w.SetMenuState(3, true);
        QVERIFY(w.toolButton(QStringLiteral("Groups"))->isEnabled());
        w.SetMenuState(4, true);
        QVERIFY(w.toolButton(QStringLiteral("Stop"))->isEnabled());
        w.SetMenuState(10, true);
        QVERIFY(w.action(QStringLiteral("menuPostC"))->isEnabled());
        // code 30 and above leave the toolbar alone
        w.SetMenuState(47, false);
        QVERIFY(!w.action(QStringLiteral("menuScan"))->isEnabled());
    }

    void captionsOfEveryCode()
    {
        ScriptedPrompter p;
        frmMain w(&p, quiet());
        w.opt.NNTPServer = QStringLiteral("news.example.org");
        w.S.CurrentGroup = QStringLiteral("alt.test");
        w.S.FavoritesShortName = QStringLiteral("mine");
        w.lstFavorites->add(QStringLiteral("a"));
        w.lstFavorites->add(QStringLiteral("b"));
        w.lstGroups->add(QStringLiteral("g (1)"));
        w.lstFiles->add(QStringLiteral("/x/f.jpg"));
        for (int i = 0; i < 4; ++i)
            w.lstHTTP->add(QString::number(i));
        w.UpdateCaption("0");
        QCOMPARE(w.lblFav->text(), QStringLiteral("  Favorite Groups [mine] (2)"));
        w.UpdateCaption("1");
        QCOMPARE(w.lblGrp->text(), QStringLiteral("  Available Messages (0)  Group : alt.test"));
        w.grid->SetRows(4);
        w.grid->setCell(1, 0, "10");
        w.grid->setCell(2, 0, "11");
        w.UpdateCaption("1");   // rows 1 and 2 hold messages, row 3 is the empty last row
        QCOMPARE(w.lblGrp->text(), QStringLiteral("  Available Messages (2)  Group : alt.test"));
        w.UpdateCaption("2");
        QCOMPARE(w.lblGrp->text(), QStringLiteral("  Available Groups : news.example.org (1)"));
        w.UpdateCaption("3");
        QCOMPARE(w.frameFiles->title(), QStringLiteral("Saved Files (1)"));
        w.UpdateCaption("4");
        QCOMPARE(w.frameHTTP->title(), QStringLiteral("Web/FTP Addresses (4)"));
        w.UpdateCaption("9");
        QCOMPARE(w.frameHTTP->title(), QStringLiteral("Email Addresses (4)"));
        w.UpdateCaption("10");
        QCOMPARE(w.frameHTTP->title(), QStringLiteral("Server Addresses (4)"));
        w.UpdateCaption("6");
        QCOMPARE(w.frameHTTP->title(), QStringLiteral("Found/Status (4)"));
        w.UpdateCaption("7");
        QCOMPARE(w.lblFav->text(), QStringLiteral("  Checking 2 Servers"));
        w.setServerCount(17);
        w.UpdateCaption("8");
        QCOMPARE(w.setupServerFrameCaption(), QStringLiteral("NNTP Servers (17)"));
        w.UpdateCaption("5");
        QCOMPARE(w.windowTitle(), QStringLiteral("Newsdredge! v3.8 (news.example.org) "));
    }

    void toolbarDispatchClearsStopFirst()
    {
        ScriptedPrompter p;
        frmMain w(&p, quiet());
        bool stopSeen = true;
        QString ran;
        w.wireCommand("menuSetup", [&] { ran = "setup"; stopSeen = w.S.StopRequested; });
        w.wireCommand("menuConnect", [&] { ran = "connect"; stopSeen = w.S.StopRequested; });
        w.wireCommand("menuDownload", [&] { ran = "download"; });
        w.S.StopRequested = true;
        w.toolbarClick("Setup");
        QCOMPARE(ran, QStringLiteral("setup"));
        QVERIFY(!stopSeen);
        w.S.StopRequested = true;
        w.toolbarClick("Connect");
        QCOMPARE(ran, QStringLiteral("connect"));
        QVERIFY(!stopSeen);
        // the connect button keeps working under its other key
        w.setToolKey("Connect", "Disconnect");
        ran.clear();
        w.toolButton("Disconnect")->trigger();
        QCOMPARE(ran, QStringLiteral("connect"));
        // a switched-off command is not run from the toolbar
        w.SetMenuState(7, false);
        ran.clear();
        w.toolbarClick("Download");
        QVERIFY(ran.isEmpty());
        // Stop: flag, panel, button
        w.SetMenuState(4, true);
        w.toolbarClick("Stop");
        QVERIFY(w.S.StopRequested);
        QCOMPARE(w.status(1), QStringLiteral("Stopped"));
        QVERIFY(!w.action("menuStop")->isEnabled());
        // Links opens the harvested page; it does not exist yet
        p.clear();
        w.toolbarClick("Links");
        QVERIFY(p.wasAsked(QStringLiteral("Error Executing Application or File Not Found")));
    }

    void connectedIdleWarns()
    {
        ScriptedPrompter p;
        frmMain w(&p, quiet());
        QVERIFY(!w.IsConnectedIdle(true));
        QVERIFY(p.asked.isEmpty());
        w.transportStateText = [] { return QStringLiteral("Connected to NNTP Server"); };
        QVERIFY(w.IsConnectedIdle(false));
        QVERIFY(p.asked.isEmpty());
        QVERIFY(w.IsConnectedIdle(true));
        QCOMPARE(p.asked.size(), 1);
        QCOMPARE(p.asked[0].text, QStringLiteral("Please Disconnect First"));
        QCOMPARE(p.asked[0].title, QStringLiteral("Newsdredge!"));
        QCOMPARE(p.asked[0].icon, Prompter::Exclamation);
    }

    void clickingALongSubjectKeepsTheDateInSight()
    {
        ScriptedPrompter p;
        frmMain w(&p, quiet());
        w.show();
        QVERIFY(QTest::qWaitForWindowExposed(&w));
        w.grid->ResizeGrid();
        w.grid->SetRows(4);
        const QString longSubject = QString(400, QLatin1Char('s'));
        for (int r = 1; r <= 2; ++r)
            w.grid->setRowCells(r, {QString::number(r), QStringLiteral("11/23/2026"), longSubject,
                                    QStringLiteral("a@b.example")});
        w.MSHResults->setColumnWidth(2, 3000);
        QCoreApplication::processEvents();
        QScrollBar *h = w.MSHResults->horizontalScrollBar();
        QVERIFY(h->maximum() > 0);
        h->setValue(0);
        const QRect subject = w.MSHResults->visualRect(w.grid->index(1, 2));
        QTest::mouseClick(w.MSHResults->viewport(), Qt::LeftButton, {}, subject.center());
        QCOMPARE(w.MSHResults->currentIndex().row(), 1);
        QCOMPARE(h->value(), 0);
        // moving down by keyboard still works and the column stays in place
        QTest::keyClick(w.MSHResults, Qt::Key_Up);
        QCOMPARE(w.MSHResults->currentIndex().row(), 0);
        QCOMPARE(h->value(), 0);
    }

    void trayHidesOnlyWhenAsked()
    {
        ScriptedPrompter p;
        frmMain w(&p, quiet());
        w.show();
        QVERIFY(QTest::qWaitForWindowExposed(&w));
        w.showMinimized();
        QTest::qWait(20);
        QVERIFY(!w.TrayIcon1->isVisible());   // "Tray" is "0" by default
        w.showNormal();
        w.store().save("Tray", "1");
        w.showMinimized();
        QTest::qWait(20);
        QVERIFY(w.TrayIcon1->isVisible());
        // without a system tray the window must stay reachable
        if (!QSystemTrayIcon::isSystemTrayAvailable())
            QVERIFY(!w.isHidden());
        w.showNormal();
        QTest::qWait(20);
        QVERIFY(!w.TrayIcon1->isVisible());
    }

    void closeDuringWaitEndsTheLoopFirst()
    {
        ScriptedPrompter p;
        auto *w = new frmMain(&p, quiet());
        w->setAttribute(Qt::WA_DeleteOnClose, false);
        w->startUp();
        w->show();
        bool loopEnded = false;
        bool settingsWrittenBeforeLoopEnded = false;
        QTimer::singleShot(50, w, [w] { w->close(); });
        nd::waitUntil([&] { return w->S.StopRequested; });
        settingsWrittenBeforeLoopEnded = w->shutdownDone();
        loopEnded = true;
        QVERIFY(loopEnded);
        QVERIFY(!settingsWrittenBeforeLoopEnded);
        QVERIFY(w->isVisible());
        QTRY_VERIFY(w->shutdownDone());
        QVERIFY(!w->isVisible());
        QVERIFY(w->store().contains("Width"));
        delete w;
    }

    void shutdownStoresGeometryAndCleansTemporaryFiles()
    {
        ScriptedPrompter p;
        QFile junk(nd::appFile(QStringLiteral("server-group.tmp")));
        QVERIFY(junk.open(QIODevice::WriteOnly));
        junk.close();
        {
            frmMain w(&p, quiet());
            w.startUp();
            QVERIFY(!junk.exists());   // start-up cleans
            QVERIFY(junk.open(QIODevice::WriteOnly));
            junk.close();
            w.show();
            w.setGeometry(50, 60, 900, 700);
            QTest::qWait(20);
            w.opt.Timeout = 0;   // the main block must not be written, geometry must
            w.close();
            QVERIFY(!junk.exists());
        }
        SettingsStore s;
        QVERIFY(s.getDouble("Width", 0) > 0);
        QVERIFY(!s.contains("Timeout"));
        QVERIFY(s.contains("DestDir"));
    }

    void windowShowsItsParts()
    {
        ScriptedPrompter p;
        frmMain w(&p, quiet());
        w.startUp();
        w.show();
        QVERIFY(QTest::qWaitForWindowExposed(&w));
        QCOMPARE(w.menuBar()->actions().size(), 7);
        QCOMPARE(w.grid->headerData(2, Qt::Horizontal, Qt::DisplayRole).toString(), QStringLiteral("Subject"));
        QVERIFY(w.MSHResults->isColumnHidden(8));
        QVERIFY(w.width() >= 700);
        const QString shot = qEnvironmentVariable("ND_BINARY_DIR") + QStringLiteral("/mainwindow.png");
        w.grab().save(shot);
    }
};

QTEST_MAIN(TstMainWindow)
#include "tst_mainwindow.moc"
