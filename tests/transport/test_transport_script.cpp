// NewsTransport against a scripted peer: greetings, log-in, every command's
// error answers, time-outs, dropped connections, huge and non-UTF-8 lines,
// streaming, abort and reconnect, posting, TLS.
#include "ScriptServer.h"

#include <QCryptographicHash>
#include <QElapsedTimer>
#include <QSslConfiguration>
#include <QTimer>
#include <QPointer>
#include <QtTest>

namespace {

// Counts ticks of a short timer: proves the event loop kept running.
class Ticker : public QObject {
public:
    Ticker() { m_timer.callOnTimeout([this] { ++ticks; }); m_timer.start(50); }
    int ticks = 0;
private:
    QTimer m_timer;
};

QByteArray overRow(qint64 n, const QByteArray &subject = "Subject")
{
    return QByteArray::number(n) + '\t' + subject + ' ' + QByteArray::number(n) +
           "\tPoster <p@x>\tMon, 16 Nov 2003 21:54:12 -0500\t<" + QByteArray::number(n) +
           "@x>\t\t100\t5\tXref: h a.b:" + QByteArray::number(n) + "\r\n";
}

using Replies = QHash<QByteArray, QByteArray>;

// A minimal SOCKS5 relay (no authentication, CONNECT only) on 127.0.0.1.
class Socks5Relay : public QTcpServer {
public:
    int tunnels = 0;
    QByteArray lastTarget;
protected:
    void incomingConnection(qintptr fd) override
    {
        auto *in = new QTcpSocket(this);
        in->setSocketDescriptor(fd);
        auto *out = new QTcpSocket(this);
        auto stage = std::make_shared<int>(0);
        auto buf = std::make_shared<QByteArray>();
        connect(in, &QIODevice::readyRead, in, [this, in, out, stage, buf] {
            *buf += in->readAll();
            if (*stage == 0 && buf->size() >= 2 && buf->size() >= 2 + quint8(buf->at(1))) {
                buf->remove(0, 2 + quint8(buf->at(1)));
                in->write(QByteArray("\x05\x00", 2));
                *stage = 1;
            }
            if (*stage == 1 && buf->size() >= 5) {
                const quint8 atyp = quint8(buf->at(3));
                QString host;
                qsizetype len = 0;
                if (atyp == 1 && buf->size() >= 10) {
                    host = QStringLiteral("%1.%2.%3.%4").arg(quint8(buf->at(4))).arg(quint8(buf->at(5)))
                               .arg(quint8(buf->at(6))).arg(quint8(buf->at(7)));
                    len = 10;
                } else if (atyp == 3 && buf->size() >= 7 + quint8(buf->at(4))) {
                    host = QString::fromLatin1(buf->mid(5, quint8(buf->at(4))));
                    len = 7 + quint8(buf->at(4));
                } else {
                    return;
                }
                const quint16 port = quint16((quint8(buf->at(len - 2)) << 8) | quint8(buf->at(len - 1)));
                buf->remove(0, len);
                lastTarget = host.toLatin1() + ':' + QByteArray::number(port);
                if (host != QLatin1String("127.0.0.1") && host != QLatin1String("localhost")) {
                    in->abort();  // loopback only
                    return;
                }
                *stage = 2;
                ++tunnels;
                out->connectToHost(QHostAddress::LocalHost, port);
            }
            if (*stage == 3 && !buf->isEmpty()) {
                out->write(*buf);
                buf->clear();
            }
        });
        connect(out, &QTcpSocket::connected, in, [in, out, stage, buf] {
            in->write(QByteArray("\x05\x00\x00\x01\x7f\x00\x00\x01\x00\x00", 10));
            *stage = 3;
            if (!buf->isEmpty()) {
                out->write(*buf);
                buf->clear();
            }
        });
        connect(out, &QIODevice::readyRead, in, [in, out] { in->write(out->readAll()); });
        connect(out, &QTcpSocket::disconnected, in, [in] { in->disconnectFromHost(); });
        connect(in, &QTcpSocket::disconnected, out, [out] { out->disconnectFromHost(); });
    }
};

}  // namespace

// One operation on an open session (after any others), judged by what it notifies and
// collects and what the server got. A time-out or a dropped connection ends the session; any
// other outcome keeps it usable.
struct OpenCase {
    QByteArray greeting;
    QByteArray modeReader;   // the answer to MODE READER; empty: "200"
    QString user;
    int option;
    bool posting;
    QByteArrayList sent;
};
Q_DECLARE_METATYPE(OpenCase)

struct FailCase {
    QByteArray greeting;
    QByteArray modeReader;
    QString password;   // given with the user "joe"
    int timeout;
    int code;           // Done's value
    int lastError;
    QString shown;      // the reason shown to the user, once
};
Q_DECLARE_METATYPE(FailCase)

struct OpCase {
    Replies replies;        // besides the session's own
    QStringList ops;        // the last one is judged
    int code;               // Done's value
    int lastError;          // 0: Done reports success
    QString shown;          // the last Debug line
    QByteArrayList sent;    // what the server got once the session was open
    QStringList articles;   // "number subject" of each collected
    int timeout = 0;
    bool limit = false;     // LimitExceeded()
};
Q_DECLARE_METATYPE(OpCase)

