// The harvester on a window with no server: command state, the questions it asks, the links
// page and the address list's events. Opening a document is caught by URL handlers, so nothing
// leaves the machine.
#include "app/Paths.h"
#include "app/Commands.h"
#include "gui/app/frmMain.h"
#include "harvest/AddressRules.h"
#include "harvest/Harvester.h"
#include "messages/MessageGrid.h"
#include "servers/ServerList.h"
#include "support/TextFile.h"
#include "ui/ItemList.h"
#include "ui/Prompter.h"

#include <QAction>
#include <QApplication>
#include <QDesktopServices>
#include <QDir>
#include <QFile>
#include <QGroupBox>
#include <QKeyEvent>
#include <QListView>
#include <QTableView>
#include <QtTest>

class UrlCatcher : public QObject {
    Q_OBJECT
public:
    QList<QUrl> opened;
public slots:
    void open(const QUrl &url) { opened << url; }
};

namespace {

struct Window {
    ScriptedPrompter p;
    frmMain w{&p, frmMain::Options{true}};
};

using testfile::readFile;

} // namespace

class TstHarvester : public QObject {
    Q_OBJECT
    UrlCatcher catcher;
private slots:
    void initTestCase()
    {
        for (const char *scheme : {"http", "https", "ftp", "file"})
            QDesktopServices::setUrlHandler(QString::fromLatin1(scheme), &catcher, "open");
    }
    void cleanupTestCase()
    {
        for (const char *scheme : {"http", "https", "ftp", "file"})
            QDesktopServices::unsetUrlHandler(QString::fromLatin1(scheme));
    }
    void init()
    {
        QFile::remove(Harvester::linkFile());
        catcher.opened.clear();
    }

    void commandsFollowTheSessionState()
    {
        Window x;
        QVERIFY(x.w.harvester);
        // disconnected: only the scopes that open their own sessions
        for (const char *off : {"menuWebC", "menuWebG", "menuWebM", "menuServC", "menuServG", "menuEmailC", "menuEmailG"})
            QVERIFY2(!x.w.action(QString::fromLatin1(off))->isEnabled(), off);
        for (const char *on : {"menuWebF", "menuServF", "menuServS", "menuEmailF", "menuEmailS"})
            QVERIFY2(x.w.action(QString::fromLatin1(on))->isEnabled(), on);
        // a listing turns the group and message scopes on (as the message list does)
        for (nd::Scope scope : {nd::Scope::CurrentGroup, nd::Scope::SelectedGroups, nd::Scope::SelectedMessages})
            x.w.MenuOnOff(scope, true);
        for (const char *on : {"menuWebC", "menuWebG", "menuWebM", "menuServC", "menuServG", "menuEmailC", "menuEmailG"})
            QVERIFY2(x.w.action(QString::fromLatin1(on))->isEnabled(), on);
    }

    void questions()
    {
        Window x;
        Harvester &h = *x.w.harvester;
        // the file dialog: cancelled, then a name
        x.p.files = {QString(), QStringLiteral("/tmp/out-a.txt")};
        QVERIFY(!h.AskOutputFile());
        QVERIFY(x.w.S.OutputFileName.isEmpty());
        QVERIFY(h.AskOutputFile());
        QCOMPARE(x.w.S.OutputFileName, QStringLiteral("/tmp/out-a.txt"));
        QCOMPARE(x.p.asked.last().kind, QStringLiteral("save"));

        // e-mail search: message, file, then the search text (a cancelled box means every address)
        x.p.clear();
        x.p.files = {QStringLiteral("/tmp/out-b.txt")};
        x.p.inputs = {std::nullopt};
        h.EmailSearchText = QStringLiteral("old");
        QVERIFY(h.AskEmailSearch());
        QCOMPARE(x.p.asked.size(), 3);
        QCOMPARE(x.p.asked[0].text, QStringLiteral("Please Specify Output File"));
        QCOMPARE(x.p.asked[0].title, QStringLiteral("Newsdredge!"));
        QCOMPARE(x.p.asked[1].kind, QStringLiteral("save"));
        QCOMPARE(x.p.asked[2].kind, QStringLiteral("input"));
        QCOMPARE(x.p.asked[2].text, QStringLiteral("Enter search string for email address (Press ENTER for ALL addresses)"));
        QCOMPARE(x.p.asked[2].title, QStringLiteral("Enter Search String"));
        QVERIFY(h.EmailSearchText.isEmpty());
        QCOMPARE(x.w.S.OutputFileName, QStringLiteral("/tmp/out-b.txt"));

        // no file: no search text is asked
        x.p.clear();
        x.p.files = {QString()};
        QVERIFY(!h.AskEmailSearch());
        QCOMPARE(x.p.asked.size(), 2);

        // a News Servers command whose file dialog is cancelled does nothing at all
        x.p.clear();
        x.w.lstHTTP->add(QStringLiteral("kept"));
        x.p.files = {QString()};
        x.w.action(QStringLiteral("menuServS"))->trigger();
        QCOMPARE(x.p.texts().size(), 1);
        QCOMPARE(x.w.lstHTTP->texts(), QStringList{"kept"});
    }

