// Listing at scale, against a scripted loopback server that runs in its own threads and
// writes answers built once in memory, in 1 MiB blocks, straight from that memory.
//
//  (a) MessageList::ListMessages (NewMsgs 0) on an offscreen main window: from the request
//      to a filled, sorted grid (the cache file is finished behind it: how long after is shown),
//      against
//  (b) a plain reader receiving the same OVER answer over the same loopback (blocking recv
//      into one buffer; a QTcpSocket reader is shown too), same run, alternating rounds;
//  (c) the peak memory of the listing (VmHWM growth) against the size of the overview text;
//  (d) a LIST ACTIVE of many groups through GroupList::LoadGroupList (FillGroupList into
//      lstGroups, cache written), against a plain read of that answer;
//  (e) how long Stop takes to end a running listing and a running group-list load.
//
// Usage: bench_listing [rows [groups [rounds]]]    (defaults 1000000, 100000, 3)
// Run through bench/listing/run.sh (offscreen, private settings and application directory).
// For profiling: BENCH_LISTING_ONLY=1 stops after (a)-(c); BENCH_PARSE=1 times the row building
// alone on one thread (BENCH_PASSES passes; BENCH_DATES=1 also the date parser by itself).
#include "gui/app/frmMain.h"
#include "groups/GroupList.h"
#include "messages/HeaderRows.h"
#include "messages/MessageCache.h"
#include "messages/MessageGrid.h"
#include "messages/MessageList.h"
#include "messages/OverviewRows.h"
#include "messages/RowBuilder.h"
#include "messages/RowArena.h"
#include "news/Session.h"
#include "news/transport/NewsTransport.h"
#include "ui/ItemList.h"
#include "ui/Prompter.h"
#include "support/ProcStats.h"

#include <QApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QTcpSocket>
#include <QTimer>

#include <algorithm>
#include <arpa/inet.h>
#include <ctime>
#include <atomic>
#include <cstdio>
#include <cstring>
#include <mutex>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace {

using bench::processCpu;
using bench::procStatusKb;
using bench::resetPeak;

const char *const Group = "alt.binaries.newsdredge.bench";

