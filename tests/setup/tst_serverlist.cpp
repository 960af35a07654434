#include "MiniHttp.h"
#include "app/BatchShell.h"
#include "app/Paths.h"
#include "gui/app/frmMain.h"
#include "news/Session.h"
#include "servers/ServerList.h"
#include "support/TextFile.h"
#include "ui/ItemList.h"
#include "ui/Prompter.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <QtTest>
#include <sys/stat.h>

namespace {
frmMain::Options quiet() { return frmMain::Options{true}; }

// A window with its server list, none of it shown.
struct Fixture {
    ScriptedPrompter p;
    frmMain w{&p, quiet()};
    ServerList &s = *w.servers;
};

int fileMode(const QString &path)
{
    struct stat st {};
    return ::stat(QFile::encodeName(path).constData(), &st) == 0 ? int(st.st_mode & 0777) : -1;
}

} // namespace

class TstServerList : public QObject {
    Q_OBJECT
private slots:
    void init()
    {
        QFile::remove(SettingsStore().fileName());
        QFile::remove(ServerList::listFile());
        QDir(nd::cacheDir()).removeRecursively();
        qunsetenv("NEWSDREDGE_SERVERLIST_URL");
    }

    // A batch run has no window: it reads the list for credentials and never writes it.
    void batchRunsReadTheListButNeverWriteIt()
    {
        ItemList stored;
        stored.add(QStringLiteral("00012  OK    news.a.org"), QStringLiteral("ann|||secret"));
        QVERIFY(stored.saveWithSecond(ServerList::listFile(), true));
        const QByteArray before = testfile::readFile(ServerList::listFile());
        ScriptedPrompter p;
        BatchShell sh(&p);
        ServerList s(sh, nullptr);
        QCOMPARE(s.credentialsFor(QStringLiteral("news.a.org")), (QPair<QString, QString>{"ann", "secret"}));
        s.lstServs->add(ServerList::Unchecked + QStringLiteral("news.b.org"));
        QVERIFY(!s.save());
        QCOMPARE(testfile::readFile(ServerList::listFile()), before);
    }

    void newServerRefusesDuplicateNamesOnly()
    {
        Fixture f;
        auto &[p, w, s] = f;
        s.lstServs->add(QStringLiteral("00734  OK    news.a.com"));
        s.lstServs->add(QStringLiteral("????? ???    news.b.com"), QStringLiteral("u|||p"));

        // same server name behind a different status prefix: refused
        p.inputs = {QStringLiteral("news.a.com")};
        s.menuNew();
        QCOMPARE(p.texts().last(), QStringLiteral("Duplicate Address"));
        QCOMPARE(p.asked.last().icon, Prompter::Exclamation);
        QCOMPARE(p.asked.last().title, QStringLiteral("Newsdredge!"));
        QCOMPARE(s.lstServs->count(), 2);

        // a name that is only the tail of a listed one is a different server
        p.inputs = {QStringLiteral("a.com")};
        s.menuNew();
        QCOMPARE(s.lstServs->count(), 3);
        QCOMPARE(s.lstServs->text(2), QStringLiteral("????? ???    a.com"));
        QCOMPARE(s.lstServs->currentIndex(), 2);
        QVERIFY(s.lstServs->isSelected(2));
        QVERIFY(!s.lstServs->isSelected(0));
        QCOMPARE(w.opt.NNTPServer, QStringLiteral("a.com"));
        QCOMPARE(p.asked[2].text, QStringLiteral("Enter NNTP Server Address :"));

        // TLS and port forms keep the name-after-the-last-space rule
        p.inputs = {QStringLiteral("nntps://secure.example.net:8563"), QStringLiteral("plain.example.net:1119")};
        s.menuNew();
        s.menuNew();
        QCOMPARE(s.findServer(QStringLiteral("nntps://secure.example.net:8563")), 3);
        QCOMPARE(s.findServer(QStringLiteral("plain.example.net:1119")), 4);
        QCOMPARE(NewsSession::ServerFileTag(QStringLiteral("nntps://secure.example.net:8563")),
                 QStringLiteral("nntps___secure_example_net_8563"));

        // blanks would break the name rule; cancel and empty add nothing
        p.clear();
        p.inputs = {QStringLiteral("news.c.com comment"), std::nullopt, QStringLiteral("   ")};
        for (int i = 0; i < 3; ++i)
            s.menuNew();
        QCOMPARE(s.lstServs->count(), 5);
        QCOMPARE(p.asked.size(), 4);   // three questions and one refusal
        QCOMPARE(p.asked[1].kind, QStringLiteral("message"));
    }

