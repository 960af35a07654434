// NewsTransport against the real INN of the test fixture. Every answer the
// transport gives is checked against what a plain socket conversation with
// the same server shows.
#include "news/transport/NewsTransport.h"
#include "support/InnEnv.h"

#include <QDateTime>
#include <QElapsedTimer>
#include <QTcpSocket>
#include <QtTest>

namespace {

quint16 envPort(const char *name, quint16 fallback)
{
    bool ok = false;
    const int p = qEnvironmentVariableIntValue(name, &ok);
    return ok && p > 0 ? quint16(p) : fallback;
}
quint16 readerPort() { return envPort("ND_INN_PORT", quint16(inn::portOpen())); }
quint16 authPort() { return envPort("ND_INN_AUTH_PORT", quint16(inn::portAuth())); }
quint16 noPostPort() { return envPort("ND_INN_NOPOST_PORT", quint16(inn::portNoPost())); }
const char *kUser = "tester";
const char *kPassword = "s3cret|pw";

// A blocking NNTP conversation on its own socket, for cross-checking.
class RawNntp {
public:
    explicit RawNntp(quint16 port)
    {
        m_sock.connectToHost(QHostAddress::LocalHost, port);
        if (m_sock.waitForConnected(5000))
            greeting = line();
    }
    QByteArray line()
    {
        while (!m_sock.canReadLine())
            if (!m_sock.waitForReadyRead(10000))
                return QByteArray();
        QByteArray l = m_sock.readLine();
        while (l.endsWith('\n') || l.endsWith('\r'))
            l.chop(1);
        return l;
    }
    QByteArray status(const QByteArray &command)
    {
        m_sock.write(command + "\r\n");
        return line();
    }
    // The data lines of a multi-line answer, dot-unstuffed; empty list on an error status.
    QList<QByteArray> data(const QByteArray &command, QByteArray *statusLine = nullptr)
    {
        const QByteArray s = status(command);
        if (statusLine)
            *statusLine = s;
        QList<QByteArray> out;
        if (!s.startsWith('2'))
            return out;
        for (;;) {
            QByteArray l = line();
            if (l == ".")
                break;
            if (l.startsWith('.'))
                l.remove(0, 1);
            out << l;
        }
        return out;
    }
    QByteArray greeting;
private:
    QTcpSocket m_sock;
};

struct Events {
    explicit Events(NewsTransport *t)
    {
        QObject::connect(t, &NewsTransport::Debug, t, [this](NewsTransport *, const QString &s) { debug << s; });
        QObject::connect(t, &NewsTransport::Done, t, [this](NewsTransport *, qint32 v, bool e, const QString &) {
            ++done;
            lastValue = v;
            lastError = e;
        });
        QObject::connect(t, &NewsTransport::Connected, t, [this] { ++connected; });
        QObject::connect(t, &NewsTransport::Disconnected, t, [this] { ++disconnected; });
    }
    QStringList debug;
    int done = 0, connected = 0, disconnected = 0;
    qint32 lastValue = 0;
    bool lastError = false;
};

bool waitFor(const std::function<bool()> &pred, int ms = 20000)
{
    QElapsedTimer clock;
    clock.start();
    while (!pred() && clock.elapsed() < ms)
        QTest::qWait(5);
    return pred();
}

QString addr(quint16 port) { return QStringLiteral("127.0.0.1:%1").arg(port); }

// A group of the fixture that holds articles (the busiest of the test groups).
QByteArray busyGroup(RawNntp &raw, qint64 *count = nullptr)
{
    QByteArray best;
    qint64 bestCount = 0;
    for (const QByteArray &g : {QByteArray("alt.binaries.newsdredge.test"), QByteArray("alt.test.newsdredge"),
                                QByteArray("alt.newsdredge.text")}) {
        const QList<QByteArray> f = raw.status("GROUP " + g).split(' ');
        if (f.value(0) == "211" && f.value(1).toLongLong() > bestCount) {
            bestCount = f.value(1).toLongLong();
            best = g;
        }
    }
    if (count)
        *count = bestCount;
    return best;
}

}  // namespace

