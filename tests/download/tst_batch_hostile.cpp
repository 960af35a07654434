// The batch mode run as a process against a scripted server that misbehaves on purpose, and
// against a download directory that already holds the user's files. One case per fault: what
// the server (or the directory) does, how the program is run, and what must come of it.
#include "support/ScriptedNntpServer.h"

#include <QDir>
#include <QFile>
#include <QPointer>
#include <QProcess>
#include <QTemporaryDir>
#include <QtTest>
#include <sys/resource.h>

namespace {

constexpr qint64 kMiB = 1 << 20;

quint32 crc32Of(const QByteArray &data)
{
    quint32 c = 0xFFFFFFFFu;
    for (char ch : data) {
        c ^= quint8(ch);
        for (int k = 0; k < 8; ++k)
            c = (c >> 1) ^ (0xEDB88320u & (0u - (c & 1u)));
    }
    return ~c;
}

QByteArray randomBytes(int n, quint32 seed)
{
    QByteArray out(n, '\0');
    for (int i = 0; i < n; ++i) {
        seed = seed * 1103515245u + 12345u;
        out[i] = char(seed >> 16);
    }
    return out;
}

// yEnc lines of data: every critical character and a leading dot escaped.
QByteArray yencLines(const QByteArray &data)
{
    QByteArray out, line;
    for (char ch : data) {
        const char e = char(quint8(ch) + 42);
        if (e == '\0' || e == '\n' || e == '\r' || e == '=' || (line.isEmpty() && e == '.'))
            line += '=', line += char(e + 64);
        else
            line += e;
        if (line.size() >= 128) {
            out += line + "\r\n";
            line.clear();
        }
    }
    if (!line.isEmpty())
        out += line + "\r\n";
    return out;
}

QByteArray yencFile(const QByteArray &data, const QByteArray &name, quint32 crc)
{
    return "=ybegin line=128 size=" + QByteArray::number(data.size()) + " name=" + name + "\r\n" + yencLines(data) +
           "=yend size=" + QByteArray::number(data.size()) + " crc32=" + QByteArray::number(crc, 16).rightJustified(8, '0') + "\r\n";
}

QByteArray uuencode(const QByteArray &data, const QByteArray &name)
{
    auto enc = [](int v) { return char(v ? v + 0x20 : 0x60); };
    QByteArray out = "begin 644 " + name + "\r\n";
    for (int at = 0; at < data.size(); at += 45) {
        const QByteArray chunk = data.mid(at, 45);
        QByteArray line(1, enc(int(chunk.size())));
        for (int i = 0; i < chunk.size(); i += 3) {
            const quint32 v = (quint32(quint8(chunk[i])) << 16) | (i + 1 < chunk.size() ? quint32(quint8(chunk[i + 1])) << 8 : 0) |
                              (i + 2 < chunk.size() ? quint32(quint8(chunk[i + 2])) : 0);
            line += enc((v >> 18) & 63), line += enc((v >> 12) & 63), line += enc((v >> 6) & 63), line += enc(v & 63);
        }
        out += line + "\r\n";
    }
    return out + "`\r\nend\r\n";
}

QByteArray dotStuffed(const QByteArray &body)
{
    QByteArray out;
    for (const QByteArray &l : body.split('\n'))
        out += (l.startsWith('.') ? "." : "") + l + '\n';
    out.chop(1);
    return out;
}

QByteArray overRow(qint64 n, const QByteArray &subject)
{
    return QByteArray::number(n) + '\t' + subject + "\tposter@example.com\tMon, 23 Nov 2026 08:00:00 +0000\t<a" +
           QByteArray::number(n) + "@x>\t\t100\t5\tXref: h alt.x:" + QByteArray::number(n) + "\r\n";
}

// Answers OVER a-b with one row per article of the range (exact, also at the top of 64 bits).
QByteArray overRange(const QByteArray &cmd)
{
    const QList<QByteArray> r = cmd.split(' ').value(1).split('-');
    const qint64 a = r.value(0).toLongLong(), b = r.value(1).toLongLong();
    QByteArray out = "224 overview\r\n";
    for (qint64 n = a; n >= a && n <= b; n = n == b ? a - 1 : n + 1)
        out += overRow(n, "post " + QByteArray::number(n));
    return out + ".\r\n";
}

// Feeds a client without end, never more than a few MiB ahead of it.
void streamForever(QTcpSocket *c, const QByteArray &head, std::function<QByteArray()> chunk)
{
    c->write(head);
    QPointer<QTcpSocket> sock(c);
    auto more = [sock, chunk] {
        while (sock && sock->state() == QAbstractSocket::ConnectedState && sock->bytesToWrite() < 4 * kMiB)
            sock->write(chunk());
    };
    QObject::connect(c, &QIODevice::bytesWritten, c, more);
    more();
}

struct Outcome {
    int status = -1;
    QByteArray out, err;
    qint64 ms = 0;
    qint64 peakRss = 0;   // of the largest child so far
    QByteArray cmdline;   // the run's command line as others see it, once it sent AUTHINFO
};

struct Case {
    QString name;
    QStringList args;                                    // after --batch --server ADDRESS
    QByteArray greeting;                                 // empty: the usual one
    std::function<QByteArray(ScriptedNntpServer &, const QByteArray &)> respond;   // null: default
    std::function<void(QDir &)> prepare;                 // files already in the download directory
    QByteArray input;                                    // standard input
    QString passwordVariable;                            // NEWSDREDGE_PASSWORD
    bool terminateOnOver = false;                        // SIGTERM once OVER went out
    std::function<void(const Outcome &, ScriptedNntpServer &, QDir &)> check;
};

QByteArray article(const QByteArray &cmd, const QByteArray &subject, const QByteArray &body)
{
    const QByteArray n = cmd.split(' ').value(1);
    return "220 " + n + " <a" + n + "@x> article\r\nFrom: a@b\r\nSubject: " + subject + "\r\nMessage-ID: <a" + n +
           "@x>\r\n\r\n" + dotStuffed(body) + ".\r\n";
}

// A group of one post whose article is body.
std::function<QByteArray(ScriptedNntpServer &, const QByteArray &)> onePost(const QByteArray &subject, const QByteArray &body)
{
    return [subject, body](ScriptedNntpServer &, const QByteArray &cmd) -> QByteArray {
        if (cmd.startsWith("GROUP"))
            return "211 1 1 1 alt.x\r\n";
        if (cmd.startsWith("OVER") || cmd.startsWith("XOVER"))
            return "224 overview\r\n" + overRow(1, subject) + ".\r\n";
        if (cmd.startsWith("ARTICLE"))
            return article(cmd, subject, body);
        return {};
    };
}

QByteArray fileText(const QString &path)
{
    QFile f(path);
    return f.open(QIODevice::ReadOnly) ? f.readAll() : QByteArray("<missing>");
}

QList<Case> cases()
{
    const QByteArray good = randomBytes(3000, 7);
    QList<Case> c;

    c.append({"articles at 2^63 - 1, newest 5", {"--newest", "5", "--list", "alt.x"}, {},
              [](ScriptedNntpServer &, const QByteArray &cmd) -> QByteArray {
                  if (cmd.startsWith("GROUP"))
                      return "211 10 9223372036854775798 9223372036854775807 alt.x\r\n";
                  return cmd.startsWith("OVER") ? overRange(cmd) : QByteArray();
              },
              {}, {}, {}, false,
              [](const Outcome &o, ScriptedNntpServer &srv, QDir &) {
                  QCOMPARE(o.status, 0);
                  QVERIFY(srv.sawCommand("OVER 9223372036854775803-9223372036854775807"));
                  QCOMPARE(o.out.count('\n'), 5);
                  QVERIFY(o.out.contains("9223372036854775807\t"));
              }});
    c.append({"articles above 2^53, newest 5", {"--newest", "5", "--list", "alt.x"}, {},
              [](ScriptedNntpServer &, const QByteArray &cmd) -> QByteArray {
                  if (cmd.startsWith("GROUP"))
                      return "211 100 9007199254740995 9007199254741093 alt.x\r\n";
                  return cmd.startsWith("OVER") ? overRange(cmd) : QByteArray();
              },
              {}, {}, {}, false,
              [](const Outcome &o, ScriptedNntpServer &srv, QDir &) {
                  QCOMPARE(o.status, 0);
                  QVERIFY(srv.sawCommand("OVER 9007199254741089-9007199254741093"));
                  QCOMPARE(o.out.count('\n'), 5);
              }});
    c.append({"terminal escapes in the greeting", {"--groups"}, "502 \x1b]0;TITLE\x07\x1b[2Jgo away\r\n", {}, {}, {}, {}, false,
              [](const Outcome &o, ScriptedNntpServer &, QDir &) {
                  QCOMPARE(o.status, 3);
                  QVERIFY2(o.err.contains("\\x1B]0;TITLE\\x07\\x1B[2Jgo away"), o.err.constData());
                  QVERIFY(!o.err.contains('\x1b') && !o.err.contains('\x07'));
              }});
    c.append({"terminal escapes in group names", {"--groups"}, {},
              [](ScriptedNntpServer &, const QByteArray &cmd) -> QByteArray {
                  if (cmd.startsWith("LIST ACTIVE") || cmd == "LIST")
                      return "215 list\r\nalt.\x1b[31mred 10 1 y\r\nalt.plain 5 1 y\r\n.\r\n";
                  return {};
              },
              {}, {}, {}, false,
              [](const Outcome &o, ScriptedNntpServer &, QDir &) {
                  QCOMPARE(o.status, 0);
                  QVERIFY2(o.out.contains("alt.\\x1B[31mred"), o.out.constData());
                  QVERIFY(!o.out.contains('\x1b'));
              }});
    c.append({"NUL in a subject", {"--list", "alt.x"}, {},
              [](ScriptedNntpServer &, const QByteArray &cmd) -> QByteArray {
                  if (cmd.startsWith("GROUP"))
                      return "211 1 1 1 alt.x\r\n";
                  if (cmd.startsWith("OVER"))
                      return "224 overview\r\n" + overRow(1, QByteArray("cut\0here", 8)) + ".\r\n";
                  return {};
              },
              {}, {}, {}, false,
              [](const Outcome &o, ScriptedNntpServer &, QDir &) {
                  QCOMPARE(o.status, 0);
                  const QList<QByteArray> cells = o.out.left(o.out.indexOf('\n')).split('\t');
                  QCOMPARE(cells.size(), 8);
                  QCOMPARE(cells.at(2), QByteArray("cut\\x00here"));
                  QVERIFY(cells.at(3).contains("poster@example.com"));
              }});
    c.append({"damaged post over an existing .damaged", {"--download-all", "alt.x"}, {},
              onePost("report", yencFile(good, "report", 0x12345678)),
              [](QDir &d) {
                  QFile f(d.filePath("report.damaged"));
                  QVERIFY(f.open(QIODevice::WriteOnly));
                  f.write("the user's own file");
              },
              {}, {}, false,
              [](const Outcome &, ScriptedNntpServer &, QDir &d) {
                  QCOMPARE(fileText(d.filePath("report.damaged")), QByteArray("the user's own file"));
                  QVERIFY(!d.exists("report"));
                  QCOMPARE(d.entryList(QDir::Files | QDir::Hidden), QStringList({"report.damaged"}));
              }});
    c.append({"a file under the decoder's working name", {"--download-all", "alt.x"}, {},
              onePost("pic", yencFile(good, "pic.jpg", crc32Of(good))),
              [](QDir &d) {
                  QFile f(d.filePath("pic.jpg.decoding.tmp"));
                  QVERIFY(f.open(QIODevice::WriteOnly));
                  f.write("mine");
              },
              {}, {}, false,
              [good](const Outcome &o, ScriptedNntpServer &, QDir &d) {
                  QCOMPARE(o.status, 0);
                  QCOMPARE(fileText(d.filePath("pic.jpg")), good);
                  QCOMPARE(fileText(d.filePath("pic.jpg.decoding.tmp")), QByteArray("mine"));
                  QCOMPARE(d.entryList(QDir::Files | QDir::Hidden).size(), 2);
              }});
    c.append({"yEnc part claiming offsets near 10 TB", {"--download-all", "alt.x"}, {},
              onePost("huge", "=ybegin part=1 total=1 line=128 size=10000000000000 name=huge.bin\r\n"
                              "=ypart begin=9999999999901 end=10000000000000\r\n" + yencLines(randomBytes(100, 3)) +
                              "=yend size=100 part=1\r\n"),
              {}, {}, {}, false,
              [](const Outcome &o, ScriptedNntpServer &, QDir &d) {
                  QVERIFY(o.status != 0);
                  QVERIFY(!d.exists("huge.bin"));
                  QVERIFY(d.exists("huge.bin.damaged"));
                  for (const QFileInfo &f : d.entryInfoList(QDir::Files | QDir::Hidden))
                      QVERIFY2(f.size() <= 4096, qPrintable(f.fileName() + " " + QString::number(f.size())));
              }});
    c.append({"uuencode length characters changed", {"--download-all", "alt.x"}, {},
              onePost("uu", [&good] {
                  QByteArray t = uuencode(good, "x.bin");
                  t.replace("\r\nM", "\r\nZ");
                  return t;
              }()),
              {}, {}, {}, false,
              [](const Outcome &o, ScriptedNntpServer &, QDir &d) {
                  QVERIFY(o.status != 0);
                  QVERIFY(!d.exists("x.bin"));
                  QVERIFY(d.exists("x.bin.damaged"));
              }});
    const QByteArray euros = QString(60, QChar(0x20AC)).toUtf8() + ".bin";
    c.append({"a name of 60 characters in 180 bytes", {"--download-all", "alt.x"}, {},
              onePost("euros", yencFile(good, euros, crc32Of(good))),
              {}, {}, {}, false,
              [good, euros](const Outcome &o, ScriptedNntpServer &, QDir &d) {
                  QCOMPARE(o.status, 0);
                  QCOMPARE(fileText(d.filePath(QString::fromUtf8(euros))), good);
              }});
    c.append({"password from standard input", {"--user", "me", "--password", "-", "--groups"}, {}, {}, {}, "s3cret pass\n", {}, false,
              [](const Outcome &o, ScriptedNntpServer &srv, QDir &) {
                  QVERIFY(srv.sawCommand("AUTHINFO PASS s3cret pass"));
                  QVERIFY2(!o.err.contains("warning"), o.err.constData());
              }});
    c.append({"password from NEWSDREDGE_PASSWORD", {"--user", "me", "--groups"}, {}, {}, {}, {}, "from env", false,
              [](const Outcome &o, ScriptedNntpServer &srv, QDir &) {
                  QVERIFY(srv.sawCommand("AUTHINFO PASS from env"));
                  QVERIFY2(!o.err.contains("warning"), o.err.constData());
              }});
    c.append({"password on the command line", {"--user", "me", "--password", "visible", "--groups"}, {}, {}, {}, {}, {}, false,
              [](const Outcome &o, ScriptedNntpServer &srv, QDir &) {
                  QVERIFY(srv.sawCommand("AUTHINFO PASS visible"));
                  QVERIFY2(o.err.contains("warning: a password given on the command line"), o.err.constData());
                  // and it is gone from the command line others can read while the run lives
                  QVERIFY(!o.cmdline.isEmpty());
                  QVERIFY2(!o.cmdline.contains("visible") && o.cmdline.contains("--password"), o.cmdline.constData());
                  // the scripted server offers no STARTTLS: said once
                  QCOMPARE(o.err.count("Password sent without encryption"), 1);
              }});
    c.append({"listing ended by SIGTERM", {"--list", "alt.x"}, {},
              [](ScriptedNntpServer &, const QByteArray &cmd) -> QByteArray {
                  if (cmd.startsWith("GROUP"))
                      return "211 9 1 9 alt.x\r\n";
                  if (cmd.startsWith("OVER"))
                      return "224 overview\r\n" + overRow(1, "a") + overRow(2, "b");   // and then nothing
                  return {};
              },
              {}, {}, {}, true,
              [](const Outcome &o, ScriptedNntpServer &, QDir &) {
                  QCOMPARE(o.status, 128 + 15);
                  QVERIFY2(o.err.contains("ended by signal 15"), o.err.constData());
              }});
    c.append({"endless LIST", {"--groups"}, {},
              [](ScriptedNntpServer &srv, const QByteArray &cmd) -> QByteArray {
                  if (cmd.startsWith("LIST ACTIVE") || cmd == "LIST") {
                      auto n = std::make_shared<qint64>(0);
                      streamForever(srv.sockets.last(), "215 list\r\n", [n] {
                          QByteArray out;
                          for (int i = 0; i < 2000; ++i, ++*n)
                              out += "alt.binaries.endless.group" + QByteArray::number(*n) + " 1000 1 y\r\n";
                          return out;
                      });
                  }
                  return {};
              },
              {}, {}, {}, false,
              [](const Outcome &o, ScriptedNntpServer &, QDir &) {
                  QCOMPARE(o.status, 4);
                  QVERIFY2(o.err.contains("too long: more than 1000000 groups"), o.err.constData());
                  QVERIFY(o.out.isEmpty());
              }});
    c.append({"endless OVER, newest 50", {"--newest", "50", "--list", "alt.x"}, {},
              [](ScriptedNntpServer &srv, const QByteArray &cmd) -> QByteArray {
                  if (cmd.startsWith("GROUP"))
                      return "211 1000 1 1000 alt.x\r\n";
                  if (cmd.startsWith("OVER")) {
                      auto n = std::make_shared<qint64>(951);
                      streamForever(srv.sockets.last(), "224 overview\r\n", [n] {
                          QByteArray out;
                          for (int i = 0; i < 2000; ++i, ++*n)
                              out += overRow(*n, "row");
                          return out;
                      });
                  }
                  return {};
              },
              {}, {}, {}, false,
              [](const Outcome &o, ScriptedNntpServer &, QDir &) {
                  QCOMPARE(o.status, 4);
                  QVERIFY2(o.err.contains("too long"), o.err.constData());
              }});
    c.append({"endless ARTICLE", {"--download-all", "alt.x"}, {},
              [](ScriptedNntpServer &srv, const QByteArray &cmd) -> QByteArray {
                  if (cmd.startsWith("GROUP"))
                      return "211 1 1 1 alt.x\r\n";
                  if (cmd.startsWith("OVER"))
                      return "224 overview\r\n" + overRow(1, "endless") + ".\r\n";
                  if (cmd.startsWith("ARTICLE"))
                      streamForever(srv.sockets.last(), "220 1 <a1@x>\r\nSubject: endless\r\n\r\n=ybegin line=128 size=999999999 name=e.bin\r\n",
                                    [] { return QByteArray(127, 'k') + "\r\n"; });
                  return {};
              },
              {}, {}, {}, false,
              [](const Outcome &o, ScriptedNntpServer &, QDir &d) {
                  QCOMPARE(o.status, 5);
                  QVERIFY2(o.err.contains("too long: article 1"), o.err.constData());
                  QCOMPARE(d.entryList(QDir::Files | QDir::Hidden), QStringList());
              }});
    return c;
}

} // namespace

