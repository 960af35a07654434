// NewsTransport against servers that misbehave on purpose: answers that never end, answers that
// trickle, article numbers at the top of the 64-bit range, control characters in status lines.
// Each case states what the server does and what the client must make of it; the endless ones
// also hold the process's peak memory under 256 MiB, with the transport's own bounds.
#include "ScriptServer.h"
#include "news/transport/NewsTransport.h"

#include <QElapsedTimer>
#include <QFile>
#include <QPointer>
#include "support/StreamForever.h"

#include <QtTest>
#include <limits>
#include <malloc.h>

namespace {

constexpr qint64 kMiB = 1 << 20;

// The process's peak resident memory since the last reset, in bytes.
qint64 peakRss()
{
    QFile f(QStringLiteral("/proc/self/status"));
    if (!f.open(QIODevice::ReadOnly))
        return -1;
    for (const QByteArray &line : f.readAll().split('\n'))
        if (line.startsWith("VmHWM:"))
            return line.mid(6).trimmed().split(' ').value(0).toLongLong() * 1024;
    return -1;
}

void resetPeakRss()
{
    malloc_trim(0);   // what earlier cases freed goes back to the system first
    QFile f(QStringLiteral("/proc/self/clear_refs"));
    if (f.open(QIODevice::WriteOnly))
        f.write("5");
}


// Sends text one byte every interval ms, for as long as the client stays.
void trickle(QTcpSocket *c, const QByteArray &text, int intervalMs)
{
    QPointer<QTcpSocket> sock(c);
    auto *timer = new QTimer(c);
    auto at = std::make_shared<qsizetype>(0);
    QObject::connect(timer, &QTimer::timeout, c, [sock, timer, text, at] {
        if (!sock || sock->state() != QAbstractSocket::ConnectedState) {
            timer->stop();
            return;
        }
        sock->write(text.mid(*at % text.size(), 1));
        ++*at;
    });
    timer->start(intervalMs);
}

QByteArray groupLines(qint64 &n)
{
    QByteArray out;
    for (int i = 0; i < 2000; ++i, ++n)
        out += "alt.binaries.endless.group" + QByteArray::number(n) + " 1000 1 y\r\n";
    return out;
}

QByteArray overLines(qint64 &n)
{
    QByteArray out;
    for (int i = 0; i < 2000; ++i, ++n)
        out += QByteArray::number(n) + "\tSubject " + QByteArray::number(n) +
               "\tp@x\tMon, 16 Nov 2003 21:54:12 -0500\t<" + QByteArray::number(n) + "@x>\t\t100\t5\r\n";
    return out;
}

template <typename T>
void setLimit(NewsTransport &t, T TransportLimits::*field, std::type_identity_t<T> value)
{
    TransportLimits l = t.Limits();
    l.*field = value;
    t.SetLimits(l);
}

const QByteArray kStdFmt = "215 order follows\r\nSubject:\r\nFrom:\r\nDate:\r\nMessage-ID:\r\n"
                           "References:\r\n:bytes\r\n:lines\r\nXref:full\r\n.\r\n";
const QByteArray kFmtWithoutPath = kStdFmt;   // no Path: HDR Path goes first
const QByteArray kFmtWithPath = "215 order follows\r\nSubject:\r\nFrom:\r\nDate:\r\nMessage-ID:\r\n"
                                "References:\r\n:bytes\r\n:lines\r\nPath:full\r\n.\r\n";

enum class Run { GroupList, Headers, RawHeaders, Article };

struct Case {
    QString name;
    Run run;
    qint64 first = 1, last = 50;
    std::function<void(ScriptServer &s, QTcpSocket *c, const QByteArray &line)> serve;
    QString expect;            // in the failure's text
    qint32 lastError;
    qint64 seconds;            // the whole case ends within this
};

} // namespace