    void importTakesHostNamesAndSkipsLinesWithoutDot()
    {
        Fixture f;
        auto &[p, w, s] = f;
        s.lstServs->add(QStringLiteral("00012  OK    news.known.org"));
        QTemporaryDir dir;
        const QString file = dir.filePath(QStringLiteral("servers.txt"));
        QVERIFY(testfile::writeFile(file, "news.x.com this is a comment\r\n"
                                    "localhost\r\n"
                                    "\tnews.y.org\tsecond column\n"
                                    "news.z.net,news.known.org, news.x.com ,text.without.host.after comment\n"
                                    "justaword and.a.dot\r\n"
                                    "\n"));
        p.files = {file};
        s.menuImport();
        QCOMPARE(p.asked[0].kind, QStringLiteral("open"));
        QCOMPARE(s.lstServs->texts(), (QStringList{"00012  OK    news.known.org",
                                                  "????? ???    news.x.com",
                                                  "????? ???    news.y.org",
                                                  "????? ???    news.z.net",
                                                  "????? ???    text.without.host.after"}));
        // "justaword and.a.dot": the dot is in the comment, the name has none
        QVERIFY(w.setupServerFrameCaption() == QStringLiteral("NNTP Servers (5)"));
        // a cancelled file dialog changes nothing
        p.files = {QString()};
        s.menuImport();
        QCOMPARE(s.lstServs->count(), 5);
    }

    void deleteRemovesAdjacentSelectedItemsAndTheirCaches()
    {
        Fixture f;
        auto &[p, w, s] = f;
        for (const char *n : {"one.example", "two.example", "three.example", "four.example", "five.example"})
            s.lstServs->add(ServerList::Unchecked + QLatin1String(n));
        const QString cache = nd::cacheDir() + QStringLiteral("/three_example");
        const QString otherCache = nd::cacheDir() + QStringLiteral("/five_example");
        QVERIFY(testfile::writeFile(cache, "alt.test (5)\n"));
        QVERIFY(testfile::writeFile(otherCache, "alt.test (5)\n"));
        for (int i : {1, 2, 3})
            s.lstServs->setSelected(i, true);
        s.menuDelete();
        QCOMPARE(s.lstServs->texts(), (QStringList{"????? ???    one.example", "????? ???    five.example"}));
        QVERIFY(!QFile::exists(cache));
        QVERIFY(QFile::exists(otherCache));
        // first and last selected, with one in between kept
        s.lstServs->selectAll();
        s.menuDelete();
        QCOMPARE(s.lstServs->count(), 0);
    }

    void loadSortsDescendingAndSavesBack()
    {
        Fixture f;
        auto &[p, w, s] = f;
        s.lstServs->add(QStringLiteral("00734  OK    small.example"), QStringLiteral("a|||b"));
        s.lstServs->add(QStringLiteral("01200  NO    big.example"), QStringLiteral("c|||d"));
        s.lstServs->add(QStringLiteral("00099  OK    tiny.example"));
        s.lstServs->add(QStringLiteral("123456  OK    huge.example"));
        QVERIFY(s.save());
        s.lstServs->clear();
        s.loadSortAndSave();
        const QStringList t = s.lstServs->texts();
        QVERIFY(t.indexOf(QStringLiteral("01200  NO    big.example")) < t.indexOf(QStringLiteral("00734  OK    small.example")));
        QVERIFY(t.indexOf(QStringLiteral("00734  OK    small.example")) < t.indexOf(QStringLiteral("00099  OK    tiny.example")));
        // credentials move with their items
        QCOMPARE(s.credentialsFor(QStringLiteral("big.example")), qMakePair(QStringLiteral("c"), QStringLiteral("d")));
        QCOMPARE(s.credentialsFor(QStringLiteral("small.example")), qMakePair(QStringLiteral("a"), QStringLiteral("b")));
        // the sorted order is what the file now holds
        ItemList fromFile;
        QVERIFY(fromFile.loadWithSecond(ServerList::listFile()));
        QCOMPARE(fromFile.texts(), t);
    }