// One overview row as a busy binaries group shows it: multi-part posts, dates a few seconds
// apart and out of order, some replies, Xref and Path as full fields.
QByteArray overviewRow(qint64 n)
{
    static const char *days[] = {"Mon", "Tue", "Wed", "Thu", "Fri", "Sat", "Sun"};
    static const char *months[] = {"Jan", "Feb", "Mar", "Apr", "May", "Jun", "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
    const qint64 post = n / 7;
    const int part = int(n % 7) + 1;
    // scattered over about three years, so the sort has real work
    const qint64 t = (post * 7919) % (3 * 365 * 86400LL);
    const int day = int(t / 86400 % 28) + 1, month = int(t / (28 * 86400) % 12), year = 2023 + int(t / (336 * 86400LL) % 3);
    char date[64];
    std::snprintf(date, sizeof date, "%s, %d %s %d %02d:%02d:%02d %s", days[(day + month) % 7], day, months[month], year,
                  int(t / 3600 % 24), int(t / 60 % 60), int(t % 60), (n % 3) ? "-0500" : "+0000 (UTC)");
    const QByteArray num = QByteArray::number(n), p = QByteArray::number(post);
    QByteArray r;
    r.reserve(320);
    r += num + "\tHoliday pictures " + p + " - \"holiday." + p + ".part" + QByteArray::number(part) +
         ".rar\" yEnc (" + QByteArray::number(part) + "/7)\tPoster " + QByteArray::number(post % 97) +
         " <poster" + QByteArray::number(post % 97) + "@example.com>\t" + date + "\t<part" + QByteArray::number(part) + "of7." + p +
         "@bench.example.com>\t" + ((n % 50) == 0 ? "<parent" + p + "@bench.example.com>" : QByteArray()) + "\t" +
         QByteArray::number(390000 + n % 9000) + "\t" + QByteArray::number(3000 + n % 90) +
         "\tXref: news.example.com " + Group + ":" + num + "\tPath: news.example.com!feeder.example.net!not-for-mail\r\n";
    return r;
}

struct Answers {
    qint64 rows = 0;
    QByteArray over;                 // rows 1..rows, without the terminating line
    std::vector<qsizetype> offsets;  // offset of row n at n - 1, and the end
    QByteArray active;               // LIST ACTIVE body
    qint64 groups = 0;
};

bool sendAll(int fd, const char *p, qsizetype n)
{
    while (n > 0) {
        const ssize_t w = ::send(fd, p, size_t(qMin<qsizetype>(n, 1 << 20)), MSG_NOSIGNAL);
        if (w <= 0)
            return false;
        p += w;
        n -= w;
    }
    return true;
}

// The server: one thread per connection, blocking sockets, answers sent from the prebuilt
// buffers without copying them.
class Server {
public:
    explicit Server(const Answers &a) : m_a(a)
    {
        m_fd = ::socket(AF_INET, SOCK_STREAM, 0);
        int one = 1;
        ::setsockopt(m_fd, SOL_SOCKET, SO_REUSEADDR, &one, sizeof one);
        sockaddr_in sa{};
        sa.sin_family = AF_INET;
        sa.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        ::bind(m_fd, reinterpret_cast<sockaddr *>(&sa), sizeof sa);
        ::listen(m_fd, 16);
        socklen_t len = sizeof sa;
        ::getsockname(m_fd, reinterpret_cast<sockaddr *>(&sa), &len);
        m_port = ntohs(sa.sin_port);
        m_accept = std::thread([this] { acceptLoop(); });
    }
    ~Server()
    {
        m_stop = true;
        ::shutdown(m_fd, SHUT_RDWR);
        ::close(m_fd);
        m_accept.join();
        std::lock_guard<std::mutex> g(m_mx);
        for (int c : m_clients)
            ::shutdown(c, SHUT_RDWR);
        for (std::thread &t : m_threads)
            t.join();
    }
    quint16 port() const { return m_port; }
    // Set when the last byte of the last OVER / LIST answer has been handed to the kernel.
    std::atomic<bool> overSent{false}, listSent{false};

private:
    void acceptLoop()
    {
        while (!m_stop) {
            const int c = ::accept(m_fd, nullptr, nullptr);
            if (c < 0)
                return;
            std::lock_guard<std::mutex> g(m_mx);
            m_clients.push_back(c);
            m_threads.emplace_back([this, c] { serve(c); });
        }
    }
    void serve(int fd)
    {
        QByteArray in;
        char buf[4096];
        bool ok = sendAll(fd, "200 bench server ready\r\n", 24);
        while (ok) {
            const qsizetype nl = in.indexOf('\n');
            if (nl < 0) {
                const ssize_t r = ::recv(fd, buf, sizeof buf, 0);
                if (r <= 0)
                    break;
                in.append(buf, r);
                continue;
            }
            const QByteArray l = in.left(nl).trimmed();
            in.remove(0, nl + 1);
            ok = answer(fd, l);
        }
        ::close(fd);
    }
    bool answer(int fd, const QByteArray &l)
    {
        auto say = [fd](const QByteArray &s) { return sendAll(fd, s.constData(), s.size()); };
        const QByteArray verb = l.split(' ').value(0).toUpper();
        if (verb == "MODE")
            return say("200 reader\r\n");
        if (verb == "GROUP")
            return say("211 " + QByteArray::number(m_a.rows) + " 1 " + QByteArray::number(m_a.rows) + " " + Group + "\r\n");
        if (l.toUpper() == "LIST OVERVIEW.FMT")
            return say("215 fmt\r\nSubject:\r\nFrom:\r\nDate:\r\nMessage-ID:\r\nReferences:\r\n:bytes\r\n:lines\r\nXref:full\r\n"
                       "Path:full\r\n.\r\n");
        if (verb == "OVER" || verb == "XOVER") {
            const QList<QByteArray> r = l.mid(verb.size() + 1).split('-');
            const qint64 first = qBound<qint64>(1, r.value(0).toLongLong(), m_a.rows);
            const qint64 last = qBound<qint64>(first, r.size() > 1 ? r.value(1).toLongLong() : first, m_a.rows);
            overSent = false;
            const qsizetype a = m_a.offsets[first - 1], b = m_a.offsets[last];
            const bool ok = say("224 overview follows\r\n") && sendAll(fd, m_a.over.constData() + a, b - a) && say(".\r\n");
            overSent = ok;
            return ok;
        }
        if (l.toUpper() == "LIST ACTIVE" || l.toUpper() == "LIST") {
            listSent = false;
            const bool ok = say("215 list follows\r\n") && sendAll(fd, m_a.active.constData(), m_a.active.size()) && say(".\r\n");
            listSent = ok;
            return ok;
        }
        if (verb == "QUIT") {
            say("205 bye\r\n");
            return false;
        }
        return say("500 what?\r\n");
    }

    const Answers &m_a;
    int m_fd = -1;
    quint16 m_port = 0;
    std::atomic<bool> m_stop{false};
    std::thread m_accept;
    std::mutex m_mx;
    std::vector<int> m_clients;
    std::vector<std::thread> m_threads;
};

// The plain reader: sends the command and receives the answer into one reused buffer with
// blocking recv until the terminating line. Seconds from the send to the last byte.
double plainRecv(quint16 port, const QByteArray &command, qint64 *bytes)
{
    const int fd = ::socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in sa{};
    sa.sin_family = AF_INET;
    sa.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    sa.sin_port = htons(port);
    if (::connect(fd, reinterpret_cast<sockaddr *>(&sa), sizeof sa) != 0)
        return -1;
    static std::vector<char> buf(1 << 20);
    ::recv(fd, buf.data(), buf.size(), 0);  // greeting
    QElapsedTimer clock;
    clock.start();
    sendAll(fd, command.constData(), command.size());
    char tail[5] = {0, 0, 0, 0, 0};
    qint64 got = 0;
    for (;;) {
        const ssize_t r = ::recv(fd, buf.data(), buf.size(), 0);
        if (r <= 0)
            break;
        got += r;
        if (r >= 5) {
            std::memcpy(tail, buf.data() + r - 5, 5);
        } else {
            std::memmove(tail, tail + r, size_t(5 - r));
            std::memcpy(tail + 5 - r, buf.data(), size_t(r));
        }
        if (std::memcmp(tail, "\r\n.\r\n", 5) == 0)
            break;
    }
    const double secs = clock.nsecsElapsed() / 1e9;
    ::close(fd);
    *bytes = got;
    return secs;
}

// The same with a QTcpSocket in the event loop, as a Qt program reads.
double plainQt(quint16 port, const QByteArray &command)
{
    QTcpSocket s;
    s.connectToHost(QHostAddress::LocalHost, port);
    if (!s.waitForConnected(5000) || !s.waitForReadyRead(5000))
        return -1;
    s.readAll();
    QElapsedTimer clock;
    clock.start();
    bool finished = false;
    QByteArray tail;
    QObject::connect(&s, &QTcpSocket::readyRead, &s, [&] {
        const QByteArray d = s.readAll();
        tail = (tail + d).right(5);
        finished = tail == "\r\n.\r\n";
    });
    s.write(command);
    while (!finished)
        QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents);
    return clock.nsecsElapsed() / 1e9;
}