class TestHostile : public QObject {
    Q_OBJECT
private slots:
    void endless_and_slow_answers_data()
    {
        QTest::addColumn<int>("index");
        const QStringList names{"endless LIST", "endless OVER", "endless OVER kept as text", "endless HDR",
                                "endless ARTICLE", "one endless article line", "LIST trickled", "ARTICLE trickled"};
        for (int i = 0; i < names.size(); ++i)
            QTest::newRow(qPrintable(names[i])) << i;
    }

    void endless_and_slow_answers()
    {
        QFETCH(int, index);
        auto count = std::make_shared<qint64>(1);
        const auto endlessOver = [count](ScriptServer &, QTcpSocket *c, const QByteArray &line) {
            if (line.startsWith("LIST OVERVIEW.FMT"))
                c->write(kFmtWithPath);
            else if (line.startsWith("OVER"))
                streamForever(c, "224 overview\r\n", [count] { return overLines(*count); });
        };
        const QList<Case> cases{
            {"endless LIST", Run::GroupList, 1, 50,
             [count](ScriptServer &, QTcpSocket *c, const QByteArray &line) {
                 if (line.startsWith("LIST ACTIVE"))
                     streamForever(c, "215 list follows\r\n", [count] { return groupLines(*count); });
             },
             "more than 1000000 groups", NewsTransport::ErrorTooLarge, 60},
            {"endless OVER", Run::Headers, 1, 50, endlessOver, "more overview lines than the 50 articles",
             NewsTransport::ErrorTooLarge, 20},
            {"endless OVER kept as text", Run::RawHeaders, 1, 50, endlessOver, "more overview text than the 50 articles",
             NewsTransport::ErrorTooLarge, 20},
            {"endless HDR", Run::Headers, 1, 50,
             [count](ScriptServer &, QTcpSocket *c, const QByteArray &line) {
                 if (line.startsWith("LIST OVERVIEW.FMT"))
                     c->write(kFmtWithoutPath);
                 else if (line.startsWith("HDR"))
                     streamForever(c, "225 headers\r\n", [count] {
                         QByteArray out;
                         for (int i = 0; i < 2000; ++i, ++*count)
                             out += QByteArray::number(*count) + " news.example!not-for-mail\r\n";
                         return out;
                     });
             },
             "more header lines than the 50 articles", NewsTransport::ErrorTooLarge, 20},
            {"endless ARTICLE", Run::Article, 7, 7,
             [](ScriptServer &, QTcpSocket *c, const QByteArray &line) {
                 if (line.startsWith("ARTICLE"))
                     streamForever(c, "220 7 <7@x> article\r\nSubject: s\r\n\r\n",
                                   [] { return QByteArray(1000, 'a') + "\r\n"; });
             },
             "article 7 is larger than", NewsTransport::ErrorTooLarge, 20},
            {"one endless article line", Run::Article, 7, 7,
             [](ScriptServer &, QTcpSocket *c, const QByteArray &line) {
                 if (line.startsWith("ARTICLE"))
                     streamForever(c, "220 7 <7@x> article\r\nSubject: s\r\n\r\n", [] { return QByteArray(65536, 'b'); });
             },
             "Line of more than", NewsTransport::ErrorProtocol, 20},
            {"LIST trickled", Run::GroupList, 1, 50,
             [](ScriptServer &, QTcpSocket *c, const QByteArray &line) {
                 if (line.startsWith("LIST ACTIVE")) {
                     c->write("215 list follows\r\n");
                     trickle(c, "alt.slow 10 1 y\r\n", 150);   // about 7 bytes a second
                 }
             },
             "within 3 seconds", NewsTransport::ErrorTimeout, 6},
            {"ARTICLE trickled", Run::Article, 7, 7,
             [](ScriptServer &, QTcpSocket *c, const QByteArray &line) {
                 if (line.startsWith("ARTICLE"))
                     trickle(c, "220 7 <7@x> article\r\nSubject: s\r\n\r\nbody\r\n", 150);
             },
             "within 3 seconds", NewsTransport::ErrorTimeout, 6},
        };
        const Case &k = cases.at(index);

        ScriptServer s;
        s.replies["GROUP"] = "211 50 1 50 a.b\r\n";
        s.handler = [&s, &k](QTcpSocket *c, const QByteArray &line) {
            const int before = int(c->bytesToWrite());
            k.serve(s, c, line);
            if (c->bytesToWrite() == before && !c->findChild<QTimer *>())
                s.answer(c, line);
        };
        QVERIFY(s.start());
        Client c;
        NewsTransport &t = c.t;
        Recorder &r = c.r;
        // the real bounds, but a time-out and floor window short enough for a test: 3 s of silence,
        // or 3 s below 1 KiB/s
        setLimit(t, &TransportLimits::floorWindowSeconds, 3);
        t.SetTimeout(3);
        QVERIFY(c.connectTo(s.address()));
        if (k.run != Run::GroupList)
            QVERIFY(c.run(QStringLiteral("GROUP a.b")) && !r.done.last().error);
        const qsizetype doneBefore = r.done.size();

        resetPeakRss();
        QElapsedTimer clock;
        clock.start();
        switch (k.run) {
        case Run::GroupList:
            t.RequestGroupList();
            break;
        case Run::RawHeaders:
            t.SetRawOverview(true);
            t.SetOverviewSink([](NewsTransport::OverviewText &&) {});   // the listing takes the blocks
            [[fallthrough]];
        case Run::Headers:
            t.FetchHeaders(k.first, k.last);
            break;
        case Run::Article:
            t.FetchArticles(k.first, k.last);
            break;
        }
        QTRY_VERIFY_WITH_TIMEOUT(r.done.size() > doneBefore, int(k.seconds * 1000));
        const qint64 took = clock.elapsed();
        const qint64 peak = peakRss();
        qInfo("%s: ended after %lld ms, peak memory %lld MiB, %s", qPrintable(k.name), took, peak / kMiB,
              qPrintable(r.done.last().text));
        QVERIFY(r.done.last().error);
        QVERIFY2(r.done.last().text.contains(k.expect), qPrintable(r.done.last().text));
        QCOMPARE(t.LastError(), k.lastError);
        QVERIFY2(peak > 0 && peak < 256 * kMiB, qPrintable(QString::number(peak / kMiB) + " MiB"));
        QVERIFY(took <= k.seconds * 1000);

        if (k.lastError == NewsTransport::ErrorTooLarge) {
            // the session stays: the next command goes out on a fresh connection, the group selected
            QCOMPARE(t.StateText(), QStringLiteral("Connected to NNTP Server"));
            const int connections = s.connections;
            s.handler = [&s](QTcpSocket *c, const QByteArray &line) { s.answer(c, line); };
            QVERIFY(c.run(QStringLiteral("GROUP a.b")) && !r.done.last().error);
            QCOMPARE(s.connections, connections + 1);
        }
    }

