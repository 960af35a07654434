// NewsTransport against the real INN of the test fixture. Every answer the
// transport gives is checked against what a plain socket conversation with
// the same server shows.
#include "ScriptServer.h"
#include "support/InnEnv.h"

#include <QDateTime>
#include <QTcpSocket>
#include <QtTest>

namespace {

quint16 readerPort() { return quint16(inn::portOpen()); }
quint16 authPort() { return quint16(inn::portAuth()); }
quint16 noPostPort() { return quint16(inn::portNoPost()); }

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
    QList<QByteArray> data(const QByteArray &command)
    {
        const QByteArray s = status(command);
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

QString addr(quint16 port) { return inn::server(port); }

// The group initTestCase posts to: it always holds articles.
const QByteArray kGroup = "alt.test.newsdredge";

}  // namespace

class TestTransportInn : public QObject {
    Q_OBJECT
private slots:
    // A few articles of our own, so the checks never depend on what other tests posted.
    void initTestCase()
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

    void greeting_posting_permission_and_quit()
    {
        for (const bool posting : {true, false}) {
            Client c;
            QVERIFY(c.connectTo(addr(posting ? readerPort() : noPostPort())));
            QVERIFY(c.r.debug.value(0).startsWith(QLatin1String(posting ? "200" : "201")));
            QCOMPARE(c.t.PostingAllowed(), posting);
            // QUIT: INN's goodbye, and no operation ended
            c.t.Disconnect();
            QVERIFY(waitFor([&] { return c.r.disconnected > 0; }));
            QVERIFY(c.r.debug.last().startsWith(QLatin1String("205")));
            QCOMPARE(c.t.StateText(), kDisconnected);
            QVERIFY(c.r.done.isEmpty());
        }
    }

    void authinfo_against_reader_with_password()
    {
        {
            Client c;
            QVERIFY(c.connectTo(addr(authPort()), inn::authUser(), inn::authPassword()));
            QVERIFY2(c.r.debug.last().startsWith(QLatin1String("281")), qPrintable(c.r.debug.join('\n')));
            for (const QString &d : std::as_const(c.r.debug))
                QVERIFY(!d.contains(QLatin1String("s3cret")));
            // reading works once logged in
            QVERIFY(c.run(QStringLiteral("GROUP alt.test.newsdredge")));
            QCOMPARE(c.r.done.last().value, 211);
            QVERIFY(!c.r.done.last().error);
        }
        {  // wrong password: the connect fails with INN's reason as the last line
            Client c;
            QVERIFY(!c.connectTo(addr(authPort()), inn::authUser(), QStringLiteral("wrong")));
            QCOMPARE(c.t.LastError(), 481);
            QVERIFY(c.r.debug.last().startsWith(QLatin1String("481")));
        }
        {  // no credentials: reading is refused with 480
            Client c;
            if (c.connectTo(addr(authPort())))
                QVERIFY(!c.run(QStringLiteral("GROUP alt.test.newsdredge")) || c.r.done.last().error);
            QCOMPARE(c.t.LastError(), 480);
        }
    }

    void list_matches_server()
    {
        RawNntp raw(readerPort());
        const QList<QByteArray> active = raw.data("LIST ACTIVE");
        QVERIFY(active.size() >= 5);
        Client c;
        NewsTransport &t = c.t;
        QVERIFY(c.connectTo(addr(readerPort())));
        QVERIFY(c.runOk(QStringLiteral("LIST")));
        QCOMPARE(c.r.done.last().value, 215);
        QCOMPARE(t.GroupList().Count(), active.size());
        for (int i = 0; i < active.size(); ++i) {
            const QList<QByteArray> f = active.at(i).split(' ');
            const NewsTransportGroup &g = t.GroupList().Item(i);
            QCOMPARE(g.Name, QString::fromLatin1(f.at(0)));
            QCOMPARE(g.Last, f.at(1).toLongLong());
            QCOMPARE(g.First, f.at(2).toLongLong());
        }
    }

    void group_over_with_path_and_article()
    {
        RawNntp raw(readerPort());
        const QByteArray group = kGroup;
        const QList<QByteArray> g = raw.status("GROUP " + group).split(' ');
        const qint64 count = g.value(1).toLongLong();
        QVERIFY2(count > 0, "the group holds no articles");
        const qint64 first = g.at(2).toLongLong(), last = g.at(3).toLongLong();
        const QList<QByteArray> over = raw.data("OVER " + QByteArray::number(first) + '-' + QByteArray::number(last));
        QList<QByteArray> paths = raw.data("HDR Path " + QByteArray::number(first) + '-' + QByteArray::number(last));
        QVERIFY(!over.isEmpty());

        Client c;
        NewsTransport &t = c.t;
        t.SetPathChunk(7);  // several HDR/OVER rounds even on a small group
        QVERIFY(c.connectTo(addr(readerPort())));
        QVERIFY(c.run(QStringLiteral("GROUP ") + QString::fromLatin1(group)));
        QCOMPARE(t.SelectedGroup().First, first);
        QCOMPARE(t.SelectedGroup().Last, last);
        QCOMPARE(t.SelectedGroup().Estimated, count);

        QVERIFY(c.runOk(QStringLiteral("OVER %1-%2").arg(first).arg(last), 20000));
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
        QVERIFY(c.runOk(QStringLiteral("ARTICLE %1-%1").arg(n)));
        QCOMPARE(c.r.done.last().value, 220);
        QCOMPARE(sel.Count(), 1);
        QCOMPARE(sel.Item(0).Number, n);
        QVERIFY(sel.Item(0).Message.Raw == expected);
        QVERIFY(expected.endsWith(sel.Item(0).Message.Body));
        QCOMPARE(sel.Item(0).Message.header("Message-ID"), textFromBytes(over.at(0).split('\t').at(4)));
        // an article number past the end: no error, no article
        QVERIFY(c.runOk(QStringLiteral("ARTICLE %1-%1").arg(last + 1000)));
        QCOMPARE(sel.Count(), 0);
    }

    void post_then_read_back()
    {
        const QByteArray id = "<nd-transport-" + QByteArray::number(QDateTime::currentMSecsSinceEpoch()) +
                              "@newsdredge.test>";
        const QString post = QStringLiteral("POST From: Tester <tester@newsdredge.test>\nNewsgroups: alt.test.newsdredge\n"
                                            "Subject: transport post test\nMessage-ID: ") + QString::fromLatin1(id) +
                             QStringLiteral("\n\n.line starting with a dot\n.\nlast line\n");
        Client c;
        QVERIFY(c.connectTo(addr(readerPort())));
        QVERIFY(c.run(post));
        QVERIFY2(!c.r.done.last().error, qPrintable(c.r.debug.join('\n')));
        QCOMPARE(c.r.done.last().value, 240);

        RawNntp raw(readerPort());
        QList<QByteArray> body;
        for (int i = 0; i < 100 && !raw.status("STAT " + id).startsWith("223"); ++i)
            QTest::qWait(100);
        body = raw.data("BODY " + id);
        QCOMPARE(body, (QList<QByteArray>{".line starting with a dot", ".", "last line"}));

        // posting on the reader that does not allow it
        Client c2;
        QVERIFY(c2.connectTo(addr(noPostPort())));
        QVERIFY(c2.run(post));
        QVERIFY(c2.r.done.last().error);
        QCOMPARE(c2.t.LastError(), 440);
    }
};

QTEST_GUILESS_MAIN(TestTransportInn)
#include "test_transport_inn.moc"