class TestTransportScript : public QObject {
    Q_OBJECT
private slots:
    void without_a_server()
    {
        Client c;
        QCOMPARE(c.t.StateText(), kDisconnected);
        QVERIFY(!c.t.Busy());
        c.t.SetHost(QStringLiteral("  Odd Entry:119 "));
        QCOMPARE(c.t.Host(), QStringLiteral("  Odd Entry:119 "));
        // Disconnect on a closed object still reports, but not from inside the call
        c.t.Disconnect();
        QCOMPARE(c.r.disconnected, 0);
        QTRY_COMPARE(c.r.disconnected, 1);
        // operations without a session fail through Done, never by blocking
        QVERIFY(c.run(QStringLiteral("GROUP a.b")));
        QVERIFY(c.r.done.at(0).error);
        QCOMPARE(c.t.LastError(), qint32(NewsTransport::ErrorNotConnected));
        // an entry that is no address
        QVERIFY(!c.connectTo(QStringLiteral("http://nope")));
        QCOMPARE(c.r.done.size(), 2);
        QCOMPARE(c.t.LastError(), qint32(NewsTransport::ErrorAddress));
        QCOMPARE(c.t.StateText(), kDisconnected);
        // an address nobody listens on
        quint16 port;
        {
            QTcpServer probe;
            QVERIFY(probe.listen(QHostAddress::LocalHost, 0));
            port = probe.serverPort();
        }
        QVERIFY(!c.connectTo(QStringLiteral("127.0.0.1:%1").arg(port)));
        QCOMPARE(c.t.LastError(), qint32(NewsTransport::ErrorSocket));
        QCOMPARE(c.r.debug.last(), QStringLiteral("Connection refused by 127.0.0.1:%1").arg(port));
        QCOMPARE(c.t.StateText(), kDisconnected);
    }

    void connect_opens_data()
    {
        QTest::addColumn<OpenCase>("k");
        const QByteArray hello = "200 scripted server ready, posting ok\r\n";
        const QByteArrayList reader = {"MODE READER"};
        QTest::newRow("posting") << OpenCase{hello, {}, {}, 0, true, reader};
        QTest::newRow("reader without posting") << OpenCase{hello, "201 reader, no posting\r\n", {}, 0, false, reader};
        QTest::newRow("no reader mode") << OpenCase{"200 hi\r\n", "500 what?\r\n", {}, 0, true, reader};
        QTest::newRow("MODE READER left out") << OpenCase{"201 no posting\r\n", {}, {}, NewsTransport::OptionNoModeReader, false, {}};
        QTest::newRow("log-in") << OpenCase{hello, {}, "joe", 0, true,
                                            {"CAPABILITIES", "MODE READER", "AUTHINFO USER joe", "AUTHINFO PASS s3cret"}};
        QTest::newRow("Latin-1 greeting") << OpenCase{"200 Willkommen bei M\xfcller, posting ok\r\n", {}, {}, 0, true, reader};
    }

    void connect_opens()
    {
        QFETCH(OpenCase, k);
        const auto &[greeting, modeReader, user, option, posting, sent] = k;
        Session f;
        f.s.greeting = greeting;
        if (!modeReader.isEmpty())
            f.s.replies["MODE READER"] = modeReader;
        f.t.SetOption(option);
        QList<qint32> states;
        connect(&f.t, &NewsTransport::StateChanged, this, [&](NewsTransport *, qint32, qint32 n) { states << n; });
        f.t.Connect(f.s.address(), user, QStringLiteral("s3cret"));
        QCOMPARE(f.t.StateText(), QStringLiteral("Connecting to NNTP Server"));
        QTRY_COMPARE(f.r.connected, 1);
        QCOMPARE(f.t.StateText(), kConnected);
        QCOMPARE(f.r.debug.value(0), QString::fromLatin1(greeting.trimmed()));
        QCOMPARE(f.t.PostingAllowed(), posting);
        QVERIFY(f.r.done.isEmpty());
        QCOMPARE(states.first(), qint32(NewsTransport::StateConnecting));
        QCOMPARE(states.last(), qint32(NewsTransport::StateConnected));
        QCOMPARE(f.s.received, sent);
        for (const QString &d : std::as_const(f.r.debug))   // the log-in never shows
            QVERIFY2(!d.contains(QLatin1String("s3cret")) && !d.startsWith(QLatin1String("AUTHINFO")), qPrintable(d));
    }