    void linksPageIsAppendedAndEscaped()
    {
        Window x;
        Harvester &h = *x.w.harvester;
        // a page the user already has: its lines stay, an address in it is listed but not written
        QVERIFY(testfile::writeFile(Harvester::linkFile(), "<html>\r\n" + harvest::linkLine(QStringLiteral("http://known.example.test/"))));
        const QByteArray before = readFile(Harvester::linkFile());
        h.FindWebAddresses(QStringLiteral("x http://known.example.test/ y http://new.example.test/?a=1&b='q' z"));
        QCOMPARE(x.w.lstHTTP->texts(), (QStringList{"http://known.example.test/", "http://new.example.test/?a=1&b='q'"}));
        QCOMPARE(x.w.frameHTTP->title(), QStringLiteral("Web/FTP Addresses (2)"));
        const QByteArray after = readFile(Harvester::linkFile());
        QVERIFY(after.startsWith(before));
        QCOMPARE(after.mid(before.size()),
                 QByteArray("<a href = \"http://new.example.test/?a=1&amp;b=&#39;q&#39;\">http://new.example.test/?a=1&amp;b=&#39;q&#39;</a><br>\r\n"));

        // listed already: neither listed nor written again; another window (a new list) writes
        // nothing either because the page holds it
        h.FindWebAddresses(QStringLiteral("http://new.example.test/?a=1&b='q'"));
        QCOMPARE(x.w.lstHTTP->count(), 2);
        {
            Window y;
            y.w.harvester->FindWebAddresses(QStringLiteral("http://new.example.test/?a=1&b='q' ftp://f.example.test/x"));
            QCOMPARE(y.w.lstHTTP->count(), 2);
        }
        const QByteArray last = readFile(Harvester::linkFile());
        QCOMPARE(last.mid(after.size()), QByteArray("<a href = \"ftp://f.example.test/x\">ftp://f.example.test/x</a><br>\r\n"));

        // the page cannot be written: the address is listed, the scan of the text ends, the
        // status bar says why
        QFile::remove(Harvester::linkFile());
        QVERIFY(QDir().mkpath(Harvester::linkFile()));
        Window z;
        z.w.harvester->FindWebAddresses(QStringLiteral("http://one.example.test http://two.example.test"));
        QCOMPARE(z.w.lstHTTP->texts(), QStringList{"http://one.example.test"});
        QCOMPARE(z.w.status(2), QStringLiteral("Error Saving/Accessing Web Address File!"));
        QVERIFY(QDir().rmdir(Harvester::linkFile()));
    }

    void theOptionsSwitchTheWebScan()
    {
        Window x;
        const QString text = QStringLiteral("ftp://f.example.test/a http://h.example.test/b ftp://g.example.test/c");
        const auto scan = [&] {
            x.w.lstHTTP->clear();
            x.w.harvester->FindWebAddresses(text);
            return x.w.lstHTTP->texts();
        };
        x.w.opt.SaveHTTP = 0;   // HTTP addresses not kept
        QCOMPARE(scan(), (QStringList{"ftp://f.example.test/a", "ftp://g.example.test/c"}));
        x.w.opt.SaveHTTP = 1;
        x.w.opt.WEBSave = false;   // the scan ends at an HTTP address
        QCOMPARE(scan(), QStringList());
        x.w.opt.WEBSave = true;
        x.w.opt.FTPSave = false;   // no FTP scanning
        QCOMPARE(scan(), QStringList{"http://h.example.test/b"});
        x.w.opt.FTPSave = true;
        x.w.opt.SaveFTP = 0;   // FTP addresses not kept
        QCOMPARE(scan(), QStringList{"http://h.example.test/b"});
    }

    void serversFromPathJoinTheServerList()
    {
        Window x;
        ServerList *sl = x.w.servers;
        sl->lstServs->clear();
        sl->lstServs->add(QStringLiteral("00042  OK    known.example.test"), QStringLiteral("u|||p"));
        x.w.harvester->FindNewsServers(QStringLiteral("a.example.test!known.example.test!b.example.test.POSTED!c.MISMATCH!nodot"));
        QCOMPARE(x.w.lstHTTP->texts(), (QStringList{"a.example.test", "b.example.test"}));
        QCOMPARE(sl->lstServs->texts(), (QStringList{"00042  OK    known.example.test", "????? ???    a.example.test",
                                                     "????? ???    b.example.test"}));
        // outside a run the list is saved at once
        ItemList saved;
        QVERIFY(saved.loadWithSecond(ServerList::listFile()));
        QCOMPARE(saved.texts(), sl->lstServs->texts());
        QCOMPARE(saved.secondText(0), QStringLiteral("u|||p"));
        // a server listed already is not added twice
        x.w.harvester->FindNewsServers(QStringLiteral("a.example.test"));
        QCOMPARE(sl->lstServs->count(), 3);
    }