    void listFileRoundTripKeepsEveryCharacterAndIsPrivate()
    {
        ScriptedPrompter p;
        const QString user = QStringLiteral("jo|hn\tdoe\n");
        const QString password = QStringLiteral(" p|a ss\u00e9\u4e2d|||x\\t ");
        {
            frmMain w(&p, quiet());
            ServerList &s = *w.servers;
            s.lstServs->add(QStringLiteral("00010  OK    news.one.example"), user + ServerList::Separator + password);
            s.lstServs->add(QStringLiteral("????? ???    nntps://news.two.example:563"), QStringLiteral("|||only-password"));
            s.lstServs->add(QStringLiteral("????? ???    news.three.example"));
            QVERIFY(s.save());
        }
        QCOMPARE(fileMode(ServerList::listFile()), 0600);

        // a fresh window reads it without the dialog ever being shown
        frmMain w(&p, quiet());
        ServerList &s = *w.servers;
        QCOMPARE(s.lstServs->count(), 3);
        QCOMPARE(s.credentialsFor(QStringLiteral("news.one.example")), qMakePair(user, password));
        QCOMPARE(s.credentialsFor(QStringLiteral("nntps://news.two.example:563")), qMakePair(QString(), QStringLiteral("only-password")));
        QCOMPARE(s.credentialsFor(QStringLiteral("news.three.example")), qMakePair(QString(), QString()));
        QCOMPARE(s.credentialsFor(QStringLiteral("unknown.example")), qMakePair(QString(), QString()));
        // the connect code reads the same string through the session
        QVERIFY(w.session->serverData);
        QCOMPARE(w.session->serverData(QStringLiteral("news.one.example")), user + QStringLiteral("|||") + password);
        // saving again keeps the file private even when it was made readable meanwhile
        QFile::setPermissions(ServerList::listFile(), QFileDevice::ReadOwner | QFileDevice::WriteOwner | QFileDevice::ReadOther);
        QVERIFY(s.save());
        QCOMPARE(fileMode(ServerList::listFile()), 0600);
    }

    void exportWritesItemLinesAndReportsErrors()
    {
        Fixture f;
        auto &[p, w, s] = f;
        s.lstServs->add(QStringLiteral("01200  NO    big.example"), QStringLiteral("secret|||pw"));
        s.lstServs->add(QStringLiteral("????? ???    new.example"));
        QTemporaryDir dir;
        const QString file = dir.filePath(QStringLiteral("out.txt"));
        QVERIFY(testfile::writeFile(file, "old contents that must go away entirely\n"));
        p.files = {file, dir.filePath(QStringLiteral("missing/dir/out.txt")), QString()};
        s.menuExport();
        QCOMPARE(testfile::readFile(file), QByteArray("01200  NO    big.example\r\n????? ???    new.example\r\n"));
        QCOMPARE(p.texts().last(), QStringLiteral("File Saved"));
        s.menuExport();
        QCOMPARE(p.texts().last(), QStringLiteral("Error Saving File"));
        const int asked = p.asked.size();
        s.menuExport();   // cancelled: nothing more is said
        QCOMPARE(p.asked.size(), asked + 1);
    }

    void findSelectsOrSaysNotFound()
    {
        Fixture f;
        auto &[p, w, s] = f;
        for (const char *n : {"news.a.com", "news.b.com", "news.c.com"})
            s.lstServs->add(ServerList::Unchecked + QLatin1String(n));
        s.lstServs->setSelected(0, true);
        p.inputs = {QStringLiteral("news.c.com"), QStringLiteral("news.q.com")};
        s.menuFind();
        QCOMPARE(p.asked[0].title, QStringLiteral("Enter Server Name"));
        QCOMPARE(s.lstServs->selectedIndexes(), QList<int>{2});
        QCOMPARE(s.lstServs->currentIndex(), 2);
        s.menuFind();
        QCOMPARE(p.texts().last(), QStringLiteral("Not Found"));
        QCOMPARE(s.lstServs->selectedIndexes(), QList<int>{2});
    }

