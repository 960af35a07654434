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
        sorted.reserve(all.size() + 1);   // and the grid's empty last row
        adviseHugePages(sorted.constData(), all.size() * qsizetype(sizeof(QByteArray)));
        for (const quint32 i : idx)
            sorted.append(all[i]);
        all = QVector<QByteArray>();
        {
            std::lock_guard<std::mutex> g(m_mx);
            m_sorted = std::move(sorted);
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

namespace {

constexpr quint64 Top = (quint64(1) << 48) - 1;   // above every yyyymmddhhmmss

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

using Item = ListingOrder::Item;

// Stable LSD radix sort of n items by key, 12 bits a pass, over the bits in which the keys
// differ (the keys are made relative to the smallest first); passes in which every key has the
// same digit are skipped. The result is in items or in tmp: the one returned.
Item *radixSort(Item *items, Item *tmp, size_t n)
{
    quint64 lo = items[0].key, hi = items[0].key;
    for (size_t i = 1; i < n; ++i) {
        lo = std::min(lo, items[i].key);
        hi = std::max(hi, items[i].key);
    }
    for (size_t i = 0; i < n; ++i)
        items[i].key -= lo;
    int bits = 0;
    while (bits < 64 && ((hi - lo) >> bits) != 0)
        ++bits;
    constexpr int Bits = 12, Buckets = 1 << Bits;
    std::vector<quint32> count(Buckets);
    for (int shift = 0; shift < bits; shift += Bits) {
        std::fill(count.begin(), count.end(), 0);
        for (size_t i = 0; i < n; ++i)
            ++count[(items[i].key >> shift) & (Buckets - 1)];
        if (count[(items[0].key >> shift) & (Buckets - 1)] == n)
            continue;
        quint32 sum = 0;
        for (quint32 &c : count) {
            const quint32 k = c;
            c = sum;
            sum += k;
        }
        for (size_t i = 0; i < n; ++i)
            tmp[count[(items[i].key >> shift) & (Buckets - 1)]++] = items[i];
        std::swap(items, tmp);
    }
    return items;
}

} // namespace

void ListingOrder::reserve(qsizetype n)
{
    if (!m_allDates || n * qsizetype(sizeof(Item)) <= m_items.size())
        return;
    ScratchBuffer bigger(n * qsizetype(sizeof(Item)));
    if (m_count > 0)
        std::memcpy(bigger.as<Item>(), m_items.as<Item>(), size_t(m_count) * sizeof(Item));
    m_items.swap(bigger);
}

void ListingOrder::add(QByteArrayView sortCell, QByteArrayView refCell)
{
    if (!m_allDates) {
        ++m_count;
        return;
    }
    quint64 n = 0;
    if (!dateNumber(sortCell, n)) {
        m_allDates = false;   // the general sort decides; the items are not needed
        ScratchBuffer().swap(m_items);
        ++m_count;
        return;
    }
    if ((m_count + 1) * qsizetype(sizeof(Item)) > m_items.size())
        reserve(qMax<qsizetype>(m_count * 2, 1 << 16));
    quint64 k = 0;
    const quint16 len = MessageGrid::cellKey(refCell, Qt::CaseInsensitive, k);
    m_items.as<Item>()[m_count] = Item{Top - n, k, quint32(m_count), len};
    ++m_count;
}

std::vector<quint32> ListingOrder::order(const QVector<QByteArray> &rows)
{
    const size_t n = size_t(rows.size());
    std::vector<quint32> out(n);
    if (n == 0)
        return out;
    if (!m_allDates || size_t(m_count) != n) {
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
    ScratchBuffer spare(qsizetype(n * sizeof(Item)));
    Item *items = radixSort(m_items.as<Item>(), spare.as<Item>(), n);
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
            std::stable_sort(items + i, items + j, refGreater);
        i = j;
    }
    for (size_t i = 0; i < n; ++i)
        out[i] = items[i].idx;
    ScratchBuffer().swap(m_items);
    m_count = 0;
    m_allDates = true;
    return out;
}

} // namespace listing