    void addressListOpensWebAddressesOnly()
    {
        Window x;
        x.w.harvester->FindWebAddresses(QStringLiteral("http://one.example.test/ ftp://two.example.test/f"));
        QCOMPARE(x.w.lstHTTP->count(), 2);
        // nothing selected: the selection check
        emit x.w.lstHTTPView->doubleClicked(x.w.lstHTTP->index(0));
        QCOMPARE(x.p.texts(), QStringList{"Please Select Item(s) First"});
        QVERIFY(catcher.opened.isEmpty());
        // double-click and Enter open the selected item
        x.w.lstHTTP->setSelected(1, true);
        x.w.lstHTTP->setCurrentIndex(1);
        emit x.w.lstHTTPView->doubleClicked(x.w.lstHTTP->index(1));
        QCOMPARE(catcher.opened, QList<QUrl>{QUrl(QStringLiteral("ftp://two.example.test/f"))});
        x.w.lstHTTP->clearSelection();
        x.w.lstHTTP->setSelected(0, true);
        x.w.lstHTTP->setCurrentIndex(0);
        QKeyEvent enter(QEvent::KeyPress, Qt::Key_Return, Qt::NoModifier, QStringLiteral("\r"));
        QApplication::sendEvent(x.w.lstHTTPView, &enter);
        QCOMPARE(catcher.opened.size(), 2);
        QCOMPARE(catcher.opened.last(), QUrl(QStringLiteral("http://one.example.test/")));
        // an e-mail or server list is not opened
        x.w.UpdateCaption(nd::Caption::EmailAddresses);
        emit x.w.lstHTTPView->doubleClicked(x.w.lstHTTP->index(0));
        QApplication::sendEvent(x.w.lstHTTPView, &enter);
        QCOMPARE(catcher.opened.size(), 2);
        QCOMPARE(x.p.texts().size(), 1);
    }

    void refusedWhileAnotherRunWorks()
    {
        Window x;
        x.w.lstFavorites->addMany({QStringLiteral("alt.a (news.example.test)")});
        x.w.lstHTTP->add(QStringLiteral("kept"));
        // a download is running: the harvest waits its turn
        x.w.S.DownloadBusy = true;
        x.w.action(QStringLiteral("menuWebF"))->trigger();
        QCOMPARE(x.w.status(2), QStringLiteral("Please wait until current transaction is finished"));
        QVERIFY(x.p.asked.isEmpty());
        QCOMPARE(x.w.lstHTTP->texts(), QStringList{"kept"});
        x.w.S.DownloadBusy = false;
        // another batch run holds the lists
        x.w.S.QuietMode = true;
        x.w.action(QStringLiteral("menuEmailF"))->trigger();
        QVERIFY(x.p.asked.isEmpty());
        QCOMPARE(x.w.lstHTTP->texts(), QStringList{"kept"});
        QVERIFY(x.w.S.QuietMode);
    }

    void mustSelectItemsFirst()
    {
        Window x;
        x.w.lstGroups->addMany({QStringLiteral("alt.a (3)"), QStringLiteral("alt.b (4)")});
        x.w.lstFavorites->addMany({QStringLiteral("alt.a (news.example.test)")});
        x.w.lstHTTP->add(QStringLiteral("old"));
        for (nd::Scope scope : {nd::Scope::CurrentGroup, nd::Scope::SelectedGroups, nd::Scope::SelectedMessages})
            x.w.MenuOnOff(scope, true);

        x.w.action(QStringLiteral("menuWebG"))->trigger();
        QCOMPARE(x.p.texts(), QStringList{"Must select items first."});
        QCOMPARE(x.p.asked[0].icon, Prompter::Information);
        QCOMPARE(x.p.asked[0].title, QStringLiteral("Newsdredge"));
        // only the address list changed; every state is back
        QCOMPARE(x.w.lstHTTP->count(), 0);
        QVERIFY(!x.w.S.ScanMode && !x.w.S.QuietMode && !x.w.action(QStringLiteral("menuStop"))->isEnabled());
        QVERIFY(x.w.action(QStringLiteral("menuWebG"))->isEnabled());
        QVERIFY(x.w.lstGroupsView->isEnabled() && x.w.lstFavoritesView->isEnabled() && x.w.MSHResults->isEnabled());
        QCOMPARE(x.w.lstGroups->count(), 2);

        // an e-mail run whose file dialog is cancelled ends before it looks at the selection
        x.p.clear();
        x.p.files = {QString()};
        x.w.action(QStringLiteral("menuEmailF"))->trigger();
        QCOMPARE(x.p.texts().size(), 2);
        // with a file it asks for the search text, then refuses
        x.p.clear();
        x.p.files = {QDir::temp().filePath(QStringLiteral("nd-harvest-none.txt"))};
        x.p.inputs = {QString()};
        x.w.action(QStringLiteral("menuEmailF"))->trigger();
        QCOMPARE(x.p.texts().last(), QStringLiteral("Must select items first."));
        QVERIFY(!x.w.S.QuietMode);
        QVERIFY(x.w.action(QStringLiteral("menuEmailF"))->isEnabled());
        QCOMPARE(x.w.lstFavorites->count(), 1);
    }
};

QTEST_MAIN(TstHarvester)
#include "tst_harvester.moc"
