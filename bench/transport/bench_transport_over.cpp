// OVER throughput: a plain socket read of an overview answer against
// NewsTransport::FetchHeaders of the same answer (rows drained while they
// stream, as the listing does). Also the memory the parsed rows take when
// they are all kept. Usage: bench_transport_over [rows]
//                          bench_transport_over HOST:PORT GROUP   (a real server on loopback)
#include "news/transport/NewsTransport.h"
#include "support/ProcStats.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QEventLoop>
#include <QFile>
#include <QTcpServer>
#include <QTcpSocket>
#include <QThread>
#include <cstdio>
#include <ctime>

namespace {

QByteArray row(qint64 n)
{
    const QByteArray num = QByteArray::number(n);
    return num + "\tHoliday pictures [" + num + "/1000000] - \"holiday." + num +
           ".jpg\" yEnc (1/3)\tPoster Name <poster@example.com>\tMon, 16 Nov 2003 21:54:12 -0500\t<part" +
           num + "of3.abcdefgh@example.com>\t\t398765\t3063\tXref: news.example.com alt.binaries.test:" + num +
           "\tPath: news.example.com!not-for-mail\r\n";
}

// Serves one overview on every connection, from its own thread. The answer
// is built once beforehand, so the server only copies bytes.
class OverServer : public QTcpServer {
public:
    qint64 rows = 0;
    QByteArray answer;  // rows 1..rows and the terminating line
    QList<qsizetype> offsets;  // where row n starts, n from 1
    void build()
    {
        offsets.reserve(rows + 2);
        for (qint64 n = 1; n <= rows; ++n) {
            offsets.append(answer.size());
            answer += row(n);
        }
        offsets.append(answer.size());
    }
protected:
    void incomingConnection(qintptr fd) override
    {
        auto *c = new QTcpSocket(this);
        c->setSocketDescriptor(fd);
        c->write("200 bench server\r\n");
        auto pos = std::make_shared<qsizetype>(-1);
        auto end = std::make_shared<qsizetype>(0);
        auto pump = [c, pos, end] {
            while (*pos >= 0 && c->bytesToWrite() < 4 * 1024 * 1024) {
                const qsizetype n = qMin<qsizetype>(1024 * 1024, *end - *pos);
                c->write(QByteArray::fromRawData(static_cast<OverServer *>(c->parent())->answer.constData() + *pos, n));
                *pos += n;
                if (*pos >= *end) {
                    c->write(".\r\n");
                    *pos = -1;
                }
            }
        };
        connect(c, &QTcpSocket::bytesWritten, c, pump);
        connect(c, &QTcpSocket::readyRead, c, [this, c, pos, end, pump] {
            while (c->canReadLine()) {
                const QByteArray l = c->readLine().trimmed();
                if (l.startsWith("MODE READER")) {
                    c->write("200 reader\r\n");
                } else if (l.startsWith("GROUP")) {
                    c->write("211 " + QByteArray::number(rows) + " 1 " + QByteArray::number(rows) + " alt.binaries.test\r\n");
                } else if (l == "LIST OVERVIEW.FMT") {
                    c->write("215 fmt\r\nSubject:\r\nFrom:\r\nDate:\r\nMessage-ID:\r\nReferences:\r\n:bytes\r\n"
                             ":lines\r\nXref:full\r\nPath:full\r\n.\r\n");
                } else if (l.startsWith("OVER ")) {
                    const QList<QByteArray> r = l.mid(5).split('-');
                    const qint64 first = qBound<qint64>(1, r.at(0).toLongLong(), rows);
                    const qint64 last = qBound<qint64>(first, r.at(1).toLongLong(), rows);
                    *pos = offsets.at(first - 1);
                    *end = offsets.at(last);
                    c->write("224 overview follows\r\n");
                    pump();
                } else if (l == "QUIT") {
                    c->write("205 bye\r\n");
                    c->disconnectFromHost();
                } else {
                    c->write("500 ?\r\n");
                }
            }
        });
    }
};

}  // namespace

using bench::procStatusKb;
using bench::threadCpu;