double median(std::vector<double> v)
{
    std::sort(v.begin(), v.end());
    return v.empty() ? 0 : v[v.size() / 2];
}

}  // namespace

int main(int argc, char **argv)
{
    qputenv("QT_QPA_PLATFORM", "offscreen");
    QApplication app(argc, argv);
    const qint64 rows = argc > 1 ? QByteArray(argv[1]).toLongLong() : 1000000;
    const qint64 groups = argc > 2 ? QByteArray(argv[2]).toLongLong() : 100000;
    const int rounds = argc > 3 ? QByteArray(argv[3]).toInt() : 3;

    Answers a;
    a.rows = rows;
    a.groups = groups;
    a.offsets.reserve(size_t(rows) + 1);
    for (qint64 n = 1; n <= rows; ++n) {
        a.offsets.push_back(a.over.size());
        a.over += overviewRow(n);
    }
    a.offsets.push_back(a.over.size());
    for (qint64 g = 0; g < groups; ++g) {
        const qint64 first = (g * 37) % 1000 + 1, last = first + (g * 7919) % 200000;
        a.active += (g % 4 ? "alt.binaries.bench.g" : "comp.bench.g") + QByteArray::number(g) + ' ' +
                    QByteArray::number(last) + ' ' + QByteArray::number(first) + " y\r\n";
    }
    const qint64 overviewBytes = a.over.size();
    if (qEnvironmentVariableIsSet("BENCH_PARSE")) {   // the row building alone, one thread, a few passes
        const OverviewFormat fmt = OverviewFormat::fromLines({"Subject:", "From:", "Date:", "Message-ID:", "References:",
                                                              ":bytes", ":lines", "Xref:full", "Path:full"});
        // the answer in blocks of whole lines, as the transport hands it over
        std::vector<QByteArray> blocks;
        for (qsizetype at = 0; at < a.over.size();) {
            qsizetype end = std::min<qsizetype>(at + (1 << 20), a.over.size());
            if (end < a.over.size())
                end = a.over.lastIndexOf('\n', end - 1) + 1;
            blocks.push_back(a.over.mid(at, end - at));
            at = end;
        }
        if (qEnvironmentVariableIsSet("BENCH_DATES")) {
            std::vector<std::pair<const char *, qsizetype>> dates;
            for (qint64 n = 0; n < rows; ++n) {
                const char *l = a.over.constData() + a.offsets[n];
                const char *t = l;
                for (int k = 0; k < 3; ++k)
                    t = static_cast<const char *>(std::memchr(t, '\t', 400)) + 1;
                const char *te = static_cast<const char *>(std::memchr(t, '\t', 400));
                dates.emplace_back(t, te - t);
            }
            for (int pass = 0; pass < 5; ++pass) {
                QElapsedTimer clock;
                clock.start();
                quint64 sum = 0;
                char d[10], so[19];
                for (size_t i = 0; i < dates.size(); ++i) {
                    const auto &x = dates[i % 1000];   // a set that stays in the cache, as a line being built does
                    quint64 k = 0;
                    sum += listing::OverviewRows::quickDate(x.first, x.second, 400, d, so, k) ? k : 1;
                }
                std::printf("dates: %.1f ns each (%llu)\n", clock.nsecsElapsed() / double(dates.size()), (unsigned long long)sum);
            }
        }
        const int passes = qEnvironmentVariableIsSet("BENCH_PASSES") ? qEnvironmentVariableIntValue("BENCH_PASSES") : 4;
        for (int pass = 0; pass < passes; ++pass) {
            QElapsedTimer clock;
            clock.start();
            const double c0 = processCpu();
            RowArena arena;
            listing::OverviewRows maker(fmt);
            listing::ListingOrder order;
            order.reserve(rows);
            qint64 built = 0;
            for (const QByteArray &b : blocks)
                built += maker.build(b.constData(), b.size(), nullptr, arena, order);
            const double t1 = clock.nsecsElapsed() / 1e9, c1 = processCpu();
            const QVector<QByteArray> sorted = order.takeSorted(1);
            const double t2 = clock.nsecsElapsed() / 1e9;
            std::printf("pass %d: %lld rows built in %.3f s (%.0f ns a row, cpu %.3f s), ordered in %.3f s\n", pass + 1,
                        (long long)built, t1, t1 * 1e9 / double(built), c1 - c0, t2 - t1);
        }
        return 0;
    }
    Server server(a);
    const quint16 port = server.port();
    std::printf("server on 127.0.0.1:%u: %lld overview rows (%.1f MiB), %lld groups (%.1f MiB)\n", unsigned(port),
                (long long)rows, overviewBytes / 1048576.0, (long long)groups, a.active.size() / 1048576.0);

    ScriptedPrompter prompter;
    frmMain w(&prompter, frmMain::Options{true});
    w.opt.NNTPServer = QStringLiteral("127.0.0.1:%1").arg(port);
    w.opt.NewMsgs = 0;
    w.opt.Timeout = 120;
    w.opt.BinariesOnly = 0;
    w.show();
    w.session->NNTP_Connect(false);
    if (!w.IsConnectedIdle(false)) {
        std::fprintf(stderr, "bench_listing: no session\n");
        return 1;
    }
    const QByteArray overCmd = "OVER 1-" + QByteArray::number(rows) + "\r\n";

    // the longest time the event loop went without running a 10 ms timer (a frozen window)
    QElapsedTimer gapClock;
    qint64 lastTick = 0, worstGap = 0;
    QTimer probe;
    probe.setInterval(10);
    QObject::connect(&probe, &QTimer::timeout, [&] {
        const qint64 now = gapClock.elapsed();
        worstGap = std::max(worstGap, now - lastTick);
        lastTick = now;
    });
    auto probeStart = [&] {
        worstGap = 0;
        gapClock.start();
        lastTick = 0;
        probe.start();
    };
    auto probeEnd = [&] {
        probe.stop();
        worstGap = std::max(worstGap, gapClock.elapsed() - lastTick);
        return worstGap;
    };
    double cacheLag = 0;   // how long after the grid the cache file was complete
    auto listing = [&]() -> double {
        w.grid->ResizeGrid();
        w.S.CurrentGroup = QString::fromLatin1(Group);
        listing::waitForCacheWrites();
        QFile::remove(w.messages->cacheFile());   // (removing the last one takes a while: not timed)
        probeStart();
        QElapsedTimer clock;
        clock.start();
        w.messages->ListMessages(false);
        const double secs = clock.nsecsElapsed() / 1e9;
        probeEnd();   // the wait for the cache file below blocks the benchmark, not the program
        listing::waitForCacheWrites();
        cacheLag = clock.nsecsElapsed() / 1e9 - secs;
        if (qEnvironmentVariableIsSet("BENCH_DEBUG"))
            std::fprintf(stderr, "listing returned %lld ms\n", clock.elapsed());
        return secs;
    };
    auto check = [&]() -> bool {
        // every row listed, newest first by the sortable date
        if (w.grid->lastMessageRow() != rows)
            return false;
        QString prev = w.grid->cell(1, 6);
        for (int r = 2; r <= rows; r += 997) {
            const QString c = w.grid->cell(r, 6);
            if (c.compare(prev, Qt::CaseInsensitive) > 0)
                return false;
            prev = c;
        }
        return QFile(w.messages->cacheFile()).size() > overviewBytes / 2;
    };

    // warm-up: one untimed read of the answer each way
    qint64 got = 0;
    plainRecv(port, overCmd, &got);
    std::vector<double> plain, plainQ, list, ratios;
    bool ok = true;
    qint64 peakGrowthKb = -1;
    std::vector<double> cpuPlain, cpuList;
    for (int r = 0; r < rounds; ++r) {
        const double c0 = processCpu();
        const double p1 = plainRecv(port, overCmd, &got);
        cpuPlain.push_back(processCpu() - c0);
        plainQ.push_back(plainQt(port, overCmd.left(overCmd.size())));
        w.grid->ResizeGrid();
        const qint64 rssBefore = procStatusKb("VmRSS:");
        const bool peakReset = resetPeak();
        const double c1 = processCpu();
        const double l = listing();
        cpuList.push_back(processCpu() - c1);
        const qint64 gap = worstGap;
        if (r == 0 && peakReset)
            peakGrowthKb = procStatusKb("VmHWM:") - rssBefore;
        ok = ok && check();
        const double p2 = plainRecv(port, overCmd, &got);
        const double p = std::min(p1, p2);
        plain.push_back(p);
        list.push_back(l);
        ratios.push_back(l / p);
        std::printf("round %d: plain read %.3f s (%lld bytes), listing %.3f s, ratio %.2f; longest event-loop gap %lld ms; "
                    "cache file complete %.3f s after the grid\n",
                    r + 1, p, (long long)got, l, l / p, (long long)gap, cacheLag);
        std::fflush(stdout);
    }
    std::printf("listing of %lld rows: median %.3f s; plain recv median %.3f s; QTcpSocket reader median %.3f s\n",
                (long long)rows, median(list), median(plain), median(plainQ));
    std::printf("RATIO listing / plain read (median of rounds): %.2f (target <= 2.0); against the QTcpSocket reader: %.2f\n",
                median(ratios), median(list) / median(plainQ));
    std::printf("CPU seconds of the process (server included): listing median %.3f, plain read median %.3f, ratio %.2f\n",
                median(cpuList), median(cpuPlain), median(cpuList) / median(cpuPlain));
    if (peakGrowthKb >= 0)
        std::printf("MEMORY peak growth of the listing %.1f MiB for %.1f MiB of overview text: ratio %.2f (target <= 3.0)\n",
                    peakGrowthKb / 1024.0, overviewBytes / 1048576.0, peakGrowthKb * 1024.0 / overviewBytes);
    else
        std::printf("MEMORY: the kernel refused to reset VmHWM; no figure\n");
    if (!ok)
        std::printf("WARNING: the grid or the cache file did not hold what was served\n");

    if (qEnvironmentVariableIsSet("BENCH_LISTING_ONLY"))   // for profiling the listing alone
        return ok ? 0 : 1;
    // The second opening of the group reads the cache file written by the listing
    {
        w.grid->ResizeGrid();
        w.S.CurrentGroup = QString::fromLatin1(Group);
        probeStart();
        QElapsedTimer clock;
        clock.start();
        w.messages->ListMessages(true);
        const double secs = clock.nsecsElapsed() / 1e9;
        const qint64 gap = probeEnd();
        std::printf("CACHE listing: %d rows from the cache file in %.3f s; longest event-loop gap %lld ms\n",
                    w.grid->lastMessageRow(), secs, (long long)gap);
        w.grid->ResizeGrid();
        w.S.CurrentGroup = QString::fromLatin1(Group);
        QElapsedTimer sinceStop;
        QTimer::singleShot(std::max(1, int(secs * 400)), &w, [&] {
            sinceStop.start();
            w.StopOperation();
        });
        w.messages->ListMessages(true);
        std::printf("STOP cache listing: pressed at %d ms, returned %.3f s later with %d rows\n", std::max(1, int(secs * 400)),
                    sinceStop.isValid() ? sinceStop.nsecsElapsed() / 1e9 : -1.0, w.grid->lastMessageRow());
    }

    // Stop during a listing: the Stop command at about a third of a listing's time
    {
        w.grid->ResizeGrid();
        w.S.CurrentGroup = QString::fromLatin1(Group);
        listing::waitForCacheWrites();
        QElapsedTimer clock, sinceStop;
        const int at = std::max(1, int(median(list) * 330));
        QTimer::singleShot(at, &w, [&] {
            sinceStop.start();
            w.StopOperation();
        });
        clock.start();
        w.messages->ListMessages(false);
        const double total = clock.nsecsElapsed() / 1e9;
        std::printf("STOP listing: pressed at %d ms, ListMessages returned %.3f s later with %d rows sorted (total %.3f s)\n",
                    at, sinceStop.isValid() ? sinceStop.nsecsElapsed() / 1e9 : -1.0, w.grid->lastMessageRow(), total);
    }

    // The group list: LIST ACTIVE through LoadGroupList(false), FillGroupList into lstGroups
    {
        const QByteArray listCmd = "LIST ACTIVE\r\n";
        std::vector<double> gl, gp;
        qint64 worstGroupGap = 0;
        for (int r = 0; r < rounds; ++r) {
            gp.push_back(plainRecv(port, listCmd, &got));
            QElapsedTimer clock;
            clock.start();
            probeStart();
            w.S.StopRequested = false;   // as the Refresh Group List command does
            w.groups->LoadGroupList(false);
            const qint64 gap = probeEnd();
            if (qEnvironmentVariableIsSet("BENCH_DEBUG"))
                std::fprintf(stderr, "groups: %s | %s\n", qPrintable(w.status(1)), qPrintable(w.status(2)));
            gl.push_back(clock.nsecsElapsed() / 1e9);
            worstGroupGap = std::max(worstGroupGap, gap);
        }
        std::printf("GROUPS %lld groups: LoadGroupList (fetch, fill, cache) median %.3f s, %d items; plain read %.3f s; "
                    "longest event-loop gap %lld ms\n",
                    (long long)groups, median(gl), w.lstGroups->count(), median(gp), (long long)worstGroupGap);
        QElapsedTimer clock, sinceStop;
        QTimer::singleShot(qMax(1, int(median(gl) * 500)), &w, [&] {
            sinceStop.start();
            w.StopOperation();
        });
        clock.start();
        w.S.StopRequested = false;
        w.groups->LoadGroupList(false);
        std::printf("STOP group list: pressed at %d ms, LoadGroupList returned %.3f s later with %d items\n",
                    qMax(1, int(median(gl) * 500)), sinceStop.isValid() ? sinceStop.nsecsElapsed() / 1e9 : -1.0,
                    w.lstGroups->count());
    }
    w.session->NNTP_Disconnect();
    return ok ? 0 : 1;
}
