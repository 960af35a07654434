#include "messages/MessageCache.h"

#include "app/Paths.h"
#include "messages/MessageGrid.h"

#include "messages/RowArena.h"

#include <QFile>
#include <QSaveFile>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <list>
#include <unistd.h>

namespace listing {

QString messageCacheFile(const QString &serverTag, const QString &group)
{
    return nd::appFile(serverTag + QLatin1Char('-') + serverTag + QLatin1Char('-') + group.trimmed() + QStringLiteral(".tmp"));
}

namespace {

// The writes not yet waited for.
struct Running {
    std::mutex mx;
    std::list<std::shared_ptr<CacheWriter>> writers;
    ~Running()
    {
        // at exit: every file is finished (or dropped) before the program ends
        for (auto &w : writers)
            w->wait();
    }
};

Running &running()
{
    static Running r;
    return r;
}

} // namespace

CacheWriter::CacheWriter(const QString &path, std::shared_ptr<const RowArena> arena)
    : m_path(path), m_arena(std::move(arena))
{
}

std::shared_ptr<CacheWriter> CacheWriter::start(const QString &path, std::shared_ptr<const RowArena> arena)
{
    // an earlier write of the same file ends first, so the newer one replaces it
    waitForCacheWrites(path);
    std::shared_ptr<CacheWriter> w(new CacheWriter(path, std::move(arena)));
    w->m_thread = std::thread([p = w.get()] { p->run(); });
    Running &r = running();
    std::list<std::shared_ptr<CacheWriter>> ended;   // joined outside the lock
    std::lock_guard<std::mutex> g(r.mx);
    for (auto it = r.writers.begin(); it != r.writers.end();) {
        if ((*it)->done())
            ended.splice(ended.end(), r.writers, it++);
        else
            ++it;
    }
    r.writers.push_back(w);
    return w;
}

CacheWriter::~CacheWriter()
{
    finish(false);
    if (m_thread.joinable())
        m_thread.join();
}

void CacheWriter::add(const char *data, qsizetype size)
{
    if (size <= 0)
        return;
    {
        std::lock_guard<std::mutex> g(m_mx);
        m_pieces.emplace_back(data, size);
    }
    m_cv.notify_all();
}

void CacheWriter::finish(bool keep)
{
    {
        std::lock_guard<std::mutex> g(m_mx);
        if (m_finish)
            return;
        m_finish = true;
        m_keep = keep;
    }
    m_cv.notify_all();
}

bool CacheWriter::done()
{
    std::lock_guard<std::mutex> g(m_mx);
    return m_done;
}

bool CacheWriter::wait()
{
    std::unique_lock<std::mutex> g(m_mx);
    m_cv.wait(g, [&] { return m_done; });
    return m_written;
}

void CacheWriter::run()
{
    QSaveFile file(m_path);
    bool ok = file.open(QIODevice::WriteOnly);
    for (;;) {
        std::vector<std::pair<const char *, qsizetype>> pieces;
        bool finishing = false, keep = false;
        {
            std::unique_lock<std::mutex> g(m_mx);
            m_cv.wait(g, [&] { return m_finish || !m_pieces.empty(); });
            pieces.swap(m_pieces);
            finishing = m_finish;
            keep = m_keep;
        }
        // once it is known that the file is dropped, nothing more is written
        if (!(finishing && !keep))
            for (const auto &p : pieces)
                if (ok)
                    ok = file.write(p.first, p.second) == p.second;
        if (!finishing)
            continue;
        const bool written = keep && ok && file.commit();
        if (!written)
            file.cancelWriting();
        std::lock_guard<std::mutex> g(m_mx);
        m_written = written;
        m_done = true;
        m_arena.reset();
        m_cv.notify_all();
        return;
    }
}

void waitForCacheWrites(const QString &path)
{
    Running &r = running();
    std::list<std::shared_ptr<CacheWriter>> waitFor;
    {
        std::lock_guard<std::mutex> g(r.mx);
        for (auto it = r.writers.begin(); it != r.writers.end();) {
            if (path.isEmpty() || (*it)->path() == path) {
                waitFor.push_back(std::move(*it));
                it = r.writers.erase(it);
            } else {
                ++it;
            }
        }
    }
    for (auto &w : waitFor)
        w->wait();
}

QByteArray cacheLineToRow(const QByteArray &line)
{
    QByteArray row;
    row.reserve(line.size() + 1);
    int cells = 0;
    qsizetype start = 0;
    while (cells < 8 && start <= line.size()) {
        qsizetype end = line.indexOf(MessageGrid::Sep, start);
        if (end < 0)
            end = line.size();
        if (cells)
            row += MessageGrid::Sep;
        row.append(line.constData() + start, end - start);
        ++cells;
        start = end + 1;
        if (end == line.size())
            break;
    }
    for (; cells < 9; ++cells)
        row += MessageGrid::Sep;
    return row;
}

ArenaCacheReader::ArenaCacheReader(const QString &path)
    : m_arena(std::make_shared<RowArena>())
{
    m_fd = ::open(QFile::encodeName(path).constData(), O_RDONLY | O_CLOEXEC);
}

ArenaCacheReader::~ArenaCacheReader()
{
    if (m_fd >= 0)
        ::close(m_fd);
}

void ArenaCacheReader::line(const char *p, qsizetype n, QVector<QByteArray> &rows)
{
    if (n > 0 && p[n - 1] == '\r')
        --n;
    // empty lines and lines that begin with 0x7F hold no message
    if (n <= 0 || p[0] == MessageGrid::Sep)
        return;
    int seps = 0;
    for (const char *q = p, *end = p + n; seps <= 8;) {
        q = static_cast<const char *>(std::memchr(q, MessageGrid::Sep, size_t(end - q)));
        if (!q)
            break;
        ++seps;
        ++q;
    }
    if (seps == 8 && p[n - 1] == MessageGrid::Sep) {
        rows.append(QByteArray::fromRawData(p, n));   // the row's own form: in place
        return;
    }
    const QByteArray row = cacheLineToRow(QByteArray(p, n));
    char *d = m_arena->alloc(row.size());
    std::memcpy(d, row.constData(), size_t(row.size()));
    rows.append(QByteArray::fromRawData(d, row.size()));
}

void ArenaCacheReader::next(QVector<QByteArray> &rows, qint64 blockBytes)
{
    if (atEnd())
        return;
    // the unfinished line goes in front of the next block, so that every line is whole in one place
    char *d = m_arena->alloc(m_carrySize + blockBytes);
    if (m_carrySize > 0)
        std::memcpy(d, m_carry, size_t(m_carrySize));
    qsizetype have = m_carrySize;
    while (have < m_carrySize + blockBytes) {
        const ssize_t got = ::read(m_fd, d + have, size_t(m_carrySize + blockBytes - have));
        if (got < 0 && errno == EINTR)
            continue;
        if (got <= 0) {
            m_eof = true;
            break;
        }
        have += got;
    }
    m_arena->unuse(m_carrySize + blockBytes - have);
    const char *p = d, *end = d + have;
    for (;;) {
        const char *nl = static_cast<const char *>(std::memchr(p, '\n', size_t(end - p)));
        if (!nl)
            break;
        line(p, nl - p, rows);
        p = nl + 1;
    }
    m_carry = p;
    m_carrySize = end - p;
    if (m_eof && m_carrySize > 0) {   // a last line without its end counts too
        line(m_carry, m_carrySize, rows);
        m_carrySize = 0;
    }
}

} // namespace listing
