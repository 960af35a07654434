#include "messages/RowBuilder.h"

#include "messages/HeaderRows.h"
#include "messages/MessageCache.h"
#include "messages/RowArena.h"


#include <algorithm>
#include <chrono>
#include <cstring>

RowBuilder::RowBuilder(qint64 maxRows, const QString &cachePath)
    : m_arena(std::make_shared<RowArena>()), m_maxRows(maxRows), m_cachePath(cachePath)
{
    m_writer = listing::CacheWriter::start(cachePath, m_arena);
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

void RowBuilder::feed(QList<QByteArray> blocks, const OverviewFormat &fmt)
{
    bool any = false;
    {
        std::lock_guard<std::mutex> g(m_mx);
        for (QByteArray &b : blocks) {
            if (b.isEmpty())
                continue;
            m_pending += b.size();
            m_queue.push_back(Batch{std::move(b), fmt});
            any = true;
        }
    }
    if (any)
        m_cv.notify_all();
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

QVector<QByteArray> RowBuilder::takeSortedRows()
{
    std::lock_guard<std::mutex> g(m_mx);
    return std::move(m_sorted);
}

QList<QByteArray> RowBuilder::takeSpentBlocks()
{
    std::lock_guard<std::mutex> g(m_mx);
    QList<QByteArray> out = std::move(m_spent);
    m_spent = QList<QByteArray>();
    return out;
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
    qsizetype chunksWritten = 0;
    // the arena's chunks are the cache file's lines: each full chunk goes to the writer
    auto writeChunks = [&](qsizetype upTo) {
        for (; chunksWritten < upTo; ++chunksWritten) {
            const RowArena::Chunk &c = m_arena->chunk(chunksWritten);
            m_writer->add(c.data, c.used);
        }
    };
    // every row built, for the final order (refers to the arena); room for the rows asked for
    const qsizetype expected = qsizetype(qMin<qint64>(m_maxRows, 4 << 20));
    QVector<QByteArray> all;
    all.reserve(expected);
    adviseHugePages(all.constData(), expected * qsizetype(sizeof(QByteArray)));
    listing::ListingOrder order;
    order.reserve(expected);
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
            const char *p = b.records.constData();
            const char *end = p + b.records.size();
            listing::ArenaRow r;
            while (p + 8 <= end && built < m_maxRows) {
                quint32 sizes[2];
                std::memcpy(sizes, p, sizeof sizes);
                const char *line = p + 8;
                const char *path = line + sizes[0];
                p = path + sizes[1];
                if (p > end)
                    break;
                if (!listing::overviewToArena(line, sizes[0], lastFmt, columns, sizes[1] ? path : nullptr, sizes[1], *m_arena, r))
                    continue;
                order.add(r.sortCell, r.refCell);
                all.append(r.row);
                ++built;
            }
            const qint64 consumed = b.records.size();
            writeChunks(m_arena->chunkCount() - 1);
            {
                std::lock_guard<std::mutex> g(m_mx);
                m_built = built;
                m_pending -= consumed;
                if (m_spent.size() < 16)
                    m_spent.append(std::move(b.records));
            }
            m_progress.notify_all();
        }
        if (!work.empty() && m_wake)
            m_wake();
        if (!finishing)
            continue;
        // the end: the cache file and the order
        if (keep) {
            writeChunks(m_arena->chunkCount());
            static const char emptyRow[] = "\x7f\x7f\x7f\x7f\x7f\x7f\x7f\x7f\n";   // the grid's empty last row
            m_writer->add(emptyRow, 9);
        }
        m_writer->finish(keep);
        const std::vector<quint32> idx = order.order(all);
        QVector<QByteArray> sorted;
        sorted.reserve(all.size());
        adviseHugePages(sorted.constData(), all.size() * qsizetype(sizeof(QByteArray)));
        for (const quint32 i : idx)
            sorted.append(all[i]);
        all = QVector<QByteArray>();
        {
            std::lock_guard<std::mutex> g(m_mx);
            m_sorted = std::move(sorted);
            m_cacheWritten = keep;
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
        m_writer->finish(false);
}

// ---------------------------------------------------------------- the listing's order

namespace listing {

template <class T>
static void reserveHuge(std::vector<T> &v, qsizetype n)
{
    if (size_t(n) <= v.capacity())
        return;
    v.reserve(size_t(n));
    adviseHugePages(v.data() + v.size(), qsizetype((v.capacity() - v.size()) * sizeof(T)));
}


namespace {

// "yyyy/mm/dd hh:mm:ss" as the number yyyymmddhhmmss: among texts of this one form the
// numbers order exactly as the texts do. False for any other text.
bool dateNumber(QByteArrayView v, quint64 &n)
{
    if (v.size() != 19)
        return false;
    static const char shape[] = "dddd/dd/dd dd:dd:dd";
    n = 0;
    for (int i = 0; i < 19; ++i) {
        const char c = v[i];
        if (shape[i] == 'd') {
            if (c < '0' || c > '9')
                return false;
            n = n * 10 + quint64(c - '0');
        } else if (c != shape[i]) {
            return false;
        }
    }
    return true;
}

struct Item {
    quint64 key;
    quint64 ref;      // the References' key, for ties
    quint32 idx;
    quint16 refLen;
};

// Stable LSD radix sort by the low 48 bits of key, 12 bits a pass; passes in which every key
// has the same digit are skipped.
void radixSort(std::vector<Item> &items)
{
    std::vector<Item> tmp;
    reserveHuge(tmp, qsizetype(items.size()));
    tmp.resize(items.size());
    constexpr int Bits = 12, Buckets = 1 << Bits;
    std::vector<quint32> count(Buckets);
    for (int shift = 0; shift < 48; shift += Bits) {
        std::fill(count.begin(), count.end(), 0);
        for (const Item &it : items)
            ++count[(it.key >> shift) & (Buckets - 1)];
        if (count[(items.front().key >> shift) & (Buckets - 1)] == items.size())
            continue;
        quint32 sum = 0;
        for (quint32 &c : count) {
            const quint32 n = c;
            c = sum;
            sum += n;
        }
        for (const Item &it : items)
            tmp[count[(it.key >> shift) & (Buckets - 1)]++] = it;
        items.swap(tmp);
    }
}

} // namespace

void ListingOrder::reserve(qsizetype n)
{
    reserveHuge(m_dates, n);
    reserveHuge(m_refKeys, n);
    reserveHuge(m_refLens, n);
}

void ListingOrder::add(QByteArrayView sortCell, QByteArrayView refCell)
{
    if (m_allDates) {
        quint64 n = 0;
        if (dateNumber(sortCell, n)) {
            m_dates.push_back(n);
        } else {
            m_allDates = false;
            m_dates = {};
        }
    }
    quint64 k = 0;
    m_refLens.push_back(MessageGrid::cellKey(refCell, Qt::CaseInsensitive, k));
    m_refKeys.push_back(k);
}

std::vector<quint32> ListingOrder::order(const QVector<QByteArray> &rows)
{
    const size_t n = size_t(rows.size());
    std::vector<quint32> out(n);
    if (n == 0)
        return out;
    if (!m_allDates || m_dates.size() != n || m_refKeys.size() != n) {
        // the general way
        std::vector<MessageGrid::SortKey> keys;
        keys.reserve(n);
        for (size_t i = 0; i < n; ++i)
            keys.push_back(MessageGrid::sortKey(rows[qsizetype(i)], 6, 7, Qt::CaseInsensitive, quint32(i)));
        MessageGrid::sortKeys(keys, rows, 6, false, 7, Qt::CaseInsensitive);
        for (size_t i = 0; i < n; ++i)
            out[i] = keys[i].idx;
        return out;
    }
    // newest first: ascending by the complement, which a stable sort keeps in row order on ties
    constexpr quint64 Top = (quint64(1) << 48) - 1;   // above every yyyymmddhhmmss
    std::vector<Item> items;
    reserveHuge(items, qsizetype(n));
    for (size_t i = 0; i < n; ++i)
        items.push_back(Item{Top - m_dates[i], m_refKeys[i], quint32(i), m_refLens[i]});
    m_dates = {};
    m_refKeys = {};
    m_refLens = {};
    radixSort(items);
    // equal dates: descending by the References, stable
    auto refGreater = [&](const Item &x, const Item &y) {
        if (x.ref != y.ref)
            return x.ref > y.ref;
        if (x.refLen != 0xFFFF && y.refLen != 0xFFFF)
            return x.refLen > y.refLen;
        return MessageGrid::compareCells(MessageGrid::cellView(rows[x.idx], 7), MessageGrid::cellView(rows[y.idx], 7),
                                         Qt::CaseInsensitive) > 0;
    };
    for (size_t i = 0; i < n;) {
        size_t j = i + 1;
        bool differ = false;
        while (j < n && items[j].key == items[i].key) {
            if (items[j].ref != items[i].ref || items[j].refLen != items[i].refLen || items[j].refLen == 0xFFFF)
                differ = true;
            ++j;
        }
        if (differ)
            std::stable_sort(items.begin() + qptrdiff(i), items.begin() + qptrdiff(j), refGreater);
        i = j;
    }
    for (size_t i = 0; i < n; ++i)
        out[i] = items[i].idx;
    return out;
}

} // namespace listing
