// Group list and message listing against the test INN server.
#include "app/Paths.h"
#include "gui/app/frmMain.h"
#include "groups/GroupList.h"
#include "messages/MessageGrid.h"
#include "messages/MessageList.h"
#include "news/Session.h"
#include "support/InnEnv.h"
#include "ui/ItemList.h"
#include "ui/Prompter.h"

#include <QDateTime>
#include <QFile>
#include <QLocale>
#include <QLabel>
#include <QListView>
#include <QtTest>

static const QString Group = QStringLiteral("rec.arts.newsdredge");

class TstListingInn : public QObject {
    Q_OBJECT
    ScriptedPrompter p;
    frmMain *w = nullptr;
    QString newestDisplay;

private slots:
    void initTestCase()
    {
        for (int i = 1; i <= 6; ++i) {
            // recent dates (INN refuses old articles), one hour apart, newest last
            const QDateTime when = QDateTime::currentDateTimeUtc().addSecs(-3600 * (7 - i));
            if (i == 6)
                newestDisplay = when.toString(QStringLiteral("MM/dd/yyyy"));
            QByteArray art = "From: Lister " + QByteArray::number(i) + " <l@example.org>\nNewsgroups: rec.arts.newsdredge\n"
                             "Subject: listing " + QByteArray::number(i) + "\nDate: "
                + QLocale::c().toString(when, QStringLiteral("ddd, dd MMM yyyy HH:mm:ss")).toLatin1() + " +0000\n";
            if (i == 6)
                art += "References: <first@example.org>\n";
            art += "\nbody " + QByteArray::number(i) + "\n";
            QVERIFY2(!inn::post(art).isEmpty(), "post failed");
        }
        w = new frmMain(&p, frmMain::Options{true});
        w->opt.NNTPServer = inn::server(inn::portOpen());
        w->opt.Timeout = 15;
    }
    void cleanupTestCase() { delete w; }

    void groupListFromServerAndCache()
    {
        w->session->NNTP_Connect(true);
        QVERIFY(w->IsConnectedIdle(false));
        QVERIFY(w->lstGroups->count() >= 1);
        const int i = w->lstGroups->findGroup(Group);
        QVERIFY(i >= 0);
        // the server's count: last - first
        NewsTransport *t = w->session->transport();
        QVERIFY(w->session->runTransaction([](NewsTransport *t) { t->SelectGroup(Group); }));
        const qint64 count = t->SelectedGroup().Last - t->SelectedGroup().First;
        QCOMPARE(w->lstGroups->text(i), GroupList::groupItem(Group, t->SelectedGroup().First, t->SelectedGroup().Last));
        QVERIFY(count >= 5);
        // a group without articles (INN reports last 0) is not listed; no test ever posts to this one
        QCOMPARE(w->lstGroups->findGroup("misc.test.untouched"), -1);
        QCOMPARE(w->lblGrp->text(), QStringLiteral("  Available Groups : %1 (%2)").arg(w->opt.NNTPServer).arg(w->lstGroups->count()));

        // the cache holds the list exactly
        const QString cache = w->groups->cacheFile();
        QVERIFY(QFile::exists(cache));
        ItemList back;
        QVERIFY(back.load(cache));
        QCOMPARE(back.texts(), w->lstGroups->texts());

        // binaries only, fresh: ".binaries" names alone
        w->opt.BinariesOnly = 1;
        w->groups->LoadGroupList(false);
        QCOMPARE(w->lstGroups->findGroup(Group), -1);
        for (const QString &g : w->lstGroups->texts())
            QVERIFY2(g.contains(".binaries"), qPrintable(g));
        // the cache keeps the unfiltered list; a cached load filters by ".binar"
        ItemList cached;
        cached.load(cache);
        cached.add("alt.binarx.odd (3)");
        cached.save(cache);
        w->lstGroups->clear();
        w->groups->LoadGroupList(true);
        QVERIFY(w->lstGroups->findGroup("alt.binarx.odd") >= 0);
        for (const QString &g : w->lstGroups->texts())
            QVERIFY(g.contains(".binar"));
        w->opt.BinariesOnly = 0;
        w->groups->LoadGroupList(false);
    }

    void listingNewestThenFromCache()
    {
        w->opt.NewMsgs = 4;
        w->S.CurrentGroup = Group;
        const bool notFetched = w->messages->ListMessages(true);
        QVERIFY(!notFetched);
        QCOMPARE(w->status(1), QStringLiteral("Done Retreiving Message List"));
        QCOMPARE(w->grid->lastMessageRow(), 4);
        QCOMPARE(w->grid->Rows(), 5);   // the empty row is removed after a fetch
        // newest first by the sortable date
        for (int r = 1; r < 4; ++r)
            QVERIFY(w->grid->cell(r, 6) >= w->grid->cell(r + 1, 6));
        QCOMPARE(w->grid->cell(1, 2), QStringLiteral("listing 6"));
        QCOMPARE(w->grid->cell(1, 7), QStringLiteral("<first@example.org>"));
        QVERIFY(w->grid->cell(1, 4).contains(QStringLiteral("news.newsdredge.test")));
        QCOMPARE(w->grid->cell(1, 1), newestDisplay);
        // only the newest four article numbers were asked for
        NewsTransport *t = w->session->transport();
        qint64 lowest = LLONG_MAX;
        for (int r = 1; r <= 4; ++r)
            lowest = qMin(lowest, w->grid->cell(r, 0).toLongLong());
        QCOMPARE(lowest, t->SelectedGroup().Last - 3);
        QVERIFY(w->lblGrp->text().startsWith(QStringLiteral("  Available Messages (4)")));
        // the group's item carries the listed count
        QCOMPARE(w->lstGroups->text(w->lstGroups->findGroup(Group)), ItemList::marked('1', Group + " (4)"));

        // again: from the cache, in file order, with its empty last row
        const QStringList oldestRow = w->grid->rowCells(4);
        QVERIFY(w->messages->ListMessages(true));   // notFetched: it came from the cache
        QCOMPARE(w->grid->Rows(), 6);
        QCOMPARE(w->grid->lastMessageRow(), 4);
        QVERIFY(w->grid->cell(5, 0).isEmpty());
        // file order is the order of the fetch (oldest number first), not the date sort
        QCOMPARE(w->grid->rowCells(1).mid(0, 8), oldestRow.mid(0, 8));

        // Enter on the group list opens the selected group: it is listed (from the cache) again
        w->S.CurrentGroup.clear();
        w->grid->ResizeGrid();
        const int item = w->lstGroups->findGroup(Group);
        w->lstGroups->clearSelection();
        w->lstGroups->setSelected(item, true);
        w->lstGroups->setCurrentIndex(item);
        QTest::keyClick(w->lstGroupsView, Qt::Key_Return);
        QCOMPARE(w->S.CurrentGroup, Group);
        QCOMPARE(w->grid->lastMessageRow(), 4);
        QVERIFY(w->lstGroupsView->isEnabled());

        // disconnecting removes the message caches of the server
        const QString cache = w->messages->cacheFile();
        QVERIFY(QFile::exists(cache));
        w->session->NNTP_Disconnect();
        QVERIFY(!QFile::exists(cache));
    }
};

QTEST_MAIN(TstListingInn)
#include "tst_listing_inn.moc"
