// The batch mode run as a process against a scripted server that misbehaves on purpose, and
// against a download directory that already holds the user's files. One case per fault: what
// the server (or the directory) does, how the program is run, and what must come of it.
#include "decoder/DecoderTestUtil.h"
#include "support/StreamForever.h"
#include "support/ScriptedNntpServer.h"

#include <QDir>
#include <QFile>
#include <QPointer>
#include <QProcess>
#include <QTemporaryDir>
#include <QtTest>
#include <sys/resource.h>

namespace {

using namespace testutil;
constexpr qint64 kMiB = 1 << 20;

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
    std::function<void(const Outcome &, ScriptedNntpServer &, QDir &)> check;
    std::function<void(QDir &)> prepare;                 // files already in the download directory
    QByteArray input;                                    // standard input
    QString passwordVariable;                            // NEWSDREDGE_PASSWORD
    QByteArray terminateOn;                              // SIGTERM half a second after this command
};

QByteArray article(const QByteArray &cmd, const QByteArray &subject, const QByteArray &body)
{
    const QByteArray n = cmd.split(' ').value(1);
    return "220 " + n + " <a" + n + "@x> article\r\nFrom: a@b\r\nSubject: " + subject + "\r\nMessage-ID: <a" + n +
           "@x>\r\n\r\n" + dotStuffed(body) + ".\r\n";
}

using Respond = std::function<QByteArray(ScriptedNntpServer &, const QByteArray &)>;

// GROUP answered with groupReply, OVER and ARTICLE by the given functions (none: the default).
Respond groupWith(const QByteArray &groupReply, Respond over, Respond articles = {})
{
    return [groupReply, over, articles](ScriptedNntpServer &srv, const QByteArray &cmd) -> QByteArray {
        if (cmd.startsWith("GROUP"))
            return groupReply;
        if (cmd.startsWith("OVER") || cmd.startsWith("XOVER"))
            return over(srv, cmd);
        return articles && cmd.startsWith("ARTICLE") ? articles(srv, cmd) : QByteArray();
    };
}

Respond overRows(const QByteArray &rows, const QByteArray &end = ".\r\n")
{
    return [rows, end](ScriptedNntpServer &, const QByteArray &) { return "224 overview\r\n" + rows + end; };
}

// A group of one post whose article is body.
Respond onePost(const QByteArray &subject, const QByteArray &body)
{
    return groupWith("211 1 1 1 alt.x\r\n", overRows(overRow(1, subject)),
                     [subject, body](ScriptedNntpServer &, const QByteArray &cmd) { return article(cmd, subject, body); });
}

void expectFailure(const Outcome &o, int status, const char *message)
{
    QCOMPARE(o.status, status);
    QVERIFY2(o.err.contains(message), o.err.constData());
}