// Plain read of OVER for the whole group against FetchHeaders of the same range,
// both from a running server (e.g. INN of the test harness).
int benchExternal(const QString &hostPort, const QByteArray &group)
{
    const ServerAddress a = parseServerAddress(hostPort);
    if (!a.valid || (a.host != QLatin1String("127.0.0.1") && a.host != QLatin1String("localhost")))
        return 2;  // loopback only
    QEventLoop loop;
    auto plain = [&](qint64 *first, qint64 *last, bool withPath) -> double {
        QTcpSocket s;
        s.connectToHost(QHostAddress::LocalHost, a.port);
        if (!s.waitForConnected(5000))
            return -1;
        auto line = [&] {
            while (!s.canReadLine())
                s.waitForReadyRead(10000);
            return s.readLine();
        };
        line();
        s.write("MODE READER\r\n");
        line();
        s.write("GROUP " + group + "\r\n");
        const QList<QByteArray> g = line().trimmed().split(' ');
        *first = g.value(2).toLongLong();
        *last = g.value(3).toLongLong();
        QElapsedTimer clock;
        clock.start();
        qint64 got = 0;
        if (withPath) {  // what the transport asks when the overview has no Path
            s.write("HDR Path " + g.value(2) + '-' + g.value(3) + "\r\n");
            QByteArray l = line();
            got += l.size();
            if (l.startsWith("225") || l.startsWith("221")) {
                do {
                    l = line();
                    got += l.size();
                } while (l != ".\r\n");
            }
        }
        s.write("OVER " + g.value(2) + '-' + g.value(3) + "\r\n");
        QByteArray tail;
        bool finished = false;
        QObject::connect(&s, &QTcpSocket::readyRead, &s, [&] {
            const QByteArray d = s.readAll();
            got += d.size();
            tail = (tail + d).right(5);
            finished = tail == "\r\n.\r\n";
        });
        if (s.bytesAvailable())
            emit s.readyRead();
        while (!finished)
            loop.processEvents(QEventLoop::WaitForMoreEvents);
        const double secs = clock.nsecsElapsed() / 1e9;
        std::printf("plain read%s:  %lld bytes in %.3f s\n", withPath ? " (HDR Path + OVER)" : " (OVER)",
                    (long long)got, secs);
        return secs;
    };
    qint64 first = 0, last = 0;
    const double overOnly = plain(&first, &last, false);
    double plainSecs = plain(&first, &last, true);
    NewsTransport t;
    int done = 0;
    bool error = false;
    QObject::connect(&t, &NewsTransport::Connected, &t, [&] { ++done; });
    QObject::connect(&t, &NewsTransport::Done, &t, [&](NewsTransport *, qint32, bool e) {
        ++done;
        error = error || e;
    });
    t.Connect(hostPort);
    while (done < 1)
        loop.processEvents(QEventLoop::WaitForMoreEvents);
    t.SelectGroup(QString::fromLatin1(group));
    while (done < 2)
        loop.processEvents(QEventLoop::WaitForMoreEvents);
    QElapsedTimer clock;
    clock.start();
    const double cpu0 = threadCpu();
    qint64 rows = 0;
    t.FetchHeaders(first, last);
    while (done < 3) {
        loop.processEvents(QEventLoop::WaitForMoreEvents);
        rows += t.SelectedGroup().TakeArticles().size();
    }
    const double secs = clock.nsecsElapsed() / 1e9;
    plainSecs = qMin(plainSecs, plain(&first, &last, true));
    std::printf("transport:   %lld rows with Path in %.3f s (thread CPU %.3f s)%s\n", (long long)rows, secs,
                threadCpu() - cpu0, error ? " ERROR" : "");
    std::printf("ratio transport/plain read of the same answer: %.2f (against OVER alone: %.2f)\n",
                secs / plainSecs, secs / overOnly);
    return error ? 1 : 0;
}

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    if (argc > 2 && QByteArray(argv[1]).contains(':'))
        return benchExternal(QString::fromLocal8Bit(argv[1]), QByteArray(argv[2]));
    const qint64 rows = argc > 1 ? QByteArray(argv[1]).toLongLong() : 1000000;

    QThread serverThread;
    OverServer *server = new OverServer;
    server->rows = rows;
    server->build();
    const qint64 overviewBytes = server->answer.size();
    server->moveToThread(&serverThread);
    serverThread.start();
    quint16 port = 0;
    QMetaObject::invokeMethod(server, [&] {
        server->listen(QHostAddress::LocalHost, 0);
        port = server->serverPort();
    }, Qt::BlockingQueuedConnection);

    QEventLoop loop;
    // 1. plain socket read of the answer
    auto plainRead = [&]() -> double {
        QTcpSocket s;
        s.connectToHost(QHostAddress::LocalHost, port);
        if (!s.waitForConnected(5000) || !s.waitForReadyRead(5000))
            return -1.0;
        s.readAll();
        QElapsedTimer clock;
        clock.start();
        const double cpu0 = threadCpu();
        s.write("OVER 1-" + QByteArray::number(rows) + "\r\n");
        qint64 got = 0;
        QByteArray tail;
        bool finished = false;
        QObject::connect(&s, &QTcpSocket::readyRead, &s, [&] {
            const QByteArray d = s.readAll();
            got += d.size();
            tail = (tail + d).right(5);
            if (tail == "\r\n.\r\n")
                finished = true;
        });
        while (!finished)
            loop.processEvents(QEventLoop::WaitForMoreEvents);
        const double secs = clock.nsecsElapsed() / 1e9;
        std::printf("plain read:      %lld bytes in %.3f s (client thread CPU %.3f s)\n", (long long)got, secs,
                    threadCpu() - cpu0);
        return secs;
    };
    double plainSeconds = plainRead();

    // 2. the transport, rows drained while streaming; 3. the same, rows kept
    auto runTransport = [&](bool keep, qint64 *count) -> double {
        NewsTransport t;
        bool done = false, error = false;
        QObject::connect(&t, &NewsTransport::Connected, &t, [&] { done = true; });
        QObject::connect(&t, &NewsTransport::Done, &t, [&](NewsTransport *, qint32, bool e) {
            done = true;
            error = e;
        });
        t.Connect(QStringLiteral("127.0.0.1:%1").arg(port));
        while (!done)
            loop.processEvents(QEventLoop::WaitForMoreEvents);
        done = false;
        t.SelectGroup(QStringLiteral("alt.binaries.test"));
        while (!done)
            loop.processEvents(QEventLoop::WaitForMoreEvents);
        // warm the format once so both measured runs do the same work
        done = false;
        t.FetchHeaders(1, 1);
        while (!done)
            loop.processEvents(QEventLoop::WaitForMoreEvents);
        QList<NewsTransportArticle> kept;
        QElapsedTimer clock;
        clock.start();
        const double cpu0 = threadCpu();
        done = false;
        *count = 0;
        t.FetchHeaders(1, rows);
        while (!done) {
            loop.processEvents(QEventLoop::WaitForMoreEvents);
            QList<NewsTransportArticle> batch = t.SelectedGroup().TakeArticles();
            *count += batch.size();
            if (keep)
                kept.append(std::move(batch));
        }
        *count += t.SelectedGroup().Count();
        const double secs = clock.nsecsElapsed() / 1e9;
        std::printf("transport client thread CPU: %.3f s\n", threadCpu() - cpu0);
        if (keep) {
            const qint64 rssKb = procStatusKb("VmRSS:");
            std::printf("rows kept:       RSS %lld MiB for %lld MiB of overview\n", (long long)(rssKb / 1024),
                        (long long)(overviewBytes >> 20));
            kept.append(t.SelectedGroup().TakeArticles());
            if (kept.size() != rows)
                std::printf("WARNING: kept %lld rows\n", (long long)kept.size());
        }
        if (error)
            std::printf("WARNING: transport reported an error\n");
        return secs;
    };
    qint64 count = 0;
    const qint64 rssBeforeKb = procStatusKb("VmRSS:");
    const double drained = runTransport(false, &count);
    std::printf("transport:       %lld rows in %.3f s (drained while streaming)\n", (long long)count, drained);
    const qint64 rssBaseKb = procStatusKb("VmRSS:");
    plainSeconds = qMin(plainSeconds, plainRead());
    if (argc > 2 && QByteArray(argv[2]) == "drained") {  // for profiling the parse alone
        std::printf("ratio transport/plain read: %.2f (drained)\n", drained / plainSeconds);
        QMetaObject::invokeMethod(server, [server] { delete server; }, Qt::BlockingQueuedConnection);
        serverThread.quit();
        serverThread.wait();
        return 0;
    }
    const double keptSecs = runTransport(true, &count);
    std::printf("transport, kept: %lld rows in %.3f s\n", (long long)count, keptSecs);
    const qint64 peakKb = procStatusKb("VmHWM:");
    std::printf("ratio transport/plain read: %.2f (drained), %.2f (kept)\n", drained / plainSeconds,
                keptSecs / plainSeconds);
    std::printf("overview bytes: %lld; RSS before: %lld KiB, after drained run: %lld KiB, peak: %lld KiB\n",
                (long long)overviewBytes, (long long)rssBeforeKb, (long long)rssBaseKb, (long long)peakKb);

    QMetaObject::invokeMethod(server, [server] { delete server; }, Qt::BlockingQueuedConnection);
    serverThread.quit();
    serverThread.wait();
    return 0;
}
