// Address harvesting against a real INN server: articles holding Web/FTP addresses, senders and
// Path values are posted first, then the Advanced menu's commands run on a window that is never
// shown, with every question answered by the scripted prompter.
#include "app/Paths.h"
#include "app/Wait.h"
#include "gui/app/frmMain.h"
#include "download/Downloader.h"
#include "groups/GroupList.h"
#include "harvest/AddressRules.h"
#include "harvest/Harvester.h"
#include "messages/MessageGrid.h"
#include "messages/MessageList.h"
#include "news/Session.h"
#include "servers/ServerList.h"
#include "support/InnEnv.h"
#include "support/TextFile.h"
#include "ui/ItemList.h"
#include "ui/Prompter.h"

#include <QAction>
#include <QDateTime>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QGroupBox>
#include <QItemSelectionModel>
#include <QLabel>
#include <QListView>
#include <QTableView>
#include <QTcpSocket>
#include <QTemporaryDir>
#include <QTimer>
#include <QtTest>

namespace {

const QString Connected = QStringLiteral("Connected to NNTP Server");
const QString Disconnected = QStringLiteral("Disconnected from NNTP Server");
const QString Tag = QString::number(QDateTime::currentMSecsSinceEpoch() % 100000000);

QString groupName(const char *what)
{
    return QStringLiteral("alt.newsdredge.harvest.%1.t%2").arg(QLatin1String(what), Tag);
}

// Posts a text article; minutesAgo orders the listing (newest first).
bool postText(const QString &group, const QString &from, const QString &subject, const QString &body, int minutesAgo,
              const QString &path = QString())
{
    const QString date = QDateTime::currentDateTimeUtc().addSecs(-60 * minutesAgo).toString(Qt::RFC2822Date);
    QString a = QStringLiteral("From: %1\nNewsgroups: %2\nSubject: %3\nDate: %4\n").arg(from, group, subject, date);
    if (!path.isEmpty())
        a += QStringLiteral("Path: ") + path + QLatin1Char('\n');
    a += QLatin1Char('\n') + body + QLatin1Char('\n');
    return !inn::post(a.toUtf8()).isEmpty();
}

using testfile::lines;
using testfile::readFile;

struct Window {
    ScriptedPrompter p;
    frmMain w{&p, frmMain::Options{true}};
    Window()
    {
        w.opt.Timeout = 15;
        w.servers->lstServs->clear();
        QFile::remove(Harvester::linkFile());
    }
    QString state() { return w.session->transport()->StateText(); }
    bool connect(int port, bool groups = false)
    {
        w.opt.NNTPServer = inn::server(port);
        w.session->NNTP_Connect(groups);
        return state() == Connected;
    }
    int list(const QString &group)
    {
        w.S.CurrentGroup = group;
        w.messages->ListMessages(false);
        return w.grid->lastMessageRow();
    }
    // every state a run borrows is back
    void verifyRestored(const char *menu)
    {
        QVERIFY(!w.S.ScanMode);
        QVERIFY(!w.S.QuietMode);
        QVERIFY(!w.harvester->running());
        QVERIFY2(w.action(QString::fromLatin1(menu))->isEnabled(), menu);
        QVERIFY(!w.action(QStringLiteral("menuStop"))->isEnabled());
        QVERIFY(w.lstGroupsView->isEnabled());
        QVERIFY(w.lstFavoritesView->isEnabled());
        QVERIFY(w.MSHResults->isEnabled());
        QVERIFY(w.status(2).isEmpty());
    }
    // runs the menu's command; false when it is not available
    bool run(const char *menu)
    {
        QAction *a = w.action(QString::fromLatin1(menu));
        const bool on = a->isEnabled();
        if (on)
            a->trigger();
        return on;
    }
    QString finishedMessage() const { return p.asked.isEmpty() ? QString() : p.asked.last().text; }
    void selectRows(int first, int last)
    {
        w.MSHResults->selectionModel()->select(QItemSelection(w.grid->index(first, 0), w.grid->index(last, 0)),
                                               QItemSelectionModel::ClearAndSelect | QItemSelectionModel::Rows);
    }
};

} // namespace

class TstHarvestInn : public QObject {
    Q_OBJECT