    void openServerListDownload()
    {
        MiniHttp http;
        http.body = "00100  OK    open1.example*,01200  NO    open2.example*\r\n"
                    "????? ???    known.example*\r\n"
                    "no star here\r\n"
                    "bare.example*\n";
        Fixture f;
        auto &[p, w, s] = f;
        s.lstServs->add(QStringLiteral("00005  OK    known.example"), QStringLiteral("me|||pw"));
        qputenv("NEWSDREDGE_SERVERLIST_URL", http.url().toUtf8());

        // Cancel at the notice: nothing is fetched
        p.answers = {Prompter::AnswerCancel};
        s.downloadOpenServers();
        QCOMPARE(http.paths.size(), 0);
        QCOMPARE(p.asked[0].buttons, Prompter::OkCancel);
        QVERIFY(p.asked[0].text.startsWith(QStringLiteral("Please note this process will add a list of \"open\" servers")));

        p.clear();
        s.downloadOpenServers();
        QCOMPARE(http.paths, QList<QByteArray>{"/open-servers.txt"});
        QCOMPARE(p.texts().last(), QStringLiteral("Done."));
        QCOMPARE(s.lstServs->texts(), (QStringList{"00005  OK    known.example", "00100  OK    open1.example",
                                                  "01200  NO    open2.example", "????? ???    bare.example"}));
        QCOMPARE(s.credentialsFor(QStringLiteral("known.example")), qMakePair(QStringLiteral("me"), QStringLiteral("pw")));
        QCOMPARE(w.setupServerFrameCaption(), QStringLiteral("NNTP Servers (4)"));
        QVERIFY(!QFile::exists(nd::appFile(QStringLiteral("openservers.tmp"))));

        // the file missing on the server, a file too short to hold anything: a notice, a failure
        // naming the support address, and the list unchanged
        for (auto [status, body, failure] : {std::tuple{404, "not here", "could not be downloaded"}, std::tuple{200, "x", "could not be imported"}}) {
            p.clear();
            http.status = status;
            http.body = body;
            s.downloadOpenServers();
            QCOMPARE(p.asked.size(), 2);
            QVERIFY(p.asked[1].text.contains(QLatin1String(failure)));
            QVERIFY(p.asked[1].text.contains(QStringLiteral("support@newsdredge.example")));
            QCOMPARE(s.lstServs->count(), 4);
        }

        // with a proxy set the request goes to the proxy, not to the server
        QTcpServer closed;
        QVERIFY(closed.listen(QHostAddress::LocalHost, 0));
        const quint16 deadPort = closed.serverPort();
        closed.close();
        w.opt.ProxyHost = QStringLiteral("127.0.0.1");
        w.opt.ProxyPort = deadPort;
        http.body = "00001  OK    proxied.example*\n";
        http.paths.clear();
        p.clear();
        s.downloadOpenServers();
        QCOMPARE(http.paths.size(), 0);
        QVERIFY(p.asked[1].text.contains(QStringLiteral("could not be downloaded")));
        QCOMPARE(s.findServer(QStringLiteral("proxied.example")), -1);
    }

    void manyOpenServersRefreshTheCaptionAsTheyCome()
    {
        MiniHttp http;
        QByteArray body;
        for (int i = 0; i < 250; ++i)
            body += "????? ???    s" + QByteArray::number(i) + ".example*\r\n";
        http.body = body;
        Fixture f;
        auto &[p, w, s] = f;
        s.setOpenServerListUrl(http.url());
        QStringList captions;
        connect(&s, &ServerList::captionChanged, this, [&](const QString &c) { captions << c; });
        s.downloadOpenServers();
        QCOMPARE(s.lstServs->count(), 250);
        QCOMPARE(captions, (QStringList{"NNTP Servers (100)", "NNTP Servers (200)", "NNTP Servers (250)"}));
    }
};

QTEST_MAIN(TstServerList)
#include "tst_serverlist.moc"