    void connect_fails_data()
    {
        QTest::addColumn<FailCase>("k");
        const QByteArray hello = "200 hello\r\n";
        QTest::newRow("refused") << FailCase{"502 you are not welcome here\r\n", {}, {}, 0, 502, 502, "502 you are not welcome here"};
        QTest::newRow("unavailable") << FailCase{"400 service temporarily unavailable\r\n", {}, {}, 0, 400, 400,
                                                 "400 service temporarily unavailable"};
        QTest::newRow("not NNTP") << FailCase{"not nntp at all\r\n", {}, {}, 0, 0, NewsTransport::ErrorProtocol, "not nntp at all"};
        QTest::newRow("wrong password") << FailCase{hello, {}, "wrong", 0, 481, 481, "481 authentication failed"};
        QTest::newRow("log-in wanted, none given") << FailCase{hello, "480 authentication required\r\n", {}, 0, 480, 480,
                                                               "480 authentication required"};
        QTest::newRow("silent greeting") << FailCase{{}, {}, {}, 1, 0, NewsTransport::ErrorTimeout,
                                                     "No answer from 127.0.0.1 within 1 seconds"};
    }

    void connect_fails()
    {
        QFETCH(FailCase, k);
        const auto &[greeting, modeReader, password, timeout, code, lastError, shown] = k;
        Ticker ticker;
        Session f;
        f.s.greeting = greeting;
        if (!modeReader.isEmpty())
            f.s.replies["MODE READER"] = modeReader;
        f.t.SetTimeout(timeout);
        QElapsedTimer clock;
        clock.start();
        QVERIFY(!f.open(password.isEmpty() ? QString() : QStringLiteral("joe"), password));
        if (timeout) {
            const qint64 ms = clock.elapsed();
            QVERIFY2(ms >= timeout * 1000 - 100 && ms <= timeout * 1000 + 800, QByteArray::number(ms));
            QVERIFY(ticker.ticks >= timeout * 1000 / 50 * 6 / 10);   // the loop ran all along
        }
        QCOMPARE(f.r.done.size(), 1);
        QVERIFY(f.r.done.at(0).error);
        QCOMPARE(f.r.done.at(0).value, code);
        QCOMPARE(f.t.LastError(), lastError);
        QCOMPARE(f.r.debug.last(), shown);
        QCOMPARE(f.r.debug.count(shown), 1);
        QCOMPARE(f.t.StateText(), kDisconnected);
        QCOMPARE(f.r.connected, 0);
        QCOMPARE(f.r.disconnected, 0);   // what never opened does not close
        if (!greeting.startsWith("200"))
            QCOMPARE(f.s.received, QByteArrayList());   // nothing goes to a server that did not welcome us
    }

    void operation_data()
    {
        QTest::addColumn<OpCase>("k");
        const QByteArrayList over = {"LIST OVERVIEW.FMT", "HDR Path 1-2", "OVER 1-2"};
        const Replies gone = {{"ARTICLE 1", "423 no such article number\r\n"}, {"ARTICLE 2", "430 no such article\r\n"},
                              {"ARTICLE 3", "220 3 <3@x>\r\nSubject: three\r\n\r\nbody\r\n.\r\n"}};
        QByteArray huge;
        while (huge.size() < 1024 * 1024)
            huge += "<" + QByteArray::number(huge.size()) + "@refs.example> ";
        huge.chop(1);
        using E = NewsTransport::LocalError;
        QTest::newRow("GROUP unknown") << OpCase{{{"GROUP NO.SUCH", "411 no such group\r\n"}}, {"GROUP no.such"}, 411, 411,
                     "411 no such group", {"GROUP no.such"}};
        QTest::newRow("GROUP in UTF-8") << OpCase{{{"GROUP GR", "211 1 1 1 gr\xc3\xbc\xc3\x9f" "e.de\r\n"}},
                     {QStringLiteral("GROUP gr\u00fc\u00dfe.de")}, 211, 0, QStringLiteral("211 1 1 1 gr\u00fc\u00dfe.de"),
                     {"GROUP gr\xc3\xbc\xc3\x9f" "e.de"}};
        QTest::newRow("LIST fails") << OpCase{{{"LIST ACTIVE", "503 program fault\r\n"}}, {"LIST"}, 503, 503, "503 program fault",
                     {"LIST ACTIVE"}};
        QTest::newRow("OVER fails") << OpCase{{{"OVER", "503 overview broken\r\n"}}, {"OVER 1-2"}, 503, 503, "503 overview broken",
                     over};
        QTest::newRow("ARTICLE refused") << OpCase{{{"ARTICLE", "502 not for you\r\n"}}, {"ARTICLE 10-10"}, 502, 502,
                     "502 not for you", {"ARTICLE 10"}};
        QTest::newRow("POST refused") << OpCase{{{"POST", "440 posting not permitted\r\n"}}, {"POST x"}, 440, 440,
                     "440 posting not permitted", {"POST"}};
        QTest::newRow("POST text rejected") << OpCase{{{"POST", "340 send it\r\n"}, {".", "441 posting failed: no newsgroups\r\n"}},
                     {"POST Subject: x\r\n\r\nbody"}, 441, 441, "441 posting failed: no newsgroups",
                     {"POST", "Subject: x", "", "body", "."}};
        QTest::newRow("POST dot-stuffed") << OpCase{{{"POST", "340 send article\r\n"}, {".", "240 article posted\r\n"}},
                     {"POST Newsgroups: a.b\nSubject: dots\n\n.hidden\n.\nmiddle\r\n..two\nlast"}, 240, 0,
                     "240 article posted",
                     {"POST", "Newsgroups: a.b", "Subject: dots", "", "..hidden", "..", "middle", "...two", "last", "."}};
        QTest::newRow("article gone (423)") << OpCase{gone, {"ARTICLE 1-1"}, 423, 0, "423 no such article number", {"ARTICLE 1"}};
        QTest::newRow("article gone (430)") << OpCase{gone, {"ARTICLE 2-2"}, 430, 0, "430 no such article", {"ARTICLE 2"}};
        QTest::newRow("range past gone ones") << OpCase{gone, {"ARTICLE 1-3"}, 220, 0, "220 3 <3@x>",
                     {"ARTICLE 1", "ARTICLE 2", "ARTICLE 3"}, {"3 three"}};
        QTest::newRow("next fetch starts empty") << OpCase{gone, {"ARTICLE 1-3", "ARTICLE 2-2"}, 430, 0, "430 no such article",
                     {"ARTICLE 1", "ARTICLE 2", "ARTICLE 3", "ARTICLE 2"}};
        QTest::newRow("limit words in data") << OpCase{{{"OVER", "224 overview\r\n" + overRow(1, "LIMIT EXCEEDED is a great band") +
                                                          overRow(2, "limit exceeded again") + ".\r\n"}},
                     {"OVER 1-2"}, 224, 0, "224 overview", over,
                     {"1 LIMIT EXCEEDED is a great band 1", "2 limit exceeded again 2"}};
        QTest::newRow("download limit") << OpCase{{{"ARTICLE", "502 Download limit exceeded, buy more\r\n"}}, {"ARTICLE 1-1"},
                     502, 502, "502 Download limit exceeded, buy more", {"ARTICLE 1"}, {}, 0, true};
        QTest::newRow("1 MiB overview field") << OpCase{{{"OVER", "224 overview\r\n1\t" + huge + "\tF\tD\t<1@x>\t\t1\t1\r\n.\r\n"}},
                     {"OVER 1-2"}, 224, 0, "224 overview", over, {"1 " + QString::fromLatin1(huge)}};
        QTest::newRow("silent on GROUP") << OpCase{{{"GROUP", ""}}, {"GROUP a.b"}, 0, E::ErrorTimeout,
                     "No answer from 127.0.0.1 within 1 seconds", {"GROUP a.b"}, {}, 1};
        QTest::newRow("dropped in an answer") << OpCase{{{"OVER", "224 overview\r\n" + overRow(1) +
                                                           "2\tcut in the mid" + ScriptServer::Close}},
                     {"OVER 1-2"}, 0, E::ErrorDropped, "Connection to 127.0.0.1 lost: Connection closed by the server",
                     over, {"1 Subject 1"}};
    }