    const QString gWeb = groupName("web");
    const QString gWeb2 = groupName("webtwo");
    const QString gWeb3 = groupName("webthree");
    const QString gMail = groupName("mail");
    const QString gPath = groupName("path");
    const QString gMany = groupName("many");
    const QString gSubject = groupName("subject");
    const QString gOnly = QStringLiteral("alt.newsdredge.only.t") + Tag;

private slots:
    void initTestCase()
    {
        // group lists cached by an earlier run name groups this server no longer has
        QVERIFY(QDir(nd::cacheDir()).removeRecursively());
        for (const QString &g : {gWeb, gWeb2, gWeb3, gMail, gPath, gMany, gOnly, gSubject})
            QVERIFY(inn::newGroup(g));
        // newest first: the listing shows the articles in this order
        QVERIFY(postText(gWeb, "Web One <w1@example.org>", "links one",
                         "get ftp://files.h1.test/a.zip or see http://www.h1.test/page for details", 5));
        QVERIFY(postText(gWeb, "Web Two <w2@example.org>", "links two",
                         "Bracketed <http://angle.h1.test/x>. and (http://paren.h1.test/y)\r\nagain http://www.h1.test/page", 6));
        QVERIFY(postText(gWeb, "Web Three <w3@example.org>", "links three",
                         "old one http://old.h1.test/z\nsecure HTTPS://Secure.h1.test/S?a=1&b='2'\n", 7));
        QVERIFY(postText(gWeb, "Web Four <w4@example.org>", "no links", "nothing to see here", 8));
        QVERIFY(postText(gWeb2, "Two <t2@example.org>", "second group", "http://www.h2.test/ ftp://ftp.h2.test/f", 5));
        QVERIFY(postText(gWeb3, "Three <t3@example.org>", "third group", "visit http://www.h3.test/", 5));

        for (const auto &[from, n] : std::initializer_list<std::pair<const char *, int>>{
                 {"Jane Doe <jane@mail.e.test>", 1}, {"bob@mail.e.test (Bob)", 2}, {"Spam Trap <nospam@mail.e.test>", 3},
                 {"Carl <carl@MAIL.E.test>", 8}, {"Ann <ann@other.test>", 9}, {"Jane again <jane@mail.e.test>", 10}})
            QVERIFY(postText(gMail, QString::fromLatin1(from), QStringLiteral("m%1").arg(n), QStringLiteral("x"), n));

        QVERIFY(postText(gPath, "P1 <p1@example.org>", "p1", "x", 1, "feed.alpha.test!relay.beta.test.POSTED!nodot"));
        QVERIFY(postText(gPath, "P2 <p2@example.org>", "p2", "x", 2, "known.gamma.test!relay.beta.test!feed.delta.test.MISMATCH"));

        for (int i = 0; i < 25; ++i)
            QVERIFY(postText(gMany, "Many <many@example.org>", QStringLiteral("many %1").arg(i),
                             QStringLiteral("address http://many%1.h4.test/").arg(i), 30 - i));
        QVERIFY(postText(gOnly, "Only <only@restricted.test>", "only", "x", 1));
        QVERIFY(postText(gSubject, "Subj <subj@example.org>", "Files at http://subject.h5.test/list", "no address here", 1));
    }

    void webAddressesInTheCurrentGroup()
    {
        Window x;
        // a page with one of the addresses in it already
        QVERIFY(testfile::writeFile(Harvester::linkFile(), harvest::linkLine(QStringLiteral("http://old.h1.test/z"))));
        QVERIFY(x.connect(inn::portOpen()));
        QCOMPARE(x.list(gWeb), 4);
        QVERIFY(x.run("menuWebC"));

        const QStringList expected = {"http://www.h1.test/page", "ftp://files.h1.test/a.zip", "http://angle.h1.test/x",
                                      "http://paren.h1.test/y", "http://old.h1.test/z", "HTTPS://Secure.h1.test/S?a=1&b='2'"};
        QCOMPARE(x.w.lstHTTP->texts(), expected);
        QCOMPARE(x.w.frameHTTP->title(), QStringLiteral("Web/FTP Addresses (6)"));
        QCOMPARE(x.finishedMessage(), QStringLiteral("6 Web/FTP Addresses found and saved."));
        QCOMPARE(x.p.asked.last().title, QStringLiteral("Newsdredge"));
        QCOMPARE(x.w.status(1), QStringLiteral("Finished finding Web/FTP Addresses"));
        x.verifyRestored("menuWebC");
        QCOMPARE(x.state(), Connected);

        // the page: the old line, then every new address once, escaped; the one it held is not
        // written again
        QByteArray page = harvest::linkLine(QStringLiteral("http://old.h1.test/z"));
        for (const QString &a : expected)
            if (a != QLatin1String("http://old.h1.test/z"))
                page += harvest::linkLine(a);
        QCOMPARE(readFile(Harvester::linkFile()), page);
    }