class TestTransportInn : public QObject {
    Q_OBJECT
private slots:
    void initTestCase();
    void greeting_and_posting_permission();
    void authinfo_against_reader_with_password();
    void list_matches_server();
    void group_over_with_path_and_article();
    void post_then_read_back();
    void quit();
};

// A few articles of our own, so the checks never depend on what other tests posted.
void TestTransportInn::initTestCase()
{
    RawNntp raw(readerPort());
    QVERIFY2(raw.greeting.startsWith("200"), "INN reader not reachable");
    const QByteArray stamp = QByteArray::number(QDateTime::currentMSecsSinceEpoch());
    for (int i = 1; i <= 3; ++i) {
        QVERIFY(raw.status("POST").startsWith("340"));
        const QByteArray answer = raw.status(
            "From: Seeder <seed@newsdredge.test>\r\nNewsgroups: alt.test.newsdredge\r\n"
            "Subject: transport seed " + QByteArray::number(i) + " (" + QByteArray::number(i) + "/3)\r\n"
            "Message-ID: <seed-" + QByteArray::number(i) + "-" + stamp + "@newsdredge.test>\r\n\r\n"
            "..a line that starts with a dot\r\nbody " + QByteArray::number(i) + "\r\n.");
        QVERIFY2(answer.startsWith("240"), answer.constData());
    }
}

void TestTransportInn::greeting_and_posting_permission()
{
    struct Case { quint16 port; bool posting; };
    for (const Case &c : {Case{readerPort(), true}, Case{noPostPort(), false}}) {
        RawNntp raw(c.port);
        QVERIFY2(!raw.greeting.isEmpty(), "INN reader not reachable");
        NewsTransport t;
        Events ev(&t);
        t.SetHost(addr(c.port));
        t.Connect(addr(c.port));
        QVERIFY(waitFor([&] { return ev.connected || ev.done; }));
        QCOMPARE(t.StateText(), QStringLiteral("Connected to NNTP Server"));
        QVERIFY(ev.debug.value(0).startsWith(QLatin1String(c.posting ? "200" : "201")));
        QCOMPARE(t.PostingAllowed(), c.posting);
    }
}

void TestTransportInn::authinfo_against_reader_with_password()
{
    {
        NewsTransport t;
        Events ev(&t);
        t.Connect(addr(authPort()), QString::fromLatin1(kUser), QString::fromLatin1(kPassword));
        QVERIFY(waitFor([&] { return ev.connected || ev.done; }));
        QCOMPARE(t.StateText(), QStringLiteral("Connected to NNTP Server"));
        QVERIFY2(ev.debug.last().startsWith(QLatin1String("281")), qPrintable(ev.debug.join('\n')));
        for (const QString &d : std::as_const(ev.debug))
            QVERIFY(!d.contains(QLatin1String("s3cret")));
        // reading works once logged in
        RawNntp raw(authPort());
        raw.status("AUTHINFO USER " + QByteArray(kUser));
        QVERIFY(raw.status("AUTHINFO PASS " + QByteArray(kPassword)).startsWith("281"));
        const QByteArray group = busyGroup(raw);
        QVERIFY(!group.isEmpty());
        t.SelectGroup(QString::fromLatin1(group));
        QVERIFY(waitFor([&] { return ev.done > 0; }));
        QCOMPARE(ev.lastValue, 211);
        QVERIFY(!ev.lastError);
    }
    {  // wrong password: the connect fails with INN's reason as the last line
        NewsTransport t;
        Events ev(&t);
        t.Connect(addr(authPort()), QString::fromLatin1(kUser), QStringLiteral("wrong"));
        QVERIFY(waitFor([&] { return ev.done > 0; }));
        QVERIFY(ev.lastError);
        QCOMPARE(t.LastError(), 481);
        QVERIFY(ev.debug.last().startsWith(QLatin1String("481")));
        QCOMPARE(t.StateText(), QStringLiteral("Disconnected from NNTP Server"));
    }
    {  // no credentials: reading is refused with 480
        NewsTransport t;
        Events ev(&t);
        t.Connect(addr(authPort()));
        QVERIFY(waitFor([&] { return ev.connected || ev.done; }));
        if (t.StateText() == QLatin1String("Connected to NNTP Server")) {
            const int before = ev.done;
            t.SelectGroup(QStringLiteral("alt.test.newsdredge"));
            QVERIFY(waitFor([&] { return ev.done > before; }));
            QVERIFY(ev.lastError);
            QCOMPARE(t.LastError(), 480);
        } else {
            QCOMPARE(t.LastError(), 480);
        }
    }
}

