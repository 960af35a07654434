// Waiting costs nothing; the notification sink sees what the signals see; an
// owner may drop the transport from inside any notification.
#include "ScriptServer.h"

#include <QElapsedTimer>
#include <QEventLoop>
#include <QtTest>
#include <sys/resource.h>

namespace {
double cpuSeconds()
{
    rusage u{};
    getrusage(RUSAGE_SELF, &u);
    return double(u.ru_utime.tv_sec + u.ru_stime.tv_sec) + double(u.ru_utime.tv_usec + u.ru_stime.tv_usec) / 1e6;
}

class Sink : public NewsTransportNotify {
public:
    QStringList calls;
    QIODevice *stream = nullptr;
    void Connected(NewsTransport *) override { calls << "Connected"; }
    void Disconnected(NewsTransport *) override { calls << "Disconnected"; }
    void StateChanged(NewsTransport *, qint32 o, qint32 n) override
    {
        calls << QStringLiteral("State %1>%2").arg(o).arg(n);
    }
    void Done(NewsTransport *, qint32 v, bool e, const QString &) override
    {
        calls << QStringLiteral("Done %1 %2").arg(v).arg(e);
    }
    void Debug(NewsTransport *, const QString &t) override { calls << "Debug " + t; }
    void GetReadStream(NewsTransport *, QIODevice *s) override
    {
        calls << "Stream";
        stream = s;
    }
};
}  // namespace

class TestTransportIdle : public QObject {
    Q_OBJECT
private slots:
    void waiting_uses_no_cpu()
    {
        Session f;
        f.s.replies["GROUP"] = "";  // never answers
        QVERIFY(f.open());
        f.start(QStringLiteral("GROUP a.b"));

        // the program's wait: sleep in the event loop until something happens
        bool timeUp = false;
        QTimer::singleShot(5000, this, [&] { timeUp = true; });
        const double cpu0 = cpuSeconds();
        QElapsedTimer clock;
        clock.start();
        QEventLoop loop;
        while (f.r.done.isEmpty() && !timeUp)
            loop.processEvents(QEventLoop::WaitForMoreEvents);
        const double cpu = cpuSeconds() - cpu0;
        qInfo("5 s wait on a silent server: %.3f s wall, %.4f s CPU", clock.elapsed() / 1000.0, cpu);
        QVERIFY(f.r.done.isEmpty());
        QVERIFY(f.t.Busy());
        QVERIFY2(cpu < 0.5, QByteArray::number(cpu));
    }

    void sink_gets_every_notification()
    {
        Session f;
        f.s.replies["LIST ACTIVE"] = "215 list\r\na.b 2 1 y\r\n.\r\n";
        Sink sink;
        f.t.SetNotify(&sink);
        QVERIFY(f.open());
        QVERIFY(f.run(QStringLiteral("LIST")));
        f.t.Disconnect();
        QTRY_COMPARE(f.r.disconnected, 1);
        QCOMPARE(sink.calls.first(), QStringLiteral("State 0>1"));
        QVERIFY(sink.calls.contains("Connected"));
        QVERIFY(sink.calls.contains("Disconnected"));
        QVERIFY(sink.calls.contains("Debug 200 scripted server ready, posting ok"));
        QVERIFY(sink.calls.contains("Stream"));
        QVERIFY(sink.stream);
        QVERIFY(sink.calls.indexOf("State 2>3") < sink.calls.indexOf("Done 215 0"));
        QStringList sinkDebug;
        for (const QString &c : std::as_const(sink.calls))
            if (c.startsWith("Debug "))
                sinkDebug << c.mid(6);
        QCOMPARE(sinkDebug, f.r.debug);
    }

    void owner_may_delete_inside_a_notification()
    {
        ScriptServer s;
        s.replies["GROUP"] = "211 1 1 1 a.b\r\n";
        s.replies["ARTICLE 1"] = "502 download LIMIT EXCEEDED\r\n";
        s.replies["ARTICLE 2"] = "220 2 <2@x>\r\nSubject: x\r\n\r\nbody\r\n.\r\n";
        QVERIFY(s.start());
        // inside Debug (what the program does on LIMIT EXCEEDED), inside Done, inside GetReadStream
        for (int where = 0; where < 3; ++where) {
            QPointer<NewsTransport> t = new NewsTransport;
            bool ready = false;
            connect(t, &NewsTransport::Connected, this, [&] { ready = true; });
            connect(t, &NewsTransport::Done, this, [&](NewsTransport *, qint32, bool, const QString &) { ready = true; });
            t->Connect(s.address());
            QTRY_VERIFY(ready);
            ready = false;
            t->SelectGroup(QStringLiteral("a.b"));
            QTRY_VERIFY(ready);
            if (where == 0) {
                connect(t, &NewsTransport::Debug, this, [](NewsTransport *x, const QString &line) {
                    if (line.toUpper().contains(QLatin1String("LIMIT EXCEEDED"))) {
                        x->Disconnect();
                        delete x;
                    }
                });
                t->FetchArticles(1, 1);
            } else if (where == 1) {
                connect(t, &NewsTransport::Done, this, [](NewsTransport *x) { delete x; });
                t->FetchArticles(2, 2);
            } else {
                connect(t, &NewsTransport::GetReadStream, this, [](NewsTransport *x) { delete x; });
                t->FetchArticles(2, 2);
            }
            QTRY_VERIFY(t.isNull());
            QTest::qWait(50);  // the socket's deferred deletion runs here
        }
    }
};

QTEST_GUILESS_MAIN(TestTransportIdle)
#include "test_transport_idle.moc"