    // A greeting that trickles in is a connect that fails as a time-out, not one that waits for ever.
    void trickled_greeting_times_out()
    {
        ScriptServer s;
        s.greeting.clear();
        QVERIFY(s.start());
        QObject::connect(&s, &QTcpServer::newConnection, &s, [&s] {
            QTimer::singleShot(0, &s, [&s] {
                if (s.last())
                    trickle(s.last(), "200 a very slow server indeed\r\n", 300);
            });
        });
        Client c;
        setLimit(c.t, &TransportLimits::floorWindowSeconds, 2);
        c.t.SetTimeout(2);
        QElapsedTimer clock;
        clock.start();
        QVERIFY(!c.connectTo(s.address()));
        QVERIFY(c.r.done.last().error);
        QCOMPARE(c.t.LastError(), qint32(NewsTransport::ErrorTimeout));
        QVERIFY(clock.elapsed() <= 4000);
        QCOMPARE(c.r.connected, 0);
    }

    // Article numbers right below 2^63: every range is asked for exactly, and ends.
    void range_at_the_top_of_64_bits()
    {
        constexpr qint64 top = std::numeric_limits<qint64>::max();
        ScriptServer s;
        s.replies["GROUP"] = "211 10 9223372036854775798 9223372036854775807 a.b\r\n";
        s.replies["LIST OVERVIEW.FMT"] = kStdFmt;
        s.handler = [&s](QTcpSocket *c, const QByteArray &line) {
            if (line.startsWith("OVER ") || line.startsWith("HDR ")) {
                const QList<QByteArray> r = line.split(' ').last().split('-');
                const qint64 a = r.value(0).toLongLong(), b = r.value(1).toLongLong();
                QByteArray out = line.startsWith("OVER") ? "224 overview\r\n" : "225 headers\r\n";
                for (qint64 n = a; n >= a && n <= b; n = n == b ? a - 1 : n + 1)
                    out += line.startsWith("OVER") ? QByteArray::number(n) + "\tS " + QByteArray::number(n) + "\tp@x\tMon, 16 Nov 2003 21:54:12 -0500\t<" + QByteArray::number(n) + "@x>\t\t1\t1\tXref: h a.b:" + QByteArray::number(n) + "\r\n"
                                                   : QByteArray::number(n) + " path\r\n";
                c->write(out + ".\r\n");
            } else if (line.startsWith("ARTICLE ")) {
                c->write("220 " + line.mid(8) + " <x@y> article\r\nSubject: s\r\n\r\nbody\r\n.\r\n");
            } else {
                s.answer(c, line);
            }
        };
        QVERIFY(s.start());
        Client c;
        c.t.SetPathChunk(4);   // chunks that end exactly at the top, and one that would pass it
        QVERIFY(c.connectTo(s.address()) && c.run(QStringLiteral("GROUP a.b")));
        QCOMPARE(c.t.SelectedGroup().First, top - 9);
        QCOMPARE(c.t.SelectedGroup().Last, top);

        QVERIFY(c.runOk(QStringLiteral("OVER %1-%2").arg(top - 9).arg(top)));
        QCOMPARE(c.t.SelectedGroup().Count(), 10);
        QCOMPARE(c.t.SelectedGroup().Item(9).Number, top);
        QStringList over;
        for (const QByteArray &l : s.received)
            if (l.startsWith("OVER"))
                over << QString::fromLatin1(l);
        QCOMPARE(over, QStringList({"OVER 9223372036854775798-9223372036854775801", "OVER 9223372036854775802-9223372036854775805",
                                    "OVER 9223372036854775806-9223372036854775807"}));

        QVERIFY(c.runOk(QStringLiteral("ARTICLE %1-%1").arg(top)));
        QCOMPARE(c.t.SelectedGroup().Count(), 1);
        QCOMPARE(s.count("ARTICLE"), 1);
    }