void TestTransportInn::list_matches_server()
{
    RawNntp raw(readerPort());
    const QList<QByteArray> active = raw.data("LIST ACTIVE");
    QVERIFY(active.size() >= 5);
    NewsTransport t;
    Events ev(&t);
    t.Connect(addr(readerPort()));
    QVERIFY(waitFor([&] { return ev.connected > 0; }));
    t.RequestGroupList();
    QVERIFY(waitFor([&] { return ev.done > 0; }));
    QVERIFY(!ev.lastError);
    QCOMPARE(ev.lastValue, 215);
    QCOMPARE(t.GroupList().Count(), active.size());
    for (int i = 0; i < active.size(); ++i) {
        const QList<QByteArray> f = active.at(i).split(' ');
        const NewsTransportGroup &g = t.GroupList().Item(i);
        QCOMPARE(g.Name, QString::fromLatin1(f.at(0)));
        QCOMPARE(g.Last, f.at(1).toLongLong());
        QCOMPARE(g.First, f.at(2).toLongLong());
    }
    QStringList names;
    for (int i = 0; i < t.GroupList().Count(); ++i)
        names << t.GroupList().Item(i).Name;
    for (const char *g : {"alt.binaries.newsdredge.test", "alt.test.newsdredge", "misc.test.empty"})
        QVERIFY2(names.contains(QLatin1String(g)), g);
}

void TestTransportInn::group_over_with_path_and_article()
{
    // a few articles of our own, so the group has something to list
    for (int i = 0; i < 3; ++i)
        QVERIFY(!inn::post("From: Tester <tester@newsdredge.test>\nNewsgroups: alt.test.newsdredge\nSubject: overview check "
                           + QByteArray::number(i) + "\n\nline one\n.dot line\n").isEmpty());
    RawNntp raw(readerPort());
    qint64 count = 0;
    const QByteArray group = busyGroup(raw, &count);
    QVERIFY2(count > 0, "the fixture's groups hold no articles");
    const QList<QByteArray> g = raw.status("GROUP " + group).split(' ');
    const qint64 first = g.at(2).toLongLong(), last = g.at(3).toLongLong();
    const QList<QByteArray> over = raw.data("OVER " + QByteArray::number(first) + '-' + QByteArray::number(last));
    QList<QByteArray> paths = raw.data("HDR Path " + QByteArray::number(first) + '-' + QByteArray::number(last));
    QVERIFY(!over.isEmpty());

    NewsTransport t;
    Events ev(&t);
    t.SetPathChunk(7);  // several HDR/OVER rounds even on a small group
    t.Connect(addr(readerPort()));
    QVERIFY(waitFor([&] { return ev.connected > 0; }));
    t.SelectGroup(QString::fromLatin1(group));
    QVERIFY(waitFor([&] { return ev.done == 1; }));
    QCOMPARE(t.SelectedGroup().First, first);
    QCOMPARE(t.SelectedGroup().Last, last);
    QCOMPARE(t.SelectedGroup().Estimated, count);

    t.FetchHeaders(first, last);
    QVERIFY(waitFor([&] { return ev.done == 2; }));
    QVERIFY(!ev.lastError);
    const NewsTransportGroup &sel = t.SelectedGroup();
    QCOMPARE(sel.Count(), over.size());
    QHash<qint64, QByteArray> pathOf;
    for (const QByteArray &p : std::as_const(paths)) {
        const qsizetype sp = p.indexOf(' ');
        pathOf.insert(p.left(sp).toLongLong(), p.mid(sp + 1));
    }
    for (int i = 0; i < over.size(); ++i) {
        const QList<QByteArray> f = over.at(i).split('\t');
        const NewsTransportArticle &a = sel.Item(i);
        QCOMPARE(a.Number, f.at(0).toLongLong());
        QCOMPARE(a.Message.header("Subject"), textFromBytes(f.at(1)));
        QCOMPARE(a.Message.header("From"), textFromBytes(f.at(2)));
        QCOMPARE(a.Message.header("Message-ID"), textFromBytes(f.at(4)));
        QCOMPARE(a.Message.Headers.at(0).Name, QStringLiteral("Subject"));
        QCOMPARE(a.Message.Headers.last().Name, QStringLiteral("Path"));
        QCOMPARE(a.Message.header("Path"), textFromBytes(pathOf.value(a.Number)));
        QVERIFY(!a.Message.header("Path").isEmpty());
    }

    // ARTICLE: byte for byte what the server holds (dot-unstuffed, CR LF lines)
    const qint64 n = sel.Item(0).Number;
    const QList<QByteArray> lines = raw.data("ARTICLE " + QByteArray::number(n));
    QByteArray expected;
    for (const QByteArray &l : lines)
        expected += l + "\r\n";
    t.FetchArticles(n, n);
    QVERIFY(waitFor([&] { return ev.done == 3; }));
    QVERIFY(!ev.lastError);
    QCOMPARE(ev.lastValue, 220);
    QCOMPARE(sel.Count(), 1);
    QCOMPARE(sel.Item(0).Number, n);
    QVERIFY(sel.Item(0).Message.Raw == expected);
    QVERIFY(expected.endsWith(sel.Item(0).Message.Body));
    QCOMPARE(sel.Item(0).Message.header("Message-ID"), textFromBytes(over.at(0).split('\t').at(4)));
    // an article number past the end: no error, no article
    t.FetchArticles(last + 1000, last + 1000);
    QVERIFY(waitFor([&] { return ev.done == 4; }));
    QVERIFY(!ev.lastError);
    QCOMPARE(sel.Count(), 0);
}