    void selectedMessages()
    {
        Window x;
        QVERIFY(x.connect(inn::portOpen()));
        QCOMPARE(x.list(gWeb), 4);
        x.selectRows(0, 1);   // the first two articles
        QVERIFY(x.run("menuWebM"));
        QCOMPARE(x.w.lstHTTP->texts(), (QStringList{"http://www.h1.test/page", "ftp://files.h1.test/a.zip",
                                                    "http://angle.h1.test/x", "http://paren.h1.test/y"}));
        x.verifyRestored("menuWebM");
        // a selection of one row
        x.selectRows(2, 2);
        QVERIFY(x.run("menuWebM"));
        QCOMPARE(x.w.lstHTTP->texts(), (QStringList{"http://old.h1.test/z", "HTTPS://Secure.h1.test/S?a=1&b='2'"}));
    }

    void articlesFetchedOutsideARun()
    {
        // a message fetched for any reason gives up its addresses when they are kept
        Window x;
        QVERIFY(x.connect(inn::portOpen()));
        QCOMPARE(x.list(gWeb2), 1);
        const qint64 n = x.w.grid->cell(1, 0).trimmed().toLongLong();
        x.w.opt.SaveHTTP = 0;
        x.w.opt.SaveFTP = 0;
        x.w.downloader->NNTP_DownloadMessage(n);
        QCOMPARE(x.w.lstHTTP->count(), 0);
        x.w.opt.SaveFTP = 1;
        x.w.downloader->NNTP_DownloadMessage(n);
        QCOMPARE(x.w.lstHTTP->texts(), QStringList{"ftp://ftp.h2.test/f"});
        QVERIFY(!x.w.S.ScanMode);

        // a download hands the subject over too, when either kind is kept
        x.w.lstHTTP->clear();
        QTemporaryDir dest;
        x.w.opt.DestDir = dest.path() + QLatin1Char('/');
        QCOMPARE(x.list(gSubject), 1);
        x.w.opt.SaveFTP = 0;
        x.w.downloader->DownloadRows(1);
        QCOMPARE(x.w.lstHTTP->count(), 0);
        x.w.opt.SaveHTTP = 1;
        x.w.downloader->DownloadRows(1);
        QCOMPARE(x.w.lstHTTP->texts(), QStringList{"http://subject.h5.test/list"});
    }

    void webAddressesInSelectedGroups()
    {
        Window x;
        QVERIFY(x.connect(inn::portOpen(), true));
        const int i2 = x.w.lstGroups->findGroup(gWeb2);
        const int i3 = x.w.lstGroups->findGroup(gWeb3);
        const int iMail = x.w.lstGroups->findGroup(gMail);
        QVERIFY(i2 >= 0 && i3 >= 0 && iMail >= 0);
        for (int i : {i3, i2, iMail})
            x.w.lstGroups->setSelected(i, true);
        QVERIFY(x.run("menuWebG"));
        // in list order, each group's addresses in article order
        QStringList expected;
        QList<QPair<int, QStringList>> byGroup = {{i2, {"http://www.h2.test/", "ftp://ftp.h2.test/f"}},
                                                  {i3, {"http://www.h3.test/"}},
                                                  {iMail, {}}};
        std::sort(byGroup.begin(), byGroup.end(), [](auto &a, auto &b) { return a.first < b.first; });
        for (auto &g : byGroup)
            expected += g.second;
        QCOMPARE(x.w.lstHTTP->texts(), expected);
        QCOMPARE(x.finishedMessage(), QStringLiteral("3 Web/FTP Addresses found and saved."));
        x.verifyRestored("menuWebG");
        // the group list is shown again, with its groups
        QCOMPARE(x.state(), Connected);
        QVERIFY(x.w.lblGrp->text().startsWith(QStringLiteral("  Available Groups : ")));
        QVERIFY(x.w.lstGroups->findGroup(gWeb) >= 0);
    }