    // Status lines reach the program (status panel, boxes, the batch run's terminal) without the
    // control characters a server put in: escaped, never cut at a NUL.
    void control_characters_in_status_lines()
    {
        ScriptServer s;
        s.greeting = QByteArray("200 \x1b]0;TITLE\x07\x1b[2Jhello\0world \xc2\x9b" "31m \xe2\x80\xae" "txt.exe posting ok\r\n", 60);
        s.replies["GROUP"] = QByteArray("411 no \x1b[31mred\x1b[0m group\r\n");
        QVERIFY(s.start());
        Client c;
        QVERIFY(c.connectTo(s.address()));
        QCOMPARE(c.r.debug.first(), QStringLiteral("200 \\x1B]0;TITLE\\x07\\x1B[2Jhello\\x00world \\x9B31m \\u202Etxt.exe posting ok"));
        QVERIFY(c.run(QStringLiteral("GROUP a.b")));
        QCOMPARE(c.r.done.last().text, QStringLiteral("411 no \\x1B[31mred\\x1B[0m group"));
        for (const QString &d : std::as_const(c.r.debug))
            for (QChar ch : d)
                QVERIFY(ch.unicode() >= 0x20 && ch.unicode() != 0x7f);
    }

    // An article of a few MiB that is nothing but MIME boundaries costs the MIME parser far more
    // memory than its size: past the bound it is refused before it is parsed.
    void mime_part_count_is_bounded()
    {
        auto article = [](int parts) {
            QByteArray a = "220 7 <7@x> article\r\nSubject: s\r\nMIME-Version: 1.0\r\n"
                           "Content-Type: multipart/mixed; boundary=\"b\"\r\n\r\n";
            for (int i = 0; i < parts; ++i)
                a += "--b\r\nContent-Type: text/plain\r\n\r\nx\r\n";
            return a + "--b--\r\n.\r\n";
        };
        ScriptServer s;
        s.replies["GROUP"] = "211 9 1 9 a.b\r\n";
        int parts = 0;
        s.handler = [&](QTcpSocket *c, const QByteArray &line) {
            if (line.startsWith("ARTICLE"))
                c->write(article(parts));
            else
                s.answer(c, line);
        };
        QVERIFY(s.start());
        Client c;
        setLimit(c.t, &TransportLimits::maxMimeParts, 100);
        QVERIFY(c.connectTo(s.address()) && c.run(QStringLiteral("GROUP a.b")));
        parts = 99;   // within the bound: parsed as usual
        QVERIFY(c.runOk(QStringLiteral("ARTICLE 7-7")));
        QCOMPARE(c.t.SelectedGroup().Item(0).Message.Parts.size(), 99);
        parts = 101;
        QVERIFY(c.run(QStringLiteral("ARTICLE 7-7")) && c.r.done.last().error);
        QVERIFY2(c.r.done.last().text.contains(QStringLiteral("more than 100 MIME parts")), qPrintable(c.r.done.last().text));
        QCOMPARE(c.t.LastError(), qint32(NewsTransport::ErrorTooLarge));
    }