class TestBatchHostile : public QObject {
    Q_OBJECT
private slots:
    void hostile_data()
    {
        QTest::addColumn<int>("index");
        const QList<Case> all = cases();
        for (int i = 0; i < all.size(); ++i)
            QTest::newRow(qPrintable(all[i].name)) << i;
    }

    void hostile()
    {
        QFETCH(int, index);
        const Case k = cases().at(index);
        ScriptedNntpServer srv;
        if (!k.greeting.isEmpty())
            srv.greeting = k.greeting;
        if (k.respond)
            srv.respond = [&srv, own = k.respond, base = srv.respond](const QByteArray &cmd) {
                const QByteArray r = own(srv, cmd);
                return r.isEmpty() && !srv.sockets.last()->bytesToWrite() ? base(cmd) : r;
            };
        QTemporaryDir destDir;
        QDir dest(destDir.path());
        if (k.prepare)
            k.prepare(dest);

        QProcess p;
        p.setProgram(qEnvironmentVariable("ND_BINARY_DIR") + QStringLiteral("/src/newsdredge"));
        p.setArguments(QStringList{"--batch", "--server", srv.address()} + k.args +
                       (k.args.contains("--download-all") ? QStringList{"--dest", dest.path()} : QStringList()));
        QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
        env.remove(QStringLiteral("NEWSDREDGE_PASSWORD"));
        if (!k.passwordVariable.isEmpty())
            env.insert(QStringLiteral("NEWSDREDGE_PASSWORD"), k.passwordVariable);
        p.setProcessEnvironment(env);
        QElapsedTimer clock;
        clock.start();
        p.start();
        QVERIFY(p.waitForStarted());
        if (!k.input.isEmpty())
            p.write(k.input);
        p.closeWriteChannel();
        QElapsedTimer sinceOver;
        bool terminated = false;
        // the server lives on this thread: wait in the event loop; the default time-out is 30 s
        QByteArray cmdline;
        while (p.state() != QProcess::NotRunning && clock.elapsed() < 60000) {
            QTest::qWait(10);
            if (cmdline.isEmpty() && srv.sawCommand("AUTHINFO")) {
                QFile f(QStringLiteral("/proc/%1/cmdline").arg(p.processId()));
                if (f.open(QIODevice::ReadOnly))
                    cmdline = f.readAll();
            }
            if (k.terminateOnOver && !terminated && srv.sawCommand("OVER")) {
                if (!sinceOver.isValid())
                    sinceOver.start();
                else if (sinceOver.elapsed() > 500) {
                    p.terminate();
                    terminated = true;
                }
            }
        }
        if (p.state() != QProcess::NotRunning) {
            p.kill();
            p.waitForFinished();
            QFAIL("the run did not end within 60 s (twice the time-out)");
        }
        Outcome o;
        o.ms = clock.elapsed();
        o.status = p.exitStatus() == QProcess::NormalExit ? p.exitCode() : -1;
        o.out = p.readAllStandardOutput();
        o.err = p.readAllStandardError();
        o.cmdline = cmdline;
        rusage ru {};
        getrusage(RUSAGE_CHILDREN, &ru);
        o.peakRss = qint64(ru.ru_maxrss) * 1024;
        qInfo("%s: status %d after %lld ms, largest run so far %lld MiB", qPrintable(k.name), o.status, o.ms, o.peakRss / kMiB);
        k.check(o, srv, dest);
        QVERIFY2(o.peakRss < 256 * kMiB, qPrintable(QString::number(o.peakRss / kMiB) + " MiB"));
    }
};

QTEST_GUILESS_MAIN(TestBatchHostile)
#include "tst_batch_hostile.moc"