    void operation()
    {
        QFETCH(OpCase, k);
        const auto &[replies, ops, code, lastError, shown, sent, articles, timeout, limit] = k;
        Ticker ticker;
        Session f;
        for (auto it = replies.constBegin(); it != replies.constEnd(); ++it)
            f.s.replies.insert(it.key(), it.value());
        f.t.SetTimeout(timeout);
        QVERIFY(f.open());
        const qsizetype opened = f.s.received.size();
        for (const QString &op : ops.mid(0, ops.size() - 1))
            QVERIFY(f.run(op));
        QElapsedTimer clock;
        clock.start();
        f.start(ops.last());
        QVERIFY(f.t.Busy());
        QVERIFY(f.waitDone(ops.size(), timeout * 1000 + 5000));
        if (timeout) {
            const qint64 ms = clock.elapsed();
            QVERIFY2(ms >= timeout * 1000 - 100 && ms <= timeout * 1000 + 800, QByteArray::number(ms));
            QVERIFY(ticker.ticks >= timeout * 1000 / 50 * 6 / 10);   // the loop ran all along
        }
        QVERIFY(!f.t.Busy());
        QCOMPARE(f.r.done.last().value, code);
        QCOMPARE(f.r.done.last().error, lastError != 0);
        QCOMPARE(f.t.LastError(), lastError);
        QCOMPARE(f.r.debug.last(), shown);
        QCOMPARE(f.t.LimitExceeded(), limit);
        QCOMPARE(f.s.received.mid(opened), sent);
        QStringList got;
        for (const NewsTransportArticle &a : std::as_const(f.t.SelectedGroup().Articles))
            got << QString::number(a.Number) + QLatin1Char(' ') + a.Message.header(QStringLiteral("Subject"));
        QCOMPARE(got, articles);   // what arrived stays, also when the answer broke off
        for (const QString &d : std::as_const(f.r.debug))
            QVERIFY2(!d.contains(QLatin1Char('\t')), qPrintable(d));   // data lines never reach Debug
        if (lastError == NewsTransport::ErrorTimeout || lastError == NewsTransport::ErrorDropped) {
            QCOMPARE(f.t.StateText(), kDisconnected);
            QTRY_COMPARE(f.r.disconnected, 1);
            return;
        }
        QCOMPARE(f.t.StateText(), kConnected);
        f.start(QStringLiteral("GROUP a.b"));
        QCOMPARE(f.t.LastError(), 0);   // reset by the next operation
        QVERIFY(f.waitDone(ops.size() + 1));
        QVERIFY(!f.r.done.last().error);
        const NewsTransportGroup &g = f.t.SelectedGroup();
        QCOMPARE(QStringLiteral("%1 %2 %3-%4").arg(g.Name).arg(g.Estimated).arg(g.First).arg(g.Last),
                 QStringLiteral("a.b 3 10-12"));
    }