    void emailAddressesWithSearchText()
    {
        Window x;
        QTemporaryDir dir;
        const QString out = dir.filePath(QStringLiteral("mail.txt"));
        QVERIFY(testfile::writeFile(out, "stale line\n"));
        QVERIFY(x.connect(inn::portOpen()));
        QCOMPARE(x.list(gMail), 6);
        x.p.files = {out};
        x.p.inputs = {QStringLiteral("mail.E")};
        QVERIFY(x.run("menuEmailC"));
        QCOMPARE(x.p.asked[0].text, QStringLiteral("Please Specify Output File"));
        QCOMPARE(x.w.lstHTTP->texts(), (QStringList{"jane@mail.e.test", "carl@MAIL.E.test"}));
        QCOMPARE(lines(out), (QStringList{"jane@mail.e.test", "carl@MAIL.E.test"}));
        QCOMPARE(x.w.S.OutputFileName, out);
        QCOMPARE(x.finishedMessage(), QStringLiteral("2 Email Addresses found and saved."));
        // the frame ends with the Web/FTP caption, whatever the kind
        QCOMPARE(x.w.frameHTTP->title(), QStringLiteral("Web/FTP Addresses (2)"));
        x.verifyRestored("menuEmailC");
        QCOMPARE(x.state(), Connected);

        // every address (an empty search text)
        x.p.clear();
        x.p.files = {out};
        x.p.inputs = {QString()};
        QVERIFY(x.run("menuEmailC"));
        QCOMPARE(x.w.lstHTTP->texts(), (QStringList{"jane@mail.e.test", "carl@MAIL.E.test", "ann@other.test"}));
        QCOMPARE(lines(out), x.w.lstHTTP->texts());
    }

    void newsServersFromPath()
    {
        Window x;
        QTemporaryDir dir;
        const QString out = dir.filePath(QStringLiteral("servers.txt"));
        x.w.servers->lstServs->add(QStringLiteral("00012  OK    known.gamma.test"));
        QVERIFY(x.connect(inn::portOpen()));
        QCOMPARE(x.list(gPath), 2);
        x.p.files = {out};
        x.w.action(QStringLiteral("menuServC"))->trigger();
        // INN puts its own name (and where the post came from) in front of the posted Path
        const QString top = x.w.grid->cell(1, 4);
        QVERIFY2(top.endsWith(QStringLiteral("!feed.alpha.test!relay.beta.test.POSTED!nodot")), qPrintable(top));
        QStringList expected;
        for (int r = 1; r <= 2; ++r)
            for (const QString &name : harvest::newsServersInPath(x.w.grid->cell(r, 4)))
                if (!expected.contains(name) && name != QLatin1String("known.gamma.test"))
                    expected << name;
        // both articles' servers (the rules of the Path are the address rules' own)
        QVERIFY(expected.contains(QStringLiteral("feed.alpha.test")) && expected.contains(QStringLiteral("feed.delta.test")));
        QCOMPARE(x.w.lstHTTP->texts(), expected);
        QCOMPARE(lines(out), expected);
        QCOMPARE(x.finishedMessage(), QStringLiteral("%1 News Servers found and saved.").arg(expected.size()));
        x.verifyRestored("menuServC");
        // unchecked items of the server list, after the one it had; saved with it
        QStringList items = {"00012  OK    known.gamma.test"};
        for (const QString &name : expected)
            items << QStringLiteral("????? ???    ") + name;
        QCOMPARE(x.w.servers->lstServs->texts(), items);
        ItemList saved;
        QVERIFY(saved.loadWithSecond(ServerList::listFile()));
        QCOMPARE(saved.texts(), items);
    }