    // On a plain nntp:// connection the user name and password go out only after STARTTLS when the
    // server offers it, with the certificate checked as for nntps://; without it they go in clear,
    // and the transport says so.
    void credentials_wait_for_starttls()
    {
        QSslCertificate certificate;
        QSslKey key;
        QVERIFY(makeCertificate(certificate, key));
        struct Row {
            bool offer;
            bool acceptCertificate;
            bool connects;
            bool inClear;
        };
        for (const Row &row : {Row{true, true, true, false}, Row{true, false, false, false}, Row{false, true, true, true}}) {
            ScriptServer s;
            s.startTls = row.offer;
            s.certificate = certificate;
            s.key = key;
            s.replies = {{"CAPABILITIES", QByteArray("101 caps\r\nVERSION 2\r\nREADER\r\n") + (row.offer ? "STARTTLS\r\n" : "") + ".\r\n"},
                         {"AUTHINFO USER", "381 more\r\n"},
                         {"AUTHINFO PASS", "281 ok\r\n"}};
            QVERIFY(s.start());
            Client c;
            int asked = 0;
            c.t.SetCertificateCheck([&](const QString &, const QString &, const QString &) {
                ++asked;
                return row.acceptCertificate;
            });
            QCOMPARE(c.connectTo(s.address(), QStringLiteral("u"), QStringLiteral("p")), row.connects);
            QCOMPARE(asked, row.offer ? 1 : 0);
            for (qsizetype i = 0; i < s.received.size(); ++i)
                QVERIFY(!s.received[i].startsWith("AUTHINFO") || s.receivedEncrypted[i] || row.inClear);
            QCOMPARE(s.received.contains("AUTHINFO PASS p"), row.connects);
            QCOMPARE(c.t.CredentialsInClear(), row.inClear);
            QCOMPARE(c.r.debug.filter(QStringLiteral("without encryption")).isEmpty(), !row.inClear);
            if (!row.connects)
                QCOMPARE(c.t.LastError(), qint32(NewsTransport::ErrorTls));
        }
    }
};

QTEST_GUILESS_MAIN(TestHostile)
#include "test_hostile.moc"