void TestTransportInn::post_then_read_back()
{
    const QByteArray id = "<nd-transport-" + QByteArray::number(QDateTime::currentMSecsSinceEpoch()) +
                          "@newsdredge.test>";
    NewsTransportArticle a;
    a.Message.Raw = "From: Tester <tester@newsdredge.test>\nNewsgroups: alt.test.newsdredge\n"
                    "Subject: transport post test\nMessage-ID: " + id + "\n\n"
                    ".line starting with a dot\n.\nlast line\n";
    NewsTransport t;
    Events ev(&t);
    t.Connect(addr(readerPort()));
    QVERIFY(waitFor([&] { return ev.connected > 0; }));
    t.Post(a);
    QVERIFY(waitFor([&] { return ev.done > 0; }));
    QVERIFY2(!ev.lastError, qPrintable(ev.debug.join('\n')));
    QCOMPARE(ev.lastValue, 240);

    RawNntp raw(readerPort());
    QList<QByteArray> body;
    QVERIFY(waitFor([&] {
        QByteArray st;
        body = raw.data("BODY " + id, &st);
        return st.startsWith("222");
    }, 10000));
    QCOMPARE(body, (QList<QByteArray>{".line starting with a dot", ".", "last line"}));

    // posting on the reader that does not allow it
    NewsTransport t2;
    Events ev2(&t2);
    t2.Connect(addr(noPostPort()));
    QVERIFY(waitFor([&] { return ev2.connected > 0; }));
    t2.Post(a);
    QVERIFY(waitFor([&] { return ev2.done > 0; }));
    QVERIFY(ev2.lastError);
    QCOMPARE(t2.LastError(), 440);
}

void TestTransportInn::quit()
{
    NewsTransport t;
    Events ev(&t);
    t.Connect(addr(readerPort()));
    QVERIFY(waitFor([&] { return ev.connected > 0; }));
    t.Disconnect();
    QVERIFY(waitFor([&] { return ev.disconnected > 0; }));
    QVERIFY(ev.debug.last().startsWith(QLatin1String("205")));
    QCOMPARE(t.StateText(), QStringLiteral("Disconnected from NNTP Server"));
    QCOMPARE(ev.done, 0);
}

QTEST_GUILESS_MAIN(TestTransportInn)
#include "test_transport_inn.moc"