    void emailOverSelectedServers()
    {
        // a reader that carries only one group, then the open reader with every group
        const int restricted = inn::base() + 10;
        if (!inn::harness(QStringLiteral("start-reader"), {QString::number(restricted), QStringLiteral("only"),
                                                           QStringLiteral("alt.newsdredge.only.*"), QStringLiteral("R")})) {
            // a reader left by an earlier run of this test on the same server serves the same groups
            QTcpSocket probe;
            probe.connectToHost(QStringLiteral("127.0.0.1"), quint16(restricted));
            QVERIFY(probe.waitForConnected(5000));
        }

        Window x;
        QTemporaryDir dir;
        ItemList *servs = x.w.servers->lstServs;
        servs->add(QStringLiteral("????? ???    ") + inn::server(restricted));
        servs->add(QStringLiteral("????? ???    news.unselected.test"));
        servs->add(QStringLiteral("00010  OK    ") + inn::server(inn::portNoPost()));
        servs->setSelected(0, true);
        servs->setSelected(2, true);
        x.p.files = {dir.filePath(QStringLiteral("all.txt"))};
        x.p.inputs = {QString()};
        QVERIFY(x.run("menuEmailS"));
        const QStringList found = x.w.lstHTTP->texts();
        // the restricted server's one address first; then the other server's groups, each
        // scanned with that server's own group list
        QVERIFY(!found.isEmpty());
        QCOMPARE(found.first(), QStringLiteral("only@restricted.test"));
        for (const char *a : {"jane@mail.e.test", "carl@MAIL.E.test", "ann@other.test", "w1@example.org", "many@example.org"})
            QVERIFY2(found.contains(QString::fromLatin1(a)), a);
        QCOMPARE(found.count(QStringLiteral("only@restricted.test")), 1);
        QCOMPARE(lines(dir.filePath(QStringLiteral("all.txt"))), found);
        x.verifyRestored("menuEmailS");
        QCOMPARE(x.state(), Disconnected);
    }

    void favoritesRunAndItsStop()
    {
        Window x;
        // two servers: the open reader and the read-only one
        x.w.lstFavorites->addMany({QStringLiteral("%1 (%2)").arg(gMany, inn::server(inn::portOpen())),
                                   QStringLiteral("%1 (%2)").arg(gWeb3, inn::server(inn::portNoPost())),
                                   ItemList::marked('1', QStringLiteral("%1 (%2) (1)").arg(gWeb2, inn::server(inn::portOpen())))});
        x.w.lstFavorites->selectAll();
        bool stopped = false;
        bool wasScanning = false;
        bool wasQuiet = false;
        QElapsedTimer sinceStop;
        QTimer poll;
        poll.setInterval(10);
        QObject::connect(&poll, &QTimer::timeout, [&] {
            if (!stopped && x.w.lstHTTP->count() >= 2) {
                wasScanning = x.w.S.ScanMode;
                wasQuiet = x.w.S.QuietMode;
                stopped = true;
                QVERIFY(x.w.action(QStringLiteral("menuStop"))->isEnabled());
                sinceStop.start();
                x.w.action(QStringLiteral("menuStop"))->trigger();
            }
        });
        poll.start();
        x.w.action(QStringLiteral("menuWebF"))->trigger();
        poll.stop();
        QVERIFY(stopped);
        // reported, not judged: the closing steps include a disconnect
        qInfo("favourites run ended %lld ms after Stop", sinceStop.elapsed());
        QVERIFY(wasScanning);
        QVERIFY(wasQuiet);
        // the first favourite was cut short, the second never visited
        QVERIFY(x.w.lstHTTP->count() < 25);
        QVERIFY(!x.w.lstHTTP->texts().contains(QStringLiteral("http://www.h3.test/")));
        // the run ended through its closing steps
        QVERIFY(x.finishedMessage().endsWith(QStringLiteral(" Web/FTP Addresses found and saved.")));
        x.verifyRestored("menuWebF");
        QCOMPARE(x.state(), Disconnected);

        // and a stopped run leaves nothing behind: the next run goes through, server by server
        x.p.clear();
        x.w.lstFavorites->clearSelection();
        x.w.lstFavorites->setSelected(1, true);
        x.w.lstFavorites->setSelected(2, true);
        x.w.action(QStringLiteral("menuWebF"))->trigger();
        QCOMPARE(x.w.lstHTTP->texts(), (QStringList{"http://www.h3.test/", "http://www.h2.test/", "ftp://ftp.h2.test/f"}));
        QCOMPARE(x.finishedMessage(), QStringLiteral("3 Web/FTP Addresses found and saved."));
        x.verifyRestored("menuWebF");
        QCOMPARE(x.state(), Disconnected);
        QCOMPARE(x.w.lstFavorites->count(), 3);
    }
};

QTEST_MAIN(TstHarvestInn)
#include "tst_harvest_inn.moc"