    void long_line_and_raw_bytes()
    {
        QByteArray longLine(1024 * 1024, 'y');
        longLine[0] = '=';
        QByteArray binary;  // every byte value but CR and LF, not valid UTF-8
        for (int i = 0; i < 256; ++i)
            if (i != '\r' && i != '\n')
                binary += char(i);
        const QByteArray body = longLine + "\r\n" + binary + "\r\n.starts with a dot\r\n..two\r\n\r\nend\r\n";
        QByteArray wire;  // dot-stuffed as a server sends it
        for (const QByteArray &l : body.split('\n'))
            if (!l.isEmpty())
                wire += (l.startsWith('.') ? "." + l : l) + "\n";
        const QByteArray head = "Subject: caf\xe9 latin-1\r\nFrom: x@y\r\n";
        Session f;
        f.s.replies["ARTICLE 7"] = "220 7 <7@x>\r\n" + head + "\r\n" + wire + ".\r\n";
        QVERIFY(f.open());
        QVERIFY(f.runOk(QStringLiteral("ARTICLE 7-7")));
        QCOMPARE(f.t.SelectedGroup().Count(), 1);
        const NewsTransportMessage &m = f.t.SelectedGroup().Item(0).Message;
        QCOMPARE(m.Body.size(), body.size());
        QVERIFY(m.Body == body);
        QVERIFY(m.Raw == head + "\r\n" + body);
        QCOMPARE(m.header("Subject"), QStringLiteral("caf\u00e9 latin-1"));
        QCOMPARE(f.t.StateText(), kConnected);
    }

    void over_streams_with_path_fallbacks()
    {
        Session f;
        f.s.replies["HDR"] = "500 what is HDR\r\n";
        f.s.replies["OVER"] = "500 what is OVER\r\n";
        QList<QByteArray> ranges;
        f.s.handler = [&](QTcpSocket *c, const QByteArray &line) {
            const QList<QByteArray> r = line.mid(line.lastIndexOf(' ') + 1).split('-');
            if (line.startsWith("XHDR Path ")) {
                ranges << line.mid(10);
                c->write("221 Path follows\r\n");
                for (qint64 n = r.at(0).toLongLong(); n <= r.at(1).toLongLong(); ++n)
                    c->write(n == 2 ? "2 (none)\r\n" : QByteArray::number(n) + " host!path" + QByteArray::number(n) + "\r\n");
                c->write(".\r\n");
            } else if (line.startsWith("XOVER ")) {
                c->write("224 overview\r\n");
                for (qint64 n = r.at(0).toLongLong(); n <= r.at(1).toLongLong(); ++n)
                    if (n != 5)  // a hole in the range
                        c->write(overRow(n, n == 6 ? QByteArray("..dots \xff\xfe bytes") : QByteArray("Subj")));
                c->write(".\r\n");
            } else {
                f.s.answer(c, line);
            }
        };
        f.t.SetPathChunk(3);
        QVERIFY(f.open());
        QVERIFY(f.run(QStringLiteral("OVER 7-1")));  // either order
        QVERIFY(!f.r.done.last().error);
        QCOMPARE(ranges, (QList<QByteArray>{"1-3", "4-6", "7-7"}));
        const NewsTransportGroup &g = f.t.SelectedGroup();
        QCOMPARE(g.Count(), 6);
        QStringList names;
        for (const auto &h : g.Item(0).Message.Headers)
            names << h.Name;
        QCOMPARE(names, QStringList({"Subject", "From", "Date", "Message-ID", "References", "Bytes",
                                     "Lines", "Xref", "Path"}));
        QCOMPARE(g.Item(0).Message.header("Path"), QStringLiteral("host!path1"));
        QCOMPARE(g.Item(1).Message.header("Path"), QString());  // "(none)" is no value
        QCOMPARE(g.Item(4).Number, qint64(6));
        QCOMPARE(g.Item(4).Message.header("Subject"), QString::fromLatin1("..dots \xff\xfe bytes 6"));
        QCOMPARE(g.Item(5).Message.header("Path"), QStringLiteral("host!path7"));

        // the second listing needs no new LIST OVERVIEW.FMT and goes straight to XHDR/XOVER
        const qsizetype before = f.s.received.size();
        QVERIFY(f.run(QStringLiteral("OVER 1-1")));
        QCOMPARE(f.s.received.mid(before), (QByteArrayList{"XHDR Path 1-1", "XOVER 1-1"}));
        QCOMPARE(g.Count(), 1);
    }

