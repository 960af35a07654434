// NewsTransport against a scripted peer: greetings, log-in, every command's
// error answers, time-outs, dropped connections, huge and non-UTF-8 lines,
// streaming, abort and reconnect, posting, TLS.
#include "ScriptServer.h"
#include "news/transport/NewsTransport.h"

#include <QCryptographicHash>
#include <QElapsedTimer>
#include <QProcess>
#include <QSslConfiguration>
#include <QTemporaryDir>
#include <QTimer>
#include <QPointer>
#include <QtTest>

namespace {

struct DoneEvent {
    qint32 value;
    bool error;
    QString text;
};

// Collects every notification of one transport.
class Recorder : public QObject {
public:
    explicit Recorder(NewsTransport *t)
    {
        connect(t, &NewsTransport::Debug, this, [this](NewsTransport *, const QString &s) { debug << s; });
        connect(t, &NewsTransport::Done, this, [this](NewsTransport *, qint32 v, bool e, const QString &s) {
            done.append({v, e, s});
        });
        connect(t, &NewsTransport::Connected, this, [this] { ++connected; });
        connect(t, &NewsTransport::Disconnected, this, [this] { ++disconnected; });
    }
    QStringList debug;
    QList<DoneEvent> done;
    int connected = 0;
    int disconnected = 0;
};

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

const QByteArray kStdFmt = "215 order follows\r\nSubject:\r\nFrom:\r\nDate:\r\nMessage-ID:\r\n"
                           "References:\r\n:bytes\r\n:lines\r\nXref:full\r\n.\r\n";

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

class TestTransportScript : public QObject {
    Q_OBJECT
private slots:
    void fresh_object_states();
    void connect_greeting_sets_posting();
    void connect_refused_greeting();
    void connect_nobody_listening();
    void connect_authinfo();
    void command_errors_keep_session();
    void missing_article_is_not_an_error();
    void limit_exceeded_only_from_status_lines();
    void timeout_without_answer();
    void drop_in_multiline_answer();
    void long_line_and_raw_bytes();
    void over_streams_with_path_fallbacks();
    void group_list_grows_while_arriving();
    void abort_then_silent_reconnect();
    void idle_close_then_silent_reconnect();
    void disconnect_sends_quit();
    void post_dot_stuffs();
    void second_operation_while_busy();
    void tls_certificate_trust();
    void socks5_proxy();
    void non_utf8_status_and_huge_overview_row();
    void raw_overview_text_as_sent();
    void raw_overview_end_followed_by_more();

private:
    bool connectTo(NewsTransport &t, Recorder &r, ScriptServer &s, const QString &user = QString(),
                   const QString &pass = QString());
};

bool TestTransportScript::connectTo(NewsTransport &t, Recorder &r, ScriptServer &s,
                                    const QString &user, const QString &pass)
{
    t.SetHost(s.address());
    t.Connect(s.address(), user, pass);
    const int connected = r.connected;
    const qsizetype done = r.done.size();
    QElapsedTimer clock;
    clock.start();
    while (r.connected == connected && r.done.size() == done && clock.elapsed() < 10000)
        QTest::qWait(5);
    return t.StateText() == QLatin1String("Connected to NNTP Server");
}

void TestTransportScript::fresh_object_states()
{
    NewsTransport t;
    Recorder r(&t);
    QCOMPARE(t.StateText(), QStringLiteral("Disconnected from NNTP Server"));
    QVERIFY(!t.Busy());
    t.SetHost(QStringLiteral("  Odd Entry:119 "));
    QCOMPARE(t.Host(), QStringLiteral("  Odd Entry:119 "));
    // Disconnect on a closed object still reports, but not from inside the call
    t.Disconnect();
    QCOMPARE(r.disconnected, 0);
    QTRY_COMPARE(r.disconnected, 1);
    // operations without a session fail through Done, never by blocking
    t.SelectGroup(QStringLiteral("a.b"));
    QTRY_COMPARE(r.done.size(), 1);
    QVERIFY(r.done.at(0).error);
    QCOMPARE(t.LastError(), qint32(NewsTransport::ErrorNotConnected));
    // an entry that is no address
    t.Connect(QStringLiteral("http://nope"));
    QTRY_COMPARE(r.done.size(), 2);
    QCOMPARE(t.LastError(), qint32(NewsTransport::ErrorAddress));
    QCOMPARE(t.StateText(), QStringLiteral("Disconnected from NNTP Server"));
}

void TestTransportScript::connect_greeting_sets_posting()
{
    ScriptServer s;
    QVERIFY(s.start());
    {
        NewsTransport t;
        Recorder r(&t);
        QList<qint32> states;
        connect(&t, &NewsTransport::StateChanged, this, [&](NewsTransport *, qint32, qint32 n) { states << n; });
        t.SetHost(s.address());
        t.Connect(s.address());
        QCOMPARE(t.StateText(), QStringLiteral("Connecting to NNTP Server"));
        QTRY_COMPARE(r.connected, 1);
        QCOMPARE(t.StateText(), QStringLiteral("Connected to NNTP Server"));
        QCOMPARE(r.debug.value(0), QStringLiteral("200 scripted server ready, posting ok"));
        QVERIFY(t.PostingAllowed());
        QVERIFY(r.done.isEmpty());
        QCOMPARE(states.first(), qint32(NewsTransport::StateConnecting));
        QCOMPARE(states.last(), qint32(NewsTransport::StateConnected));
        QCOMPARE(s.received, QList<QByteArray>{"MODE READER"});
    }
    // 201 at the greeting and at MODE READER: no posting
    s.greeting = "201 no posting\r\n";
    s.replies["MODE READER"] = "201 reader, no posting\r\n";
    NewsTransport t;
    Recorder r(&t);
    QVERIFY(connectTo(t, r, s));
    QVERIFY(!t.PostingAllowed());
    // a server without reader mode (500) still connects; option 1 skips the command
    s.replies["MODE READER"] = "500 what?\r\n";
    s.greeting = "200 hi\r\n";
    NewsTransport t2;
    Recorder r2(&t2);
    QVERIFY(connectTo(t2, r2, s));
    QVERIFY(t2.PostingAllowed());
    s.received.clear();
    NewsTransport t3;
    Recorder r3(&t3);
    t3.SetOption(NewsTransport::OptionNoModeReader);
    QVERIFY(connectTo(t3, r3, s));
    QVERIFY(s.received.isEmpty());
}

void TestTransportScript::connect_refused_greeting()
{
    for (const QByteArray &greeting : {QByteArray("502 you are not welcome here\r\n"),
                                       QByteArray("400 service temporarily unavailable\r\n"),
                                       QByteArray("not nntp at all\r\n")}) {
        ScriptServer s;
        s.greeting = greeting;
        QVERIFY(s.start());
        NewsTransport t;
        Recorder r(&t);
        QVERIFY(!connectTo(t, r, s));
        QCOMPARE(r.done.size(), 1);
        QVERIFY(r.done.at(0).error);
        QVERIFY(t.LastError() != 0);
        QCOMPARE(r.debug.last(), QString::fromLatin1(greeting.trimmed()));  // the reason shown to the user
        QCOMPARE(r.debug.count(r.debug.last()), 1);
        QCOMPARE(r.done.at(0).value, greeting.startsWith('n') ? 0 : greeting.left(3).toInt());
        QCOMPARE(t.StateText(), QStringLiteral("Disconnected from NNTP Server"));
        QCOMPARE(r.connected, 0);
        QVERIFY(s.received.isEmpty());
    }
}

void TestTransportScript::connect_nobody_listening()
{
    quint16 port;
    {
        QTcpServer probe;
        QVERIFY(probe.listen(QHostAddress::LocalHost, 0));
        port = probe.serverPort();
    }
    NewsTransport t;
    Recorder r(&t);
    t.Connect(QStringLiteral("127.0.0.1:%1").arg(port));
    QTRY_COMPARE(r.done.size(), 1);
    QCOMPARE(t.LastError(), qint32(NewsTransport::ErrorSocket));
    QVERIFY2(r.debug.last().contains(QLatin1String("refused")), qPrintable(r.debug.last()));
    QCOMPARE(t.StateText(), QStringLiteral("Disconnected from NNTP Server"));
}

void TestTransportScript::connect_authinfo()
{
    ScriptServer s;
    s.handler = [&s](QTcpSocket *c, const QByteArray &line) {
        if (line == "AUTHINFO USER joe")
            c->write("381 password please\r\n");
        else if (line == "AUTHINFO PASS s3cret")
            c->write("281 welcome\r\n");
        else if (line.startsWith("AUTHINFO PASS"))
            c->write("481 authentication failed\r\n");
        else
            s.answer(c, line);
    };
    QVERIFY(s.start());
    {
        NewsTransport t;
        Recorder r(&t);
        QVERIFY(connectTo(t, r, s, QStringLiteral("joe"), QStringLiteral("s3cret")));
        QCOMPARE(s.received, (QList<QByteArray>{"CAPABILITIES", "MODE READER", "AUTHINFO USER joe", "AUTHINFO PASS s3cret"}));
        QCOMPARE(r.debug.last(), QStringLiteral("281 welcome"));
        for (const QString &d : std::as_const(r.debug))
            QVERIFY2(!d.contains(QLatin1String("s3cret")) && !d.startsWith(QLatin1String("AUTHINFO")),
                     qPrintable(d));
    }
    NewsTransport t;
    Recorder r(&t);
    QVERIFY(!connectTo(t, r, s, QStringLiteral("joe"), QStringLiteral("wrong")));
    QCOMPARE(t.LastError(), 481);
    QCOMPARE(r.done.value(0).value, 481);
    QCOMPARE(r.debug.last(), QStringLiteral("481 authentication failed"));
    QCOMPARE(t.StateText(), QStringLiteral("Disconnected from NNTP Server"));

    // a reader that wants a log-in but was given none
    ScriptServer s2;
    s2.replies["MODE READER"] = "480 authentication required\r\n";
    QVERIFY(s2.start());
    NewsTransport t2;
    Recorder r2(&t2);
    QVERIFY(!connectTo(t2, r2, s2));
    QCOMPARE(t2.LastError(), 480);
}

void TestTransportScript::command_errors_keep_session()
{
    ScriptServer s;
    s.replies["GROUP NO.SUCH"] = "411 no such group\r\n";
    s.replies["GROUP A.B"] = "211 3 10 12 a.b\r\n";
    s.replies["LIST ACTIVE"] = "503 program fault\r\n";
    s.replies["LIST OVERVIEW.FMT"] = kStdFmt;
    s.replies["HDR"] = "503 no hdr today\r\n";
    s.replies["OVER"] = "503 overview broken\r\n";
    s.replies["ARTICLE"] = "502 not for you\r\n";
    s.replies["POST"] = "440 posting not permitted\r\n";
    QVERIFY(s.start());
    NewsTransport t;
    Recorder r(&t);
    QVERIFY(connectTo(t, r, s));

    struct Case {
        const char *name;
        std::function<void()> start;
        qint32 code;
    };
    const QList<Case> cases = {
        {"GROUP", [&] { t.SelectGroup(QStringLiteral("no.such")); }, 411},
        {"LIST", [&] { t.RequestGroupList(); }, 503},
        {"OVER", [&] { t.FetchHeaders(10, 12); }, 503},
        {"ARTICLE", [&] { t.FetchArticles(10, 10); }, 502},
        {"POST", [&] { NewsTransportArticle a; a.Message.Raw = "Subject: x\r\n\r\nbody\r\n"; t.Post(a); }, 440},
    };
    for (const Case &c : cases) {
        r.done.clear();
        c.start();
        QVERIFY(t.Busy());
        QTRY_COMPARE(r.done.size(), 1);
        QVERIFY2(r.done.at(0).error, c.name);
        QCOMPARE(r.done.at(0).value, c.code);
        QCOMPARE(t.LastError(), c.code);
        QVERIFY(!t.Busy());
        QCOMPARE(t.StateText(), QStringLiteral("Connected to NNTP Server"));
        QVERIFY(r.debug.last().startsWith(QString::number(c.code)));
    }
    // the session is still good and LastError is reset by the next operation
    r.done.clear();
    t.SelectGroup(QStringLiteral("a.b"));
    QCOMPARE(t.LastError(), 0);
    QTRY_COMPARE(r.done.size(), 1);
    QVERIFY(!r.done.at(0).error);
    QCOMPARE(r.done.at(0).value, 211);
    QCOMPARE(t.SelectedGroup().Name, QStringLiteral("a.b"));
    QCOMPARE(t.SelectedGroup().First, qint64(10));
    QCOMPARE(t.SelectedGroup().Last, qint64(12));
    QCOMPARE(t.SelectedGroup().Estimated, qint64(3));

    // a POST whose text the server rejects after receiving it
    s.replies["POST"] = "340 send it\r\n";
    s.handler = [&s](QTcpSocket *c, const QByteArray &line) {
        if (line == ".")
            c->write("441 posting failed: no newsgroups\r\n");
        else if (!s.received.contains("POST"))
            s.answer(c, line);
        else if (line == "POST")
            s.answer(c, line);
    };
    r.done.clear();
    NewsTransportArticle a;
    a.Message.Raw = "Subject: x\r\n\r\nbody\r\n";
    t.Post(a);
    QTRY_COMPARE(r.done.size(), 1);
    QVERIFY(r.done.at(0).error);
    QCOMPARE(t.LastError(), 441);
}

void TestTransportScript::missing_article_is_not_an_error()
{
    ScriptServer s;
    s.replies["GROUP"] = "211 3 1 3 a.b\r\n";
    s.replies["ARTICLE 1"] = "423 no such article number\r\n";
    s.replies["ARTICLE 2"] = "430 no such article\r\n";
    s.replies["ARTICLE 3"] = "220 3 <3@x>\r\nSubject: three\r\n\r\nbody\r\n.\r\n";
    QVERIFY(s.start());
    NewsTransport t;
    Recorder r(&t);
    QVERIFY(connectTo(t, r, s));
    t.SelectGroup(QStringLiteral("a.b"));
    QTRY_COMPARE(r.done.size(), 1);
    for (qint64 n : {1, 2}) {
        r.done.clear();
        t.FetchArticles(n, n);
        QTRY_COMPARE(r.done.size(), 1);
        QVERIFY(!r.done.at(0).error);
        QCOMPARE(t.SelectedGroup().Count(), 0);
        QCOMPARE(t.LastError(), 0);
    }
    // a range: the missing ones are skipped, the present one kept
    r.done.clear();
    t.FetchArticles(1, 3);
    QTRY_COMPARE(r.done.size(), 1);
    QVERIFY(!r.done.at(0).error);
    QCOMPARE(t.SelectedGroup().Count(), 1);
    QCOMPARE(t.SelectedGroup().Item(0).Number, qint64(3));
    QCOMPARE(t.SelectedGroup().Item(0).Message.header("Subject"), QStringLiteral("three"));
    // the next fetch starts with an empty collection
    r.done.clear();
    t.FetchArticles(2, 2);
    QCOMPARE(t.SelectedGroup().Count(), 0);
    QTRY_COMPARE(r.done.size(), 1);
}

void TestTransportScript::limit_exceeded_only_from_status_lines()
{
    ScriptServer s;
    s.replies["GROUP"] = "211 2 1 2 a.b\r\n";
    s.replies["LIST OVERVIEW.FMT"] = kStdFmt;
    s.replies["HDR"] = "500 no\r\n";
    s.replies["XHDR"] = "500 no\r\n";
    s.replies["OVER"] = "224 overview\r\n" + overRow(1, "LIMIT EXCEEDED is a great band") +
                        overRow(2, "limit exceeded again") + ".\r\n";
    s.replies["ARTICLE"] = "502 Download limit exceeded, buy more\r\n";
    QVERIFY(s.start());
    NewsTransport t;
    Recorder r(&t);
    QVERIFY(connectTo(t, r, s));
    t.SelectGroup(QStringLiteral("a.b"));
    QTRY_COMPARE(r.done.size(), 1);
    t.FetchHeaders(1, 2);
    QTRY_COMPARE(r.done.size(), 2);
    QCOMPARE(t.SelectedGroup().Count(), 2);
    QVERIFY(!t.LimitExceeded());
    for (const QString &d : std::as_const(r.debug))
        QVERIFY2(!d.contains(QLatin1String("band")), qPrintable(d));  // data lines never reach Debug
    t.FetchArticles(1, 1);
    QTRY_COMPARE(r.done.size(), 3);
    QVERIFY(r.done.last().error);
    QVERIFY(t.LimitExceeded());
    QCOMPARE(r.debug.last(), QStringLiteral("502 Download limit exceeded, buy more"));
}

void TestTransportScript::timeout_without_answer()
{
    Ticker ticker;
    // silent at the greeting
    {
        ScriptServer s;
        s.greeting.clear();
        QVERIFY(s.start());
        NewsTransport t;
        Recorder r(&t);
        t.SetTimeout(2);
        QElapsedTimer clock;
        clock.start();
        const int before = ticker.ticks;
        QVERIFY(!connectTo(t, r, s));
        const qint64 ms = clock.elapsed();
        QVERIFY2(ms >= 1900 && ms <= 3000, QByteArray::number(ms));
        QVERIFY(ticker.ticks - before >= 25);  // the loop ran all along
        QCOMPARE(t.LastError(), qint32(NewsTransport::ErrorTimeout));
        QVERIFY(r.debug.last().contains(QLatin1String("No answer")));
    }
    // silent on GROUP once connected
    ScriptServer s;
    s.replies["GROUP"] = "";
    QVERIFY(s.start());
    NewsTransport t;
    Recorder r(&t);
    t.SetTimeout(2);
    QVERIFY(connectTo(t, r, s));
    QElapsedTimer clock;
    clock.start();
    const int before = ticker.ticks;
    t.SelectGroup(QStringLiteral("a.b"));
    QTRY_COMPARE_WITH_TIMEOUT(r.done.size(), 1, 5000);
    const qint64 ms = clock.elapsed();
    QVERIFY2(ms >= 1900 && ms <= 3000, QByteArray::number(ms));
    QVERIFY(ticker.ticks - before >= 25);
    QVERIFY(r.done.at(0).error);
    QCOMPARE(t.LastError(), qint32(NewsTransport::ErrorTimeout));
    QVERIFY(r.debug.last().contains(QLatin1String("No answer")));
    QCOMPARE(t.StateText(), QStringLiteral("Disconnected from NNTP Server"));
    QTRY_COMPARE(r.disconnected, 1);
}

void TestTransportScript::drop_in_multiline_answer()
{
    ScriptServer s;
    s.replies["GROUP"] = "211 9 1 9 a.b\r\n";
    s.replies["LIST OVERVIEW.FMT"] = kStdFmt;
    s.replies["HDR"] = "500 no\r\n";
    s.replies["XHDR"] = "500 no\r\n";
    s.handler = [&s](QTcpSocket *c, const QByteArray &line) {
        if (line.startsWith("OVER")) {
            c->write("224 overview\r\n" + overRow(1) + overRow(2) + overRow(3) + "4\tcut in the mid");
            c->flush();
            c->disconnectFromHost();
        } else {
            s.answer(c, line);
        }
    };
    QVERIFY(s.start());
    NewsTransport t;
    Recorder r(&t);
    QVERIFY(connectTo(t, r, s));
    t.SelectGroup(QStringLiteral("a.b"));
    QTRY_COMPARE(r.done.size(), 1);
    t.FetchHeaders(1, 9);
    QTRY_COMPARE(r.done.size(), 2);
    QVERIFY(r.done.last().error);
    QCOMPARE(t.LastError(), qint32(NewsTransport::ErrorDropped));
    QCOMPARE(t.StateText(), QStringLiteral("Disconnected from NNTP Server"));
    QTRY_COMPARE(r.disconnected, 1);
    QCOMPARE(t.SelectedGroup().Count(), 3);  // what arrived stays
    QVERIFY(!t.Busy());
}

void TestTransportScript::long_line_and_raw_bytes()
{
    QByteArray longLine(1024 * 1024, 'y');
    longLine[0] = '=';
    QByteArray binary;  // every byte value but CR and LF, not valid UTF-8
    for (int i = 0; i < 256; ++i)
        if (i != '\r' && i != '\n')
            binary += char(i);
    const QByteArray body = longLine + "\r\n" + binary + "\r\n.starts with a dot\r\n..two\r\n\r\nend\r\n";
    QByteArray wire;  // dot-stuffed as a server sends it
    for (const QByteArray &l : body.split('\n')) {
        if (l.isEmpty())
            continue;
        wire += (l.startsWith('.') ? "." + l : l) + "\n";
    }
    const QByteArray head = "Subject: caf\xe9 latin-1\r\nFrom: x@y\r\n";
    ScriptServer s;
    s.replies["GROUP"] = "211 1 7 7 a.b\r\n";
    s.handler = [&](QTcpSocket *c, const QByteArray &line) {
        if (line == "ARTICLE 7") {
            // in pieces, so the long line spans many reads
            c->write("220 7 <7@x>\r\n" + head + "\r\n");
            for (qsizetype i = 0; i < wire.size(); i += 100000)
                c->write(wire.mid(i, 100000));
            c->write(".\r\n");
        } else {
            s.answer(c, line);
        }
    };
    QVERIFY(s.start());
    NewsTransport t;
    Recorder r(&t);
    QVERIFY(connectTo(t, r, s));
    t.SelectGroup(QStringLiteral("a.b"));
    QTRY_COMPARE(r.done.size(), 1);
    t.FetchArticles(7, 7);
    QTRY_COMPARE_WITH_TIMEOUT(r.done.size(), 2, 10000);
    QVERIFY(!r.done.last().error);
    QCOMPARE(t.SelectedGroup().Count(), 1);
    const NewsTransportMessage &m = t.SelectedGroup().Item(0).Message;
    QCOMPARE(m.Body.size(), body.size());
    QVERIFY(m.Body == body);
    QVERIFY(m.Raw == head + "\r\n" + body);
    QCOMPARE(m.header("Subject"), QStringLiteral("caf\u00e9 latin-1"));
    QCOMPARE(t.StateText(), QStringLiteral("Connected to NNTP Server"));
}

void TestTransportScript::over_streams_with_path_fallbacks()
{
    ScriptServer s;
    s.replies["GROUP"] = "211 7 1 7 a.b\r\n";
    s.replies["LIST OVERVIEW.FMT"] = kStdFmt;
    s.replies["HDR"] = "500 what is HDR\r\n";
    s.replies["OVER"] = "500 what is OVER\r\n";
    QList<QByteArray> ranges;
    s.handler = [&](QTcpSocket *c, const QByteArray &line) {
        if (line.startsWith("XHDR Path ")) {
            ranges << line.mid(10);
            const QList<QByteArray> r = line.mid(10).split('-');
            c->write("221 Path follows\r\n");
            for (qint64 n = r.at(0).toLongLong(); n <= r.at(1).toLongLong(); ++n)
                c->write(n == 2 ? "2 (none)\r\n" : QByteArray::number(n) + " host!path" + QByteArray::number(n) + "\r\n");
            c->write(".\r\n");
        } else if (line.startsWith("XOVER ")) {
            const QList<QByteArray> r = line.mid(6).split('-');
            c->write("224 overview\r\n");
            for (qint64 n = r.at(0).toLongLong(); n <= r.at(1).toLongLong(); ++n)
                if (n != 5)  // a hole in the range
                    c->write(overRow(n, n == 6 ? QByteArray("..dots \xff\xfe bytes") : QByteArray("Subj")));
            c->write(".\r\n");
        } else {
            s.answer(c, line);
        }
    };
    QVERIFY(s.start());
    NewsTransport t;
    Recorder r(&t);
    t.SetPathChunk(3);
    QVERIFY(connectTo(t, r, s));
    t.SelectGroup(QStringLiteral("a.b"));
    QTRY_COMPARE(r.done.size(), 1);
    t.FetchHeaders(7, 1);  // either order
    QTRY_COMPARE(r.done.size(), 2);
    QVERIFY(!r.done.last().error);
    QCOMPARE(ranges, (QList<QByteArray>{"1-3", "4-6", "7-7"}));
    const NewsTransportGroup &g = t.SelectedGroup();
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
    const int fmtAsked = s.count("LIST OVERVIEW.FMT");
    const int hdrAsked = s.count("HDR ");
    t.FetchHeaders(1, 1);
    QTRY_COMPARE(r.done.size(), 3);
    QCOMPARE(s.count("LIST OVERVIEW.FMT"), fmtAsked);
    QCOMPARE(s.count("HDR "), hdrAsked);
    QCOMPARE(g.Count(), 1);
}

void TestTransportScript::group_list_grows_while_arriving()
{
    ScriptServer s;
    QTcpSocket *conn = nullptr;
    s.handler = [&](QTcpSocket *c, const QByteArray &line) {
        if (line == "LIST ACTIVE") {
            conn = c;
            QByteArray part = "215 list follows\r\n";
            for (int i = 0; i < 500; ++i)
                part += "alt.binaries.g" + QByteArray::number(i) + " 0000000200 0000000101 y\r\n";
            c->write(part);
        } else {
            s.answer(c, line);
        }
    };
    QVERIFY(s.start());
    NewsTransport t;
    Recorder r(&t);
    QVERIFY(connectTo(t, r, s));
    t.RequestGroupList();
    QTRY_COMPARE(t.GroupList().Count(), 500);
    QVERIFY(r.done.isEmpty());
    QVERIFY(t.Busy());
    conn->write("empty.group 0000000000 0000000001 n\r\n.\r\n");
    QTRY_COMPARE(r.done.size(), 1);
    QVERIFY(!r.done.at(0).error);
    QCOMPARE(t.GroupList().Count(), 501);
    const NewsTransportGroup &g = t.GroupList().Item(0);
    QCOMPARE(g.Name, QStringLiteral("alt.binaries.g0"));
    QCOMPARE(g.First, qint64(101));
    QCOMPARE(g.Last, qint64(200));
    QCOMPARE(g.Estimated, qint64(100));
    QCOMPARE(t.GroupList().Item(500).Estimated, qint64(0));
}

void TestTransportScript::abort_then_silent_reconnect()
{
    ScriptServer s;
    s.replies["GROUP A.B"] = "211 100 1 100 a.b\r\n";
    s.replies["LIST OVERVIEW.FMT"] =
        "215 fmt\r\nSubject:\r\nFrom:\r\nDate:\r\nMessage-ID:\r\nReferences:\r\n:bytes\r\n:lines\r\nXref:full\r\nPath:full\r\n.\r\n";
    int overs = 0;
    s.handler = [&](QTcpSocket *c, const QByteArray &line) {
        if (line == "AUTHINFO USER u")
            c->write("381 more\r\n");
        else if (line == "AUTHINFO PASS p")
            c->write("281 ok\r\n");
        else if (line.startsWith("OVER ")) {
            if (++overs == 1) {  // streams a little, then stalls
                c->write("224 overview\r\n" + overRow(1) + overRow(2));
            } else {
                c->write("224 overview\r\n" + overRow(99) + overRow(100) + ".\r\n");
            }
        } else
            s.answer(c, line);
    };
    QVERIFY(s.start());
    NewsTransport t;
    Recorder r(&t);
    QVERIFY(connectTo(t, r, s, QStringLiteral("u"), QStringLiteral("p")));
    t.SelectGroup(QStringLiteral("a.b"));
    QTRY_COMPARE(r.done.size(), 1);
    t.FetchHeaders(1, 100);
    QTRY_COMPARE(t.SelectedGroup().Count(), 2);
    // the listing drains rows while the answer streams
    QList<NewsTransportArticle> taken = t.SelectedGroup().TakeArticles();
    QCOMPARE(taken.size(), 2);
    QCOMPARE(t.SelectedGroup().Count(), 0);
    t.AbortTransaction();
    QVERIFY(!t.Busy());
    QCOMPARE(t.StateText(), QStringLiteral("Connected to NNTP Server"));
    QTest::qWait(300);
    QCOMPARE(r.done.size(), 1);  // no Done for the aborted fetch
    QCOMPARE(r.disconnected, 0);

    s.received.clear();
    t.FetchHeaders(99, 100);
    QTRY_COMPARE(r.done.size(), 2);
    QVERIFY(!r.done.last().error);
    QCOMPARE(s.connections, 2);
    QCOMPARE(s.received, (QList<QByteArray>{"CAPABILITIES", "MODE READER", "AUTHINFO USER u", "AUTHINFO PASS p",
                                            "GROUP a.b", "OVER 99-100"}));
    QCOMPARE(t.SelectedGroup().Count(), 2);
    QCOMPARE(t.SelectedGroup().Item(0).Message.header("Path"), QString());  // Path:full but empty
    QCOMPARE(r.connected, 1);  // the reconnect is silent
    QCOMPARE(t.StateText(), QStringLiteral("Connected to NNTP Server"));
}

void TestTransportScript::idle_close_then_silent_reconnect()
{
    ScriptServer s;
    s.replies["GROUP"] = "211 1 1 1 a.b\r\n";
    QVERIFY(s.start());
    NewsTransport t;
    Recorder r(&t);
    QVERIFY(connectTo(t, r, s));
    t.SelectGroup(QStringLiteral("a.b"));
    QTRY_COMPARE(r.done.size(), 1);
    s.last()->write("400 idle for too long\r\n");
    s.last()->disconnectFromHost();
    QTest::qWait(200);
    QCOMPARE(t.StateText(), QStringLiteral("Connected to NNTP Server"));
    QCOMPARE(r.disconnected, 0);
    t.SelectGroup(QStringLiteral("a.b"));
    QTRY_COMPARE(r.done.size(), 2);
    QVERIFY(!r.done.last().error);
    QCOMPARE(s.connections, 2);
    QCOMPARE(s.count("GROUP a.b"), 2);  // not re-selected before its own GROUP

    // a failed reconnect is reported
    s.last()->disconnectFromHost();
    QTest::qWait(100);
    const quint16 port = s.serverPort();
    s.close();
    s.greeting = "502 closed for maintenance\r\n";
    QVERIFY(s.listen(QHostAddress::LocalHost, port));
    t.SelectGroup(QStringLiteral("a.b"));
    QTRY_COMPARE(r.done.size(), 3);
    QVERIFY(r.done.last().error);
    QCOMPARE(t.LastError(), 502);
    QCOMPARE(r.debug.last(), QStringLiteral("502 closed for maintenance"));
    QCOMPARE(t.StateText(), QStringLiteral("Disconnected from NNTP Server"));
    QTRY_COMPARE(r.disconnected, 1);
}

void TestTransportScript::disconnect_sends_quit()
{
    ScriptServer s;
    QVERIFY(s.start());
    NewsTransport t;
    Recorder r(&t);
    QVERIFY(connectTo(t, r, s));
    t.Disconnect();
    QTRY_COMPARE(r.disconnected, 1);
    QCOMPARE(s.received.last(), QByteArray("QUIT"));
    QCOMPARE(t.StateText(), QStringLiteral("Disconnected from NNTP Server"));
    QCOMPARE(r.debug.last(), QStringLiteral("205 bye"));
    // the object can open a session again
    QVERIFY(connectTo(t, r, s));
    QCOMPARE(r.connected, 2);
    // Disconnect while connecting (silent greeting) aborts at once
    ScriptServer quiet;
    quiet.greeting.clear();
    QVERIFY(quiet.start());
    NewsTransport t2;
    Recorder r2(&t2);
    t2.Connect(quiet.address());
    QTest::qWait(100);
    t2.Disconnect();
    QTRY_COMPARE(r2.disconnected, 1);
    QCOMPARE(t2.StateText(), QStringLiteral("Disconnected from NNTP Server"));
}

void TestTransportScript::post_dot_stuffs()
{
    ScriptServer s;
    QList<QByteArray> text;
    bool inPost = false;
    s.handler = [&](QTcpSocket *c, const QByteArray &line) {
        if (inPost) {
            if (line == ".") {
                inPost = false;
                c->write("240 article posted\r\n");
            } else {
                text << line;
            }
        } else if (line == "POST") {
            inPost = true;
            c->write("340 send article\r\n");
        } else {
            s.answer(c, line);
        }
    };
    QVERIFY(s.start());
    NewsTransport t;
    Recorder r(&t);
    QVERIFY(connectTo(t, r, s));
    NewsTransportArticle a;
    a.Message.Raw = "Newsgroups: a.b\nSubject: dots\n\n.hidden\n.\nmiddle\r\n..two\nlast";
    t.Post(a);
    QTRY_COMPARE(r.done.size(), 1);
    QVERIFY(!r.done.at(0).error);
    QCOMPARE(r.done.at(0).value, 240);
    QCOMPARE(text, (QList<QByteArray>{"Newsgroups: a.b", "Subject: dots", "", "..hidden", "..", "middle",
                                      "...two", "last"}));
}

void TestTransportScript::second_operation_while_busy()
{
    ScriptServer s;
    QTcpSocket *conn = nullptr;
    s.handler = [&](QTcpSocket *c, const QByteArray &line) {
        if (line.startsWith("GROUP"))
            conn = c;  // answers later
        else
            s.answer(c, line);
    };
    QVERIFY(s.start());
    NewsTransport t;
    Recorder r(&t);
    QVERIFY(connectTo(t, r, s));
    t.SelectGroup(QStringLiteral("first.group"));
    QTRY_VERIFY(conn);
    t.SelectGroup(QStringLiteral("second.group"));
    QTRY_COMPARE(r.done.size(), 1);
    QVERIFY(r.done.at(0).error);
    QCOMPARE(t.LastError(), qint32(NewsTransport::ErrorBusy));
    conn->write("211 5 1 5 first.group\r\n");
    QTRY_COMPARE(r.done.size(), 2);
    QVERIFY(!r.done.at(1).error);
    QCOMPARE(t.SelectedGroup().Name, QStringLiteral("first.group"));
    QCOMPARE(s.count("GROUP"), 1);
}

void TestTransportScript::tls_certificate_trust()
{
    QTemporaryDir dir;
    QVERIFY(dir.isValid());
    QProcess openssl;
    openssl.start(QStringLiteral("openssl"),
                  {"req", "-x509", "-newkey", "rsa:2048", "-nodes", "-days", "2", "-subj", "/CN=127.0.0.1",
                   "-addext", "subjectAltName=IP:127.0.0.1", "-keyout", dir.filePath("key.pem"), "-out",
                   dir.filePath("cert.pem")});
    QVERIFY(openssl.waitForFinished(60000));
    QCOMPARE(openssl.exitCode(), 0);
    QFile cf(dir.filePath("cert.pem")), kf(dir.filePath("key.pem"));
    QVERIFY(cf.open(QIODevice::ReadOnly) && kf.open(QIODevice::ReadOnly));
    const QSslCertificate cert(cf.readAll(), QSsl::Pem);
    const QSslKey key(kf.readAll(), QSsl::Rsa, QSsl::Pem);
    QVERIFY(!cert.isNull() && !key.isNull());
    const QString expectedFp = QString::fromLatin1(cert.digest(QCryptographicHash::Sha256).toHex(':').toUpper());

    ScriptServer s;
    s.useTls = true;
    s.certificate = cert;
    s.key = key;
    s.handler = [&s](QTcpSocket *c, const QByteArray &line) {
        if (line.startsWith("AUTHINFO USER"))
            c->write("381 more\r\n");
        else if (line.startsWith("AUTHINFO PASS"))
            c->write("281 ok\r\n");
        else
            s.answer(c, line);
    };
    QVERIFY(s.start());
    const QString entry = s.address(QStringLiteral("nntps://"));

    // refused by the callback: no credentials ever leave
    {
        NewsTransport t;
        Recorder r(&t);
        int asked = 0;
        t.SetCertificateCheck([&](const QString &host, const QString &fp, const QString &reason) {
            ++asked;
            return host == QLatin1String("127.0.0.1") && fp == expectedFp && !reason.isEmpty() && false;
        });
        t.Connect(entry, QStringLiteral("u"), QStringLiteral("p"));
        QTRY_COMPARE_WITH_TIMEOUT(r.done.size(), 1, 10000);
        QCOMPARE(asked, 1);
        QCOMPARE(t.LastError(), qint32(NewsTransport::ErrorTls));
        QVERIFY(r.debug.last().contains(QLatin1String("not accepted")));
        QCOMPARE(t.StateText(), QStringLiteral("Disconnected from NNTP Server"));
        QVERIFY(s.received.isEmpty());
    }
    // accepted by the callback, with the certificate's fingerprint
    {
        NewsTransport t;
        Recorder r(&t);
        QString seenFp;
        t.SetCertificateCheck([&](const QString &, const QString &fp, const QString &) {
            seenFp = fp;
            return true;
        });
        t.Connect(entry, QStringLiteral("u"), QStringLiteral("p"));
        QTRY_COMPARE_WITH_TIMEOUT(r.connected, 1, 10000);
        QCOMPARE(seenFp, expectedFp);
        QVERIFY(s.received.contains("AUTHINFO PASS p"));
    }
    // trusted as a CA: no question asked
    QSslConfiguration conf = QSslConfiguration::defaultConfiguration();
    const QSslConfiguration saved = conf;
    conf.addCaCertificate(cert);
    QSslConfiguration::setDefaultConfiguration(conf);
    {
        NewsTransport t;
        Recorder r(&t);
        int asked = 0;
        t.SetCertificateCheck([&](const QString &, const QString &, const QString &) { return ++asked < 0; });
        t.Connect(entry);
        QTRY_COMPARE_WITH_TIMEOUT(r.connected, 1, 10000);
        QCOMPARE(asked, 0);
    }
    QSslConfiguration::setDefaultConfiguration(saved);
    // a plain server behind an nntps:// entry: the handshake fails, nothing is sent
    ScriptServer plain;
    QVERIFY(plain.start());
    NewsTransport t;
    Recorder r(&t);
    t.SetTimeout(5);
    t.Connect(plain.address(QStringLiteral("nntps://")), QStringLiteral("u"), QStringLiteral("p"));
    QTRY_COMPARE_WITH_TIMEOUT(r.done.size(), 1, 10000);
    QVERIFY(r.done.at(0).error);
    QVERIFY(!plain.received.contains("AUTHINFO USER u"));
}

void TestTransportScript::socks5_proxy()
{
    ScriptServer s;
    s.replies["GROUP"] = "211 4 1 4 via.proxy\r\n";
    QVERIFY(s.start());
    Socks5Relay relay;
    QVERIFY(relay.listen(QHostAddress::LocalHost, 0));
    NewsTransport t;
    Recorder r(&t);
    t.SetProxyType(3);
    t.SetProxyHost(QStringLiteral("127.0.0.1"));
    t.SetProxyPort(relay.serverPort());
    QVERIFY(connectTo(t, r, s));
    QCOMPARE(relay.tunnels, 1);
    QCOMPARE(relay.lastTarget, QByteArray("127.0.0.1:") + QByteArray::number(s.port()));
    t.SelectGroup(QStringLiteral("via.proxy"));
    QTRY_COMPARE(r.done.size(), 1);
    QVERIFY(!r.done.at(0).error);
    QCOMPARE(t.SelectedGroup().Last, qint64(4));

    // a proxy that is not there is a connect failure with its reason
    relay.close();
    NewsTransport t2;
    Recorder r2(&t2);
    t2.SetProxyType(3);
    t2.SetProxyHost(QStringLiteral("127.0.0.1"));
    t2.SetProxyPort(relay.serverPort() ? relay.serverPort() : 1);
    QVERIFY(!connectTo(t2, r2, s));
    QVERIFY(t2.LastError() != 0);
    QVERIFY(!r2.debug.isEmpty());
}

void TestTransportScript::non_utf8_status_and_huge_overview_row()
{
    ScriptServer s;
    s.greeting = "200 Willkommen bei M\xfcller, posting ok\r\n";  // Latin-1
    s.replies["GROUP"] = "211 1 1 1 gr\xc3\xbc\xc3\x9f" "e.de\r\n";  // UTF-8
    s.replies["LIST OVERVIEW.FMT"] = kStdFmt;
    s.replies["HDR"] = "503 not now\r\n";
    const QByteArray refs = [] {
        QByteArray r;
        while (r.size() < 1024 * 1024)
            r += "<" + QByteArray::number(r.size()) + "@refs.example> ";
        return r;
    }();
    s.replies["OVER"] = "224 overview\r\n1\tS\tF\tD\t<1@x>\t" + refs + "\t1\t1\r\n.\r\n";
    QVERIFY(s.start());
    NewsTransport t;
    Recorder r(&t);
    QVERIFY(connectTo(t, r, s));
    QCOMPARE(r.debug.first(), QStringLiteral("200 Willkommen bei M\u00fcller, posting ok"));
    t.SelectGroup(QStringLiteral("gr\u00fc\u00dfe.de"));
    QTRY_COMPARE(r.done.size(), 1);
    QCOMPARE(r.debug.last(), QStringLiteral("211 1 1 1 gr\u00fc\u00dfe.de"));
    t.FetchHeaders(1, 1);
    QTRY_COMPARE(r.done.size(), 2);
    QVERIFY(!r.done.last().error);
    QCOMPARE(t.SelectedGroup().Count(), 1);
    QCOMPARE(t.SelectedGroup().Item(0).Message.header("References"), QString::fromLatin1(refs));
    QCOMPARE(t.SelectedGroup().Item(0).Message.header("Path"), QString());
}

// A long listing keeps the answer as text: whole lines as the server sent them, still
// dot-stuffed, in blocks that each end at a line end, however the bytes arrive; the terminating
// line is found across any split, and only there. Paths fetched apart travel with their range.
void TestTransportScript::raw_overview_text_as_sent()
{
    ScriptServer s;
    s.replies["GROUP"] = "211 9 1 9 a.b\r\n";
    s.replies["LIST OVERVIEW.FMT"] = kStdFmt;
    bool withPaths = false;
    // the answer's body: CR LF and bare LF lines, dot-stuffed ones, a line of two dots, a line
    // that starts like the end, and one longer than a block
    const QByteArray body = overRow(1) + "2\tS\r\n" + "..5\tstuffed\r\n" + "..\r\n" + ".\tnot the end\n" + "3\tLF only\n" +
                            "4\t" + QByteArray(3 << 20, 'x') + "\r\n" + overRow(9);
    s.handler = [&](QTcpSocket *c, const QByteArray &line) {
        if (line.startsWith("HDR Path ")) {
            if (!withPaths) {
                c->write("503 no\r\n");
                return;
            }
            const QList<QByteArray> r = line.mid(9).split('-');
            QByteArray out = "225 Path follows\r\n";
            for (qint64 n = r.at(0).toLongLong(); n <= r.at(1).toLongLong(); ++n)
                out += QByteArray::number(n) + " path" + QByteArray::number(n) + "\r\n";
            c->write(out + ".\r\n");
        } else if (line.startsWith("OVER ")) {
            // in small pieces with pauses, so the reader sees every kind of split
            const QByteArray all = "224 overview\r\n" + body + ".\r\n";
            QPointer<QTcpSocket> sock(c);
            qsizetype at = 0;
            int step = 0;
            while (at < all.size()) {
                const qsizetype n = step % 3 == 0 ? 1 : step % 3 == 1 ? 7 : 100000;
                const QByteArray piece = all.mid(at, n);
                QTimer::singleShot(step, c, [sock, piece] {
                    if (sock)
                        sock->write(piece);
                });
                at += n;
                ++step;
            }
        } else {
            s.answer(c, line);
        }
    };
    QVERIFY(s.start());
    NewsTransport t;
    Recorder r(&t);
    QVERIFY(connectTo(t, r, s));
    t.SelectGroup(QStringLiteral("a.b"));
    QTRY_COMPARE(r.done.size(), 1);
    for (const bool sink : {false, true}) {
        t.SetRawOverview(true);
        QList<NewsTransport::OverviewText> blocks;
        if (sink)
            t.SetOverviewSink([&](NewsTransport::OverviewText &&b) { blocks.append(std::move(b)); });
        const qsizetype done = r.done.size();
        t.FetchHeaders(1, 9);
        QTRY_COMPARE_WITH_TIMEOUT(r.done.size(), done + 1, 20000);
        QVERIFY(!r.done.last().error);
        blocks += t.TakeOverviewRecords();
        QByteArray text;
        for (const NewsTransport::OverviewText &b : blocks) {
            QVERIFY(b.text.endsWith('\n'));
            QVERIFY(!b.paths);
            text += b.text;
        }
        QCOMPARE(text.size(), body.size());
        QVERIFY(text == body);
        QVERIFY(blocks.size() >= 2);
        QCOMPARE(t.SelectedGroup().Count(), 0);   // no parsed articles on the way
        t.SetRawOverview(false);
    }
    // Paths fetched apart: each block carries those of its range only
    withPaths = true;
    t.SetPathChunk(4);
    t.SetRawOverview(true);
    const qsizetype done = r.done.size();
    s.handler = [&](QTcpSocket *c, const QByteArray &line) {
        if (line.startsWith("HDR Path ")) {
            const QList<QByteArray> range = line.mid(9).split('-');
            QByteArray out = "225 Path follows\r\n";
            for (qint64 n = range.at(0).toLongLong(); n <= range.at(1).toLongLong(); ++n)
                out += QByteArray::number(n) + " path" + QByteArray::number(n) + "\r\n";
            c->write(out + ".\r\n");
        } else if (line.startsWith("OVER ")) {
            const QList<QByteArray> range = line.mid(5).split('-');
            QByteArray out = "224 overview\r\n";
            for (qint64 n = range.at(0).toLongLong(); n <= range.at(1).toLongLong(); ++n)
                out += overRow(n);
            c->write(out + ".\r\n");
        } else {
            s.answer(c, line);
        }
    };
    t.FetchHeaders(1, 9);
    QTRY_COMPARE(r.done.size(), done + 1);
    const QList<NewsTransport::OverviewText> blocks = t.TakeOverviewRecords();
    QCOMPARE(blocks.size(), 3);   // 1-4, 5-8, 9
    for (int i = 0; i < 3; ++i) {
        QVERIFY(blocks[i].paths);
        QCOMPARE(blocks[i].paths->size(), i < 2 ? 4 : 1);
        QCOMPARE(blocks[i].paths->value(4 * i + 1), "path" + QByteArray::number(4 * i + 1));
        QVERIFY(blocks[i].text.startsWith(overRow(4 * i + 1)));
    }
    t.SetRawOverview(false);
}

// The end of a long answer is found at the tail of what came, as a plain reader finds it. A
// server that sends more in the same breath (against the protocol), or closes the connection
// right after, still ends the answer, with its text as sent.
void TestTransportScript::raw_overview_end_followed_by_more()
{
    QByteArray body;
    for (qint64 n = 1; n <= 20000; ++n)
        body += overRow(n);
    bool close = false;
    ScriptServer s;
    s.replies["GROUP"] = "211 20000 1 20000 a.b\r\n";
    s.replies["LIST OVERVIEW.FMT"] = kStdFmt;
    s.handler = [&](QTcpSocket *c, const QByteArray &line) {
        if (line.startsWith("HDR Path ")) {
            c->write("503 no\r\n");
        } else if (line.startsWith("OVER ")) {
            c->write("224 overview\r\n" + body + ".\r\n" + (close ? "400 going away\r\n" : "999 unasked\r\n"));
            if (close)
                c->disconnectFromHost();
        } else {
            s.answer(c, line);
        }
    };
    QVERIFY(s.start());
    for (const bool closing : {false, true}) {
        close = closing;
        NewsTransport t;
        Recorder r(&t);
        QVERIFY(connectTo(t, r, s));
        t.SelectGroup(QStringLiteral("a.b"));
        QTRY_COMPARE(r.done.size(), 1);
        t.SetRawOverview(true);
        t.SetPathChunk(50000);   // one OVER
        QElapsedTimer clock;
        clock.start();
        t.FetchHeaders(1, 20000);
        QTRY_COMPARE_WITH_TIMEOUT(r.done.size(), 2, 5000);
        QVERIFY(clock.elapsed() < 3000);   // far from the session's time limit
        QVERIFY(!r.done.last().error);
        QByteArray text;
        for (const NewsTransport::OverviewText &b : t.TakeOverviewRecords())
            text += b.text;
        QCOMPARE(text.size(), body.size());
        QVERIFY(text == body);
        t.SetRawOverview(false);
    }
}

QTEST_GUILESS_MAIN(TestTransportScript)
#include "test_transport_script.moc"
