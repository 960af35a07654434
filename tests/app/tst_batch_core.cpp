// The core without a window: linked against the core library alone (no Qt Gui, no Widgets), it
// makes every area over a BatchShell, and the areas wire their commands and answer through it.
#include "app/BatchShell.h"
#include "app/Core.h"
#include "download/Downloader.h"
#include "download/SavedFiles.h"
#include "groups/Favorites.h"
#include "groups/GroupList.h"
#include "harvest/Harvester.h"
#include "messages/GridController.h"
#include "messages/MessageList.h"
#include "news/Session.h"
#include "post/Poster.h"
#include "servers/ServerChecker.h"
#include "servers/ServerList.h"
#include "viewer/Viewer.h"
#include "ui/Prompter.h"

#include <QCoreApplication>
#include <QtTest>

class TestBatchCore : public QObject {
    Q_OBJECT
private slots:
    void everyAreaRunsOnABatchShell()
    {
        QVERIFY(!qobject_cast<QCoreApplication *>(QCoreApplication::instance())->inherits("QGuiApplication"));
        ScriptedPrompter p;
        BatchShell sh(&p);
        Core core(sh);
        core.createAreas();
        const QList<QObject *> areas = {core.session, core.servers, core.groups, core.messages,
                                        core.downloader, core.gridControl, core.favorites, core.poster,
                                        core.harvester, core.savedFiles, core.viewer, core.serverChecker};
        for (QObject *a : areas)
            QVERIFY(a);
        // the areas attach their procedures to the commands by name
        for (const char *c : {"menuConnect", "menuGroup", "menuDownload", "menuDownloadAll", "menuView",
                              "menuCheck", "menuWebC", "menuPostC"})
            QVERIFY2(sh.commandBuilt(QString::fromLatin1(c)), c);
        QVERIFY(!core.session->isConnected());
        QVERIFY(!core.session->IsConnectedIdle(true));
        QVERIFY(p.asked.isEmpty());

        // Stop goes through the shell to whatever runs, and is told on the shell's panels
        sh.SetMenuState(nd::Cmd::Stop, true);
        sh.StopOperation();
        QVERIFY(sh.S.StopRequested);
        QCOMPARE(sh.status(nd::PanelState), QStringLiteral("Stopped"));
        QVERIFY(!sh.menuState(nd::Cmd::Stop));

        // nothing to download: a run that does not start reports no error
        QCOMPARE(core.downloader->DownloadAll(), 0);
        core.destroyAreas();
        QVERIFY(!core.session);
    }
};

QTEST_GUILESS_MAIN(TestBatchCore)
#include "tst_batch_core.moc"