    void group_list_grows_while_arriving()
    {
        Session f;
        QByteArray part = "215 list follows\r\n";   // the end comes later
        for (int i = 0; i < 500; ++i)
            part += "alt.binaries.g" + QByteArray::number(i) + " 0000000200 0000000101 y\r\n";
        f.s.replies["LIST ACTIVE"] = part;
        QVERIFY(f.open());
        f.t.RequestGroupList();
        QTRY_COMPARE(f.t.GroupList().Count(), 500);
        QVERIFY(f.r.done.isEmpty());
        QVERIFY(f.t.Busy());
        f.s.last()->write("empty.group 0000000000 0000000001 n\r\n.\r\n");
        QVERIFY(f.waitDone(1));
        QVERIFY(!f.r.done.at(0).error);
        QCOMPARE(f.t.GroupList().Count(), 501);
        const NewsTransportGroup &g = f.t.GroupList().Item(0);
        QCOMPARE(g.Name, QStringLiteral("alt.binaries.g0"));
        QCOMPARE(g.First, qint64(101));
        QCOMPARE(g.Last, qint64(200));
        QCOMPARE(g.Estimated, qint64(100));
        QCOMPARE(f.t.GroupList().Item(500).Estimated, qint64(0));
    }

    void abort_then_silent_reconnect()
    {
        Session f;
        f.s.replies["LIST OVERVIEW.FMT"] =
            "215 fmt\r\nSubject:\r\nFrom:\r\nDate:\r\nMessage-ID:\r\nReferences:\r\n:bytes\r\n:lines\r\nXref:full\r\nPath:full\r\n.\r\n";
        f.s.replies["OVER 1-"] = "224 overview\r\n" + overRow(1) + overRow(2);   // streams a little, then stalls
        f.s.replies["OVER 99-"] = "224 overview\r\n" + overRow(99) + overRow(100) + ".\r\n";
        QVERIFY(f.open(QStringLiteral("u"), QStringLiteral("s3cret")));
        QVERIFY(f.run(QStringLiteral("GROUP a.b")));
        f.t.FetchHeaders(1, 100);
        QTRY_COMPARE(f.t.SelectedGroup().Count(), 2);
        // the listing drains rows while the answer streams
        QCOMPARE(f.t.SelectedGroup().TakeArticles().size(), 2);
        QCOMPARE(f.t.SelectedGroup().Count(), 0);
        f.t.AbortTransaction();
        QVERIFY(!f.t.Busy());
        QCOMPARE(f.t.StateText(), kConnected);
        QTest::qWait(300);
        QCOMPARE(f.r.done.size(), 1);  // no Done for the aborted fetch
        QCOMPARE(f.r.disconnected, 0);

        f.s.received.clear();
        QVERIFY(f.runOk(QStringLiteral("OVER 99-100")));
        QCOMPARE(f.s.connections, 2);
        QCOMPARE(f.s.received, (QByteArrayList{"CAPABILITIES", "MODE READER", "AUTHINFO USER u", "AUTHINFO PASS s3cret", "GROUP a.b",
                                               "OVER 99-100"}));
        QCOMPARE(f.t.SelectedGroup().Count(), 2);
        QCOMPARE(f.t.SelectedGroup().Item(0).Message.header("Path"), QString());  // Path:full but empty
        QCOMPARE(f.r.connected, 1);  // the reconnect is silent
        QCOMPARE(f.t.StateText(), kConnected);
    }

    void idle_close_then_silent_reconnect()
    {
        Session f;
        QVERIFY(f.open());
        QVERIFY(f.run(QStringLiteral("GROUP a.b")));
        f.s.last()->write("400 idle for too long\r\n");
        f.s.last()->disconnectFromHost();
        QTest::qWait(200);
        QCOMPARE(f.t.StateText(), kConnected);
        QCOMPARE(f.r.disconnected, 0);
        QVERIFY(f.runOk(QStringLiteral("GROUP a.b")));
        QCOMPARE(f.s.connections, 2);
        QCOMPARE(f.s.count("GROUP a.b"), 2);  // not re-selected before its own GROUP

        // a failed reconnect is reported
        f.s.last()->disconnectFromHost();
        f.s.greeting = "502 closed for maintenance\r\n";
        QTest::qWait(100);
        QVERIFY(f.run(QStringLiteral("GROUP a.b")));
        QVERIFY(f.r.done.last().error);
        QCOMPARE(f.t.LastError(), 502);
        QCOMPARE(f.r.debug.last(), QStringLiteral("502 closed for maintenance"));
        QCOMPARE(f.t.StateText(), kDisconnected);
        QTRY_COMPARE(f.r.disconnected, 1);
    }

    void disconnect_sends_quit()
    {
        Session f;
        QVERIFY(f.open());
        f.t.Disconnect();
        QTRY_COMPARE(f.r.disconnected, 1);
        QCOMPARE(f.s.received.last(), QByteArray("QUIT"));
        QCOMPARE(f.t.StateText(), kDisconnected);
        QCOMPARE(f.r.debug.last(), QStringLiteral("205 bye"));
        // the object can open a session again
        QVERIFY(f.open());
        QCOMPARE(f.r.connected, 2);
        // Disconnect while connecting (silent greeting) aborts at once
        Session quiet;
        quiet.s.greeting.clear();
        quiet.t.Connect(quiet.s.address());
        QTest::qWait(100);
        quiet.t.Disconnect();
        QTRY_COMPARE(quiet.r.disconnected, 1);
        QCOMPARE(quiet.t.StateText(), kDisconnected);
    }

