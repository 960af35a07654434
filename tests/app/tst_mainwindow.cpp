#include "app/Paths.h"
#include "app/Wait.h"
#include "app/Commands.h"
#include "gui/app/frmMain.h"
#include "messages/MessageGrid.h"
#include "ui/ItemList.h"
#include "ui/Prompter.h"

#include <QAction>
#include <QDir>
#include <QFile>
#include <QGroupBox>
#include <QLabel>
#include <QScrollBar>
#include <QSystemTrayIcon>
#include <QTableView>
#include <QTimer>
#include <QtTest>

class TstMainWindow : public QObject {
    Q_OBJECT
    static frmMain::Options quiet() { return frmMain::Options{true}; }
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

    void commandsWithoutActionAndCaptionsOfEveryCode()
    {
        ScriptedPrompter p;
        frmMain w(&p, quiet());
        // the odd captions are kept as users know them
        QCOMPARE(w.action(QStringLiteral("menuScanE"))->text(), QStringLiteral("in Se&lected Servers (add to Favories Exclusively)"));
        QCOMPARE(w.action(QStringLiteral("menuWeb"))->text(), QStringLiteral("Find && Web/FTP Addresses"));
        // commands not attached to anything stay disabled even when switched on
        w.SetMenuState(nd::Cmd::GenerateGroupList, true);
        QVERIFY(!w.action(QStringLiteral("menuAuto"))->isEnabled());
        QVERIFY(!w.action(QStringLiteral("menuScanE"))->isEnabled());

        w.opt.NNTPServer = QStringLiteral("news.example.org");
        w.S.CurrentGroup = QStringLiteral("alt.test");
        w.S.FavoritesShortName = QStringLiteral("mine");
        w.lstFavorites->addMany({"a", "b"});
        w.lstGroups->add(QStringLiteral("g (1)"));
        w.lstFiles->add(QStringLiteral("/x/f.jpg"));
        for (int i = 0; i < 4; ++i)
            w.lstHTTP->add(QString::number(i));
        // the text a caption code leaves in its place
        auto fav = [&] { return w.lblFav->text(); };
        auto grp = [&] { return w.lblGrp->text(); };
        auto http = [&] { return w.frameHTTP->title(); };
        auto after = [&](nd::Caption caption, auto text) {
            w.UpdateCaption(caption);
            return text();
        };
        QCOMPARE(after(nd::Caption::Favorites, fav), QStringLiteral("  Favorite Groups [mine] (2)"));
        QCOMPARE(after(nd::Caption::Messages, grp), QStringLiteral("  Available Messages (0)  Group : alt.test"));
        w.grid->SetRows(4);
        w.grid->setCell(1, 0, "10");
        w.grid->setCell(2, 0, "11");
        // rows 1 and 2 hold messages, row 3 is the empty last row
        QCOMPARE(after(nd::Caption::Messages, grp), QStringLiteral("  Available Messages (2)  Group : alt.test"));
        QCOMPARE(after(nd::Caption::Groups, grp), QStringLiteral("  Available Groups : news.example.org (1)"));
        QCOMPARE(after(nd::Caption::SavedFiles, [&] { return w.frameFiles->title(); }), QStringLiteral("Saved Files (1)"));
        QCOMPARE(after(nd::Caption::WebAddresses, http), QStringLiteral("Web/FTP Addresses (4)"));
        QCOMPARE(after(nd::Caption::EmailAddresses, http), QStringLiteral("Email Addresses (4)"));
        QCOMPARE(after(nd::Caption::ServerAddresses, http), QStringLiteral("Server Addresses (4)"));
        QCOMPARE(after(nd::Caption::Found, http), QStringLiteral("Found/Status (4)"));
        QCOMPARE(after(nd::Caption::Checking, fav), QStringLiteral("  Checking 2 Servers"));
        w.setServerCount(17);
        QCOMPARE(after(nd::Caption::ServerCount, [&] { return w.setupServerFrameCaption(); }), QStringLiteral("NNTP Servers (17)"));
        QCOMPARE(after(nd::Caption::Title, [&] { return w.windowTitle(); }), QStringLiteral("Newsdredge! v3.8 (news.example.org) "));
    }

    void toolbarDispatchClearsStopFirst()
    {
        ScriptedPrompter p;
        frmMain w(&p, quiet());
        bool stopSeen = true;
        QString ran;
        w.wireCommand("menuSetup", [&] { ran = "setup"; stopSeen = w.S.StopRequested; });
        w.wireCommand("menuConnect", [&] { ran = "connect"; });
        w.wireCommand("menuDownload", [&] { ran = "download"; });
        w.S.StopRequested = true;
        w.toolbarClick("Setup");
        QCOMPARE(ran, QStringLiteral("setup"));
        QVERIFY(!stopSeen);
        // the connect button keeps working under its other key
        w.setToolKey("Connect", "Disconnect");
        ran.clear();
        w.toolButton("Disconnect")->trigger();
        QCOMPARE(ran, QStringLiteral("connect"));
        // a switched-off command is not run from the toolbar
        w.SetMenuState(nd::Cmd::Download, false);
        ran.clear();
        w.toolbarClick("Download");
        QVERIFY(ran.isEmpty());
        // Stop: flag, panel, button
        w.SetMenuState(nd::Cmd::Stop, true);
        w.toolbarClick("Stop");
        QVERIFY(w.S.StopRequested);
        QCOMPARE(w.status(1), QStringLiteral("Stopped"));
        QVERIFY(!w.action("menuStop")->isEnabled());
        // Links opens the harvested page; it does not exist yet
        p.clear();
        w.toolbarClick("Links");
        QVERIFY(p.wasAsked(QStringLiteral("Error Executing Application or File Not Found")));
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
        QTimer::singleShot(50, w, [w] { w->close(); });
        nd::waitUntil([&] { return w->S.StopRequested; });
        QVERIFY(!w->shutdownDone());   // the waiting loop ends before the settings are written
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
        {
            frmMain w(&p, quiet());
            w.startUp();
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
};

QTEST_MAIN(TstMainWindow)
#include "tst_mainwindow.moc"