QList<Case> cases()
{
    const QByteArray good = randomBytes(3000, 7);
    QList<Case> c;

    for (const auto &[name, low, high] : {std::tuple<const char *, qint64, qint64>{"articles at 2^63 - 1, newest 5",
                                                                                 9223372036854775798, 9223372036854775807},
                                          {"articles above 2^53, newest 5", 9007199254740995, 9007199254741093}})
        c.append({name, {"--newest", "5", "--list", "alt.x"}, {},
                  groupWith("211 10 " + QByteArray::number(low) + ' ' + QByteArray::number(high) + " alt.x\r\n",
                            [](ScriptedNntpServer &, const QByteArray &cmd) { return overRange(cmd); }),
                  [high](const Outcome &o, ScriptedNntpServer &srv, QDir &) {
                      QCOMPARE(o.status, 0);
                      QVERIFY(srv.sawCommand("OVER " + QByteArray::number(high - 4) + '-' + QByteArray::number(high)));
                      QCOMPARE(o.out.count('\n'), 5);
                      QVERIFY(o.out.contains(QByteArray::number(high) + '\t'));
                  }});
    c.append({"terminal escapes in the greeting", {"--groups"}, "502 \x1b]0;TITLE\x07\x1b[2Jgo away\r\n", {},
              [](const Outcome &o, ScriptedNntpServer &, QDir &) {
                  expectFailure(o, 3, "\\x1B]0;TITLE\\x07\\x1B[2Jgo away");
                  QVERIFY(!o.err.contains('\x1b') && !o.err.contains('\x07'));
              }});
    c.append({"terminal escapes in group names", {"--groups"}, {},
              [](ScriptedNntpServer &, const QByteArray &cmd) -> QByteArray {
                  if (cmd.startsWith("LIST ACTIVE") || cmd == "LIST")
                      return "215 list\r\nalt.\x1b[31mred 10 1 y\r\nalt.plain 5 1 y\r\n.\r\n";
                  return {};
              },
              [](const Outcome &o, ScriptedNntpServer &, QDir &) {
                  QCOMPARE(o.status, 0);
                  QVERIFY2(o.out.contains("alt.\\x1B[31mred"), o.out.constData());
                  QVERIFY(!o.out.contains('\x1b'));
              }});
    c.append({"NUL in a subject", {"--list", "alt.x"}, {},
              groupWith("211 1 1 1 alt.x\r\n", overRows(overRow(1, QByteArray("cut\0here", 8)))),
              [](const Outcome &o, ScriptedNntpServer &, QDir &) {
                  QCOMPARE(o.status, 0);
                  const QList<QByteArray> cells = o.out.left(o.out.indexOf('\n')).split('\t');
                  QCOMPARE(cells.size(), 8);
                  QCOMPARE(cells.at(2), QByteArray("cut\\x00here"));
                  QVERIFY(cells.at(3).contains("poster@example.com"));
              }});
    c.append({"damaged post over an existing .damaged", {"--download-all", "alt.x"}, {},
              onePost("report", yencSingle(good, "report").replace("crc32=" + hex8(crcOf(good)), "crc32=12345678")),
              [](const Outcome &, ScriptedNntpServer &, QDir &d) {
                  QCOMPARE(readFile(d.filePath("report.damaged")), QByteArray("the user's own file"));
                  QVERIFY(!d.exists("report"));
                  QCOMPARE(d.entryList(QDir::Files | QDir::Hidden), QStringList({"report.damaged"}));
              },
              [](QDir &d) { QVERIFY(writeFile(d.filePath("report.damaged"), "the user's own file")); }});
    const QByteArray euros = QString(60, QChar(0x20AC)).toUtf8() + ".bin";
    c.append({"a name of 60 characters in 180 bytes", {"--download-all", "alt.x"}, {},
              onePost("euros", yencSingle(good, euros)),
              [good, euros](const Outcome &o, ScriptedNntpServer &, QDir &d) {
                  QCOMPARE(o.status, 0);
                  QCOMPARE(readFile(d.filePath(QString::fromUtf8(euros))), good);
              }});
    for (const bool fromStdin : {true, false})
        c.append({fromStdin ? "password from standard input" : "password from NEWSDREDGE_PASSWORD",
                  fromStdin ? QStringList{"--user", "me", "--password", "-", "--groups"} : QStringList{"--user", "me", "--groups"},
                  {}, {},
                  [fromStdin](const Outcome &o, ScriptedNntpServer &srv, QDir &) {
                      QVERIFY(srv.sawCommand(fromStdin ? "AUTHINFO PASS s3cret pass" : "AUTHINFO PASS from env"));
                      QVERIFY2(!o.err.contains("warning"), o.err.constData());
                  }, {}, fromStdin ? "s3cret pass\n" : "", fromStdin ? "" : "from env"});
    c.append({"password on the command line", {"--user", "me", "--password", "visible", "--groups"}, {}, {},
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
              groupWith("211 9 1 9 alt.x\r\n", overRows(overRow(1, "a") + overRow(2, "b"), "")),   // and then nothing
              [](const Outcome &o, ScriptedNntpServer &, QDir &) { expectFailure(o, 128 + 15, "ended by signal 15"); },
              {}, {}, {}, "OVER"});
    // SIGTERM while a set is fetched (part 3 never ends): the temporary file goes with the run
    QByteArray slow;
    for (int n = 1; n <= 5; ++n)
        slow += overRow(n, "slow set yEnc (" + QByteArray::number(n) + "/5)");
    const Respond slowRows = overRows(slow);
    c.append({"download ended by SIGTERM", {"--download-all", "alt.x"}, {},
              groupWith("211 5 1 5 alt.x\r\n", slowRows,
                        [](ScriptedNntpServer &, const QByteArray &cmd) -> QByteArray {
                            const QByteArray n = cmd.split(' ').value(1);
                            const QByteArray part = "=ybegin part=" + n + " total=5 line=128 size=10 name=slow.bin\r\n=ypart begin=1 end=2\r\nkk\r\n";
                            return n.toInt() < 3 ? article(cmd, "slow set", part + "=yend size=2\r\n")
                                                 : "220 " + n + " <a" + n + "@x>\r\n\r\n" + part;
                        }),
              [](const Outcome &o, ScriptedNntpServer &, QDir &d) {
                  QVERIFY(o.status > 0);
                  QVERIFY2(o.err.contains("stopped"), o.err.constData());
                  QCOMPARE(d.entryList(QDir::Files | QDir::Hidden), QStringList());
              }, {}, {}, {}, "ARTICLE 3"});
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
              [](const Outcome &o, ScriptedNntpServer &, QDir &) {
                  expectFailure(o, 4, "too long: more than 1000000 groups");
                  QVERIFY(o.out.isEmpty());
              }});
    c.append({"endless OVER, newest 50", {"--newest", "50", "--list", "alt.x"}, {},
              groupWith("211 1000 1 1000 alt.x\r\n", [](ScriptedNntpServer &srv, const QByteArray &) {
                  auto n = std::make_shared<qint64>(951);
                  streamForever(srv.sockets.last(), "224 overview\r\n", [n] {
                      QByteArray out;
                      for (int i = 0; i < 2000; ++i, ++*n)
                          out += overRow(*n, "row");
                      return out;
                  });
                  return QByteArray();
              }),
              [](const Outcome &o, ScriptedNntpServer &, QDir &) { expectFailure(o, 4, "too long"); }});
    c.append({"endless ARTICLE", {"--download-all", "alt.x"}, {},
              groupWith("211 1 1 1 alt.x\r\n", overRows(overRow(1, "endless")), [](ScriptedNntpServer &srv, const QByteArray &) {
                  streamForever(srv.sockets.last(), "220 1 <a1@x>\r\nSubject: endless\r\n\r\n=ybegin line=128 size=999999999 name=e.bin\r\n",
                                [] { return QByteArray(127, 'k') + "\r\n"; });
                  return QByteArray();
              }),
              [](const Outcome &o, ScriptedNntpServer &, QDir &d) {
                  expectFailure(o, 5, "too long: article 1");
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
            if (!k.terminateOn.isEmpty() && !terminated && srv.sawCommand(k.terminateOn)) {
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