    void second_operation_while_busy()
    {
        Session f;
        f.s.replies["GROUP"] = "";   // answered below
        QVERIFY(f.open());
        f.t.SelectGroup(QStringLiteral("first.group"));
        QTRY_COMPARE(f.s.count("GROUP"), 1);
        QVERIFY(f.run(QStringLiteral("GROUP second.group")));
        QVERIFY(f.r.done.at(0).error);
        QCOMPARE(f.t.LastError(), qint32(NewsTransport::ErrorBusy));
        f.s.last()->write("211 5 1 5 first.group\r\n");
        QVERIFY(f.waitDone(2));
        QVERIFY(!f.r.done.at(1).error);
        QCOMPARE(f.t.SelectedGroup().Name, QStringLiteral("first.group"));
        QCOMPARE(f.s.count("GROUP"), 1);
    }

    void tls_certificate_trust()
    {
        QSslCertificate cert;
        QSslKey key;
        QVERIFY(makeCertificate(cert, key));
        const QString expectedFp = QString::fromLatin1(cert.digest(QCryptographicHash::Sha256).toHex(':').toUpper());

        Session f;
        f.s.useTls = true;
        f.s.certificate = cert;
        f.s.key = key;
        const QString entry = f.s.address(QStringLiteral("nntps://"));
        const QString user = QStringLiteral("u"), pass = QStringLiteral("s3cret");

        // refused by the callback: no credentials ever leave
        QStringList asked;
        f.t.SetCertificateCheck([&](const QString &host, const QString &fp, const QString &reason) {
            asked << host + QLatin1Char(' ') + fp + (reason.isEmpty() ? " no reason" : "");
            return false;
        });
        QVERIFY(!f.connectTo(entry, user, pass));
        QCOMPARE(asked, QStringList{"127.0.0.1 " + expectedFp});
        QCOMPARE(f.t.LastError(), qint32(NewsTransport::ErrorTls));
        QVERIFY(f.r.debug.last().contains(QLatin1String("not accepted")));
        QCOMPARE(f.t.StateText(), kDisconnected);
        QVERIFY(f.s.received.isEmpty());
        // accepted by the callback
        Client accepted;
        accepted.t.SetCertificateCheck([](const QString &, const QString &, const QString &) { return true; });
        QVERIFY(accepted.connectTo(entry, user, pass));
        QVERIFY(f.s.received.contains("AUTHINFO PASS s3cret"));
        // trusted as a CA: no question asked
        QSslConfiguration conf = QSslConfiguration::defaultConfiguration();
        const QSslConfiguration saved = conf;
        conf.addCaCertificate(cert);
        QSslConfiguration::setDefaultConfiguration(conf);
        {
            Client trusting;
            int questions = 0;
            trusting.t.SetCertificateCheck([&](const QString &, const QString &, const QString &) {
                return ++questions < 0;
            });
            QVERIFY(trusting.connectTo(entry));
            QCOMPARE(questions, 0);
        }
        QSslConfiguration::setDefaultConfiguration(saved);
        // a plain server behind an nntps:// entry: the handshake fails, nothing is sent
        Session plain;
        plain.t.SetTimeout(5);
        QVERIFY(!plain.connectTo(plain.s.address(QStringLiteral("nntps://")), user, pass));
        QVERIFY(plain.r.done.at(0).error);
        QVERIFY(!plain.s.received.contains("AUTHINFO USER u"));
    }

    void socks5_proxy()
    {
        Session f;
        f.s.replies["GROUP"] = "211 4 1 4 via.proxy\r\n";
        Socks5Relay relay;
        QVERIFY(relay.listen(QHostAddress::LocalHost, 0));
        f.t.SetProxyType(NewsTransport::ProxySocks5);
        f.t.SetProxyHost(QStringLiteral("127.0.0.1"));
        f.t.SetProxyPort(relay.serverPort());
        QVERIFY(f.open());
        QCOMPARE(relay.tunnels, 1);
        QCOMPARE(relay.lastTarget, QByteArray("127.0.0.1:") + QByteArray::number(f.s.port()));
        QVERIFY(f.runOk(QStringLiteral("GROUP via.proxy")));
        QCOMPARE(f.t.SelectedGroup().Last, qint64(4));

        // a proxy that is not there is a connect failure with its reason
        const quint16 port = relay.serverPort();
        relay.close();
        Client c;
        c.t.SetProxyType(NewsTransport::ProxySocks5);
        c.t.SetProxyHost(QStringLiteral("127.0.0.1"));
        c.t.SetProxyPort(port);
        QVERIFY(!c.connectTo(f.s.address()));
        QVERIFY(c.t.LastError() != 0);
        QVERIFY(!c.r.debug.isEmpty());
    }

