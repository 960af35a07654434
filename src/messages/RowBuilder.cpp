#include "messages/RowBuilder.h"
#include "ui/BlockFile.h"

#include "messages/HeaderRows.h"

#include <chrono>
#include <cstring>

RowBuilder::RowBuilder(qint64 maxRows, const QString &cachePath)
    : m_maxRows(maxRows), m_cachePath(cachePath)
{
    m_thread = std::thread([this] { run(); });
}

RowBuilder::~RowBuilder()
{
    {
        std::lock_guard<std::mutex> g(m_mx);
        m_quit = true;
    }
    m_cv.notify_all();
    m_thread.join();
}

void RowBuilder::feed(QByteArray records, const OverviewFormat &fmt)
{
    if (records.isEmpty())
        return;
    {
        std::lock_guard<std::mutex> g(m_mx);
        m_pending += records.size();
        m_queue.push_back(Batch{std::move(records), fmt});
    }
    m_cv.notify_all();
}

QVector<QByteArray> RowBuilder::takeRows()
{
    std::lock_guard<std::mutex> g(m_mx);
    QVector<QByteArray> out = std::move(m_ready);
    m_ready = QVector<QByteArray>();
    return out;
}

void RowBuilder::finish(bool keepCache)
{
    {
        std::lock_guard<std::mutex> g(m_mx);
        m_finish = true;
        m_keepCache = keepCache;
    }
    m_cv.notify_all();
}

bool RowBuilder::done() const
{
    std::lock_guard<std::mutex> g(m_mx);
    return m_done;
}

std::vector<MessageGrid::SortKey> RowBuilder::takeOrder()
{
    std::lock_guard<std::mutex> g(m_mx);
    return std::move(m_order);
}

bool RowBuilder::cacheWritten() const
{
    std::lock_guard<std::mutex> g(m_mx);
    return m_cacheWritten;
}

qint64 RowBuilder::pendingBytes() const
{
    std::lock_guard<std::mutex> g(m_mx);
    return m_pending;
}

void RowBuilder::waitBelow(qint64 bytes, int ms)
{
    std::unique_lock<std::mutex> g(m_mx);
    m_progress.wait_for(g, std::chrono::milliseconds(ms), [&] { return m_pending <= bytes || m_done; });
}

qint64 RowBuilder::rowsBuilt() const
{
    std::lock_guard<std::mutex> g(m_mx);
    return m_built;
}

void RowBuilder::run()
{
    BlockFile cache(m_cachePath, 4 << 20);
    QVector<QByteArray> all;   // every row built, for the final order (shares the rows' bytes)
    std::vector<MessageGrid::SortKey> keys;
    OverviewFormat lastFmt;
    QList<qint8> columns;
    bool haveColumns = false;
    qint64 built = 0;

    for (;;) {
        std::vector<Batch> work;
        bool finishing = false, keep = false;
        {
            std::unique_lock<std::mutex> g(m_mx);
            m_cv.wait(g, [&] { return m_quit || m_finish || !m_queue.empty(); });
            if (m_quit)
                break;
            work.swap(m_queue);
            finishing = m_finish && work.empty();
            keep = m_keepCache;
        }
        for (Batch &b : work) {
            if (!haveColumns || b.fmt.names != lastFmt.names || b.fmt.full != lastFmt.full || b.fmt.hasPath != lastFmt.hasPath) {
                lastFmt = b.fmt;
                columns = listing::overviewColumns(lastFmt);
                haveColumns = true;
            }
            QVector<QByteArray> rows;
            const char *p = b.records.constData();
            const char *end = p + b.records.size();
            while (p + 8 <= end && built < m_maxRows) {
                quint32 sizes[2];
                std::memcpy(sizes, p, sizeof sizes);
                const char *line = p + 8;
                const char *path = line + sizes[0];
                p = path + sizes[1];
                if (p > end)
                    break;
                QByteArray row;
                if (!listing::overviewToRow(line, sizes[0], lastFmt, columns, sizes[1] ? path : nullptr, sizes[1], row))
                    continue;
                // the cache line: the eight cells, each followed by 0x7F (the empty mark ends the row)
                cache.append(row);
                cache.endLine();
                keys.push_back(MessageGrid::sortKey(row, 6, 7, Qt::CaseInsensitive, quint32(all.size())));
                all.append(row);
                rows.append(std::move(row));
                ++built;
            }
            const qint64 consumed = b.records.size();
            b.records = QByteArray();
            {
                std::lock_guard<std::mutex> g(m_mx);
                m_ready.append(std::move(rows));
                m_built = built;
                m_pending -= consumed;
            }
            m_progress.notify_all();
        }
        if (!work.empty() && m_wake)
            m_wake();
        if (!finishing)
            continue;
        // the end: the cache file and the order
        bool written = false;
        if (keep) {
            cache.append(QByteArray(8, MessageGrid::Sep));   // the grid's empty last row
            cache.endLine();
            written = cache.commit();
        } else {
            cache.cancel();
        }
        MessageGrid::sortKeys(keys, all, 6, false, 7, Qt::CaseInsensitive);
        all.clear();
        {
            std::lock_guard<std::mutex> g(m_mx);
            m_order = std::move(keys);
            m_cacheWritten = written;
            m_done = true;
        }
        m_progress.notify_all();
        if (m_wake)
            m_wake();
        std::unique_lock<std::mutex> g(m_mx);
        m_cv.wait(g, [&] { return m_quit; });
        break;
    }
    if (!m_done)
        cache.cancel();
}