    // A long listing keeps the answer as text: whole lines as the server sent them, still
    // dot-stuffed, in blocks that each end at a line end, however the bytes arrive; the terminating
    // line is found across any split, and only there. Paths fetched apart travel with their range.
    void raw_overview_text_as_sent()
    {
        Session f;
        bool withPaths = false;
        // the answer's body: CR LF and bare LF lines, dot-stuffed ones, a line of two dots, a line
        // that starts like the end, and one longer than a block
        const QByteArray body = overRow(1) + "2\tS\r\n" + "..5\tstuffed\r\n" + "..\r\n" + ".\tnot the end\n" + "3\tLF only\n" +
                                "4\t" + QByteArray(3 << 20, 'x') + "\r\n" + overRow(9);
        f.s.handler = [&](QTcpSocket *c, const QByteArray &line) {
            const QList<QByteArray> r = line.mid(line.lastIndexOf(' ') + 1).split('-');
            QByteArray out = line.startsWith("HDR Path ") ? "225 Path follows\r\n" : "224 overview\r\n";
            if (withPaths && (line.startsWith("HDR Path ") || line.startsWith("OVER "))) {
                for (qint64 n = r.at(0).toLongLong(); n <= r.at(1).toLongLong(); ++n)
                    out += line.startsWith("HDR") ? QByteArray::number(n) + " path" + QByteArray::number(n) + "\r\n"
                                                  : overRow(n);
                c->write(out + ".\r\n");
            } else if (line.startsWith("OVER ")) {
                // in small pieces with pauses, so the reader sees every kind of split
                const QByteArray all = out + body + ".\r\n";
                QPointer<QTcpSocket> sock(c);
                for (qsizetype at = 0, step = 0, n = 1; at < all.size(); at += n, ++step) {
                    n = step % 3 == 0 ? 1 : step % 3 == 1 ? 7 : 100000;
                    QTimer::singleShot(int(step), c, [sock, piece = all.mid(at, n)] {
                        if (sock)
                            sock->write(piece);
                    });
                }
            } else {
                f.s.answer(c, line);
            }
        };
        QVERIFY(f.open());
        for (const bool sink : {false, true}) {
            f.t.SetRawOverview(true);
            QList<NewsTransport::OverviewText> blocks;
            if (sink)
                f.t.SetOverviewSink([&](NewsTransport::OverviewText &&b) { blocks.append(std::move(b)); });
            QVERIFY(f.runOk(QStringLiteral("OVER 1-9"), 20000));
            blocks += f.t.TakeOverviewRecords();
            QByteArray text;
            for (const NewsTransport::OverviewText &b : blocks) {
                QVERIFY(b.text.endsWith('\n'));
                QVERIFY(!b.paths);
                text += b.text;
            }
            QCOMPARE(text.size(), body.size());
            QVERIFY(text == body);
            QVERIFY(blocks.size() >= 2);
            QCOMPARE(f.t.SelectedGroup().Count(), 0);   // no parsed articles on the way
            f.t.SetRawOverview(false);
        }
        // Paths fetched apart: each block carries those of its range only
        withPaths = true;
        f.t.SetPathChunk(4);
        f.t.SetRawOverview(true);
        QVERIFY(f.run(QStringLiteral("OVER 1-9")));
        const QList<NewsTransport::OverviewText> blocks = f.t.TakeOverviewRecords();
        QCOMPARE(blocks.size(), 3);   // 1-4, 5-8, 9
        for (int i = 0; i < 3; ++i) {
            QVERIFY(blocks[i].paths);
            QCOMPARE(blocks[i].paths->size(), i < 2 ? 4 : 1);
            QCOMPARE(blocks[i].paths->value(4 * i + 1), "path" + QByteArray::number(4 * i + 1));
            QVERIFY(blocks[i].text.startsWith(overRow(4 * i + 1)));
        }
    }

    // The end of a long answer is found at the tail of what came, as a plain reader finds it. A
    // server that sends more in the same breath (against the protocol), or closes the connection
    // right after, still ends the answer, with its text as sent.
    void raw_overview_end_followed_by_more()
    {
        QByteArray body;
        for (qint64 n = 1; n <= 20000; ++n)
            body += overRow(n);
        for (const bool closing : {false, true}) {
            Session f;
            const QByteArray more = closing ? QByteArray("400 going away\r\n") + ScriptServer::Close : "999 unasked\r\n";
            f.s.replies["OVER"] = "224 overview\r\n" + body + ".\r\n" + more;
            QVERIFY(f.open());
            f.t.SetRawOverview(true);
            f.t.SetPathChunk(50000);   // one OVER
            QElapsedTimer clock;
            clock.start();
            QVERIFY(f.run(QStringLiteral("OVER 1-20000"), 5000));
            QVERIFY(clock.elapsed() < 3000);   // far from the session's time limit
            QVERIFY(!f.r.done.last().error);
            QByteArray text;
            for (const NewsTransport::OverviewText &b : f.t.TakeOverviewRecords())
                text += b.text;
            QCOMPARE(text.size(), body.size());
            QVERIFY(text == body);
        }
    }
};

QTEST_GUILESS_MAIN(TestTransportScript)
#include "test_transport_script.moc"
