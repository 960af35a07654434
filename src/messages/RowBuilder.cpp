#include "messages/RowBuilder.h"

#include "messages/MessageCache.h"
#include "messages/OverviewRows.h"
#include "messages/RowArena.h"


#include <algorithm>
#include <thread>
#include <cstring>

RowBuilder::RowBuilder(qint64 maxRows, const QString &cachePath)
    : m_maxRows(maxRows)
{
    for (Lane &l : m_lanes)
        l.arena = std::make_shared<RowArena>();
    m_lanes[0].order.reserve(qsizetype(qMin<qint64>(m_maxRows, 4 << 20)));   // room for the rows asked for
    m_writer = listing::CacheWriter::start(cachePath, m_lanes[0].arena);
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

void RowBuilder::feed(QList<NewsTransport::OverviewText> blocks, const OverviewFormat &fmt)
{
    bool any = false;
    {
        std::lock_guard<std::mutex> g(m_mx);
        for (NewsTransport::OverviewText &b : blocks) {
            if (b.text.isEmpty())
                continue;
            m_pending += b.text.size();
            m_queue.push_back(Batch{m_nextSeq++, std::move(b), fmt});
            any = true;
        }
        m_blocks.resize(size_t(m_nextSeq));
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

qint64 RowBuilder::rowsBuilt() const
{
    std::lock_guard<std::mutex> g(m_mx);
    return m_built;
}

// Builds one block into a lane (no lock held: each lane has one thread). True when the reading
// thread waits for the text waiting to come below wakeBelow's mark, and now it has.
bool RowBuilder::build(int lane, Batch &b)
{
    Lane &l = m_lanes[lane];
    if (!l.rows || b.fmt.names != l.fmt.names || b.fmt.full != l.fmt.full || b.fmt.hasPath != l.fmt.hasPath) {
        l.fmt = b.fmt;
        l.rows = std::make_unique<listing::OverviewRows>(l.fmt);
    }
    auto position = [&l](qsizetype &chunk, qsizetype &used) {
        chunk = qMax<qsizetype>(0, l.arena->chunkCount() - 1);
        used = l.arena->chunkCount() ? l.arena->chunk(chunk).used : 0;
    };
    Built done;
    done.lane = lane;
    done.itemBegin = l.order.count();
    position(done.chunkBegin, done.usedBegin);
    const qint64 n = l.rows->build(b.text.text.constData(), b.text.text.size(), b.text.paths.get(), *l.arena, l.order);
    done.itemEnd = l.order.count();
    position(done.chunkEnd, done.usedEnd);
    std::lock_guard<std::mutex> g(m_mx);
    m_blocks[size_t(b.seq)] = done;
    m_built += n;
    m_pending -= b.text.text.size();
    if (m_spent.size() < 16)
        m_spent.append(std::move(b.text.text));
    if (m_wakeBelow >= 0 && m_pending < m_wakeBelow) {
        m_wakeBelow = -1;
        return true;
    }
    return false;
}

void RowBuilder::wakeBelow(qint64 bytes)
{
    {
        std::lock_guard<std::mutex> g(m_mx);
        if (m_pending >= bytes) {
            m_wakeBelow = bytes;
            return;
        }
    }
    if (m_wake)
        m_wake();   // already there
}

bool RowBuilder::helpOnce()
{
    Batch b;
    {
        std::lock_guard<std::mutex> g(m_mx);
        // while the answer streams, one waiting block is the builder's next; once it has ended,
        // any block left is worth taking
        if (m_queue.size() < (m_finish ? 1u : 2u) || m_done)
            return false;
        b = std::move(m_queue.back());
        m_queue.pop_back();
        ++m_helping;
    }
    build(1, b);   // (this is the reading thread: it needs no wake)
    {
        std::lock_guard<std::mutex> g(m_mx);
        --m_helping;
    }
    m_cv.notify_all();
    return true;
}

void RowBuilder::writeBlock(const Built &b, const char *end)
{
    const RowArena &a = *m_lanes[b.lane].arena;
    for (qsizetype c = b.chunkBegin; c <= b.chunkEnd && c < a.chunkCount(); ++c) {
        const RowArena::Chunk &k = a.chunk(c);
        const char *from = k.data + (c == b.chunkBegin ? b.usedBegin : 0);
        const char *to = k.data + (c == b.chunkEnd ? b.usedEnd : k.used);
        if (end && end >= from && end <= to) {
            if (end > from)
                m_writer->add(from, end - from);
            return;
        }
        if (to > from)
            m_writer->add(from, to - from);
    }
}

void RowBuilder::run()
{
    for (;;) {
        Batch b;
        bool finishing = false, keep = false;
        {
            std::unique_lock<std::mutex> g(m_mx);
            m_cv.wait(g, [&] { return m_quit || !m_queue.empty() || (m_finish && m_helping == 0); });
            if (m_quit)
                break;
            if (!m_queue.empty()) {
                b = std::move(m_queue.front());
                m_queue.pop_front();
            } else {
                finishing = true;
                keep = m_keepCache;
            }
        }
        if (!finishing) {
            if (build(0, b) && m_wake)
                m_wake();
            continue;
        }
        // the end: the blocks put together in the order they came (at most maxRows rows), their
        // order, then the cache file. The file is written only now, behind the grid: while the
        // answer streams in, the processor is the reader's and the builder's.
        listing::ListingOrder *order = &m_lanes[0].order;
        listing::ListingOrder joined;
        qint64 total = 0;
        bool simple = true;   // every block built by the builder, no row beyond the limit
        for (const Built &k : m_blocks) {
            total += k.itemEnd - k.itemBegin;
            simple = simple && k.lane == 0;
        }
        simple = simple && total <= m_maxRows;
        qint64 left = m_maxRows;
        const Built *lastBlock = nullptr;
        const char *lastEnd = nullptr;   // where the last row kept ends, when a block is cut
        if (!simple) {
            joined.reserve(qsizetype(qMin<qint64>(total, m_maxRows)));
            for (const Built &k : m_blocks) {
                if (k.lane < 0)
                    continue;
                const qsizetype take = qsizetype(qMin<qint64>(left, k.itemEnd - k.itemBegin));
                joined.append(m_lanes[k.lane].order, k.itemBegin, k.itemBegin + take);
                left -= take;
                if (take < k.itemEnd - k.itemBegin) {
                    lastBlock = &k;
                    lastEnd = take > 0 ? m_lanes[k.lane].order.rowEnd(k.itemBegin + take - 1) : nullptr;
                    break;
                }
            }
            order = &joined;
        }
        QVector<QByteArray> sorted = order->takeSorted(1);   // and room for the grid's empty last row
        m_lanes[0].arena->adopt(m_lanes[1].arena);
        {
            std::lock_guard<std::mutex> g(m_mx);
            m_sorted = std::move(sorted);
            m_done = true;
        }
        if (m_wake)
            m_wake();
        if (keep) {
            for (const Built &k : m_blocks) {
                if (k.lane < 0)
                    continue;
                if (&k == lastBlock) {
                    if (lastEnd)
                        writeBlock(k, lastEnd);
                    break;
                }
                writeBlock(k, nullptr);
            }
            static const char emptyRow[] = "\x7f\x7f\x7f\x7f\x7f\x7f\x7f\x7f\n";   // the grid's empty last row
            m_writer->add(emptyRow, 9);
        }
        m_writer->finish(keep);
        m_writerDone = true;
        std::unique_lock<std::mutex> g(m_mx);
        m_cv.wait(g, [&] { return m_quit; });
        break;
    }
    if (!m_writerDone)
        m_writer->finish(false);
}

// ---------------------------------------------------------------- the listing's order

namespace listing {

namespace {

// "yyyy/mm/dd hh:mm:ss" with every field in its range as its number. False for any other text.
bool dateKeyOf(QByteArrayView v, quint64 &key)
{
    if (v.size() != 19)
        return false;
    static const char shape[] = "dddd/dd/dd dd:dd:dd";
    int f[6] = {}, k = 0;
    for (int i = 0; i < 19; ++i) {
        const char c = v[i];
        if (shape[i] == 'd') {
            if (c < '0' || c > '9')
                return false;
            f[k] = f[k] * 10 + (c - '0');
        } else if (c != shape[i]) {
            return false;
        } else {
            ++k;
        }
    }
    if (f[1] > 12 || f[2] > 31 || f[3] > 23 || f[4] > 59 || f[5] > 60)
        return false;
    key = ListingOrder::dateKey(f[0], f[1], f[2], f[3], f[4], f[5]);
    return true;
}

using Item = ListingOrder::Item;

constexpr quint64 kDateTop = (quint64(1) << 48) - 1;   // above every date's number
constexpr size_t kSplitSort = 200000;                  // from here on the order is computed on two threads

// Stable LSD radix sort of n items by key >> 16, up to 14 bits a pass, over the bits in which those
// differ (made relative to the smallest); passes in which every item has the same digit are
// skipped. The result is in items or in tmp: the one returned.
Item *radixSort(Item *items, Item *tmp, size_t n)
{
    quint64 lo = items[0].key >> 16, hi = lo;
    for (size_t i = 1; i < n; ++i) {
        const quint64 k = items[i].key >> 16;
        lo = std::min(lo, k);
        hi = std::max(hi, k);
    }
    int bits = 0;
    while (bits < 64 && ((hi - lo) >> bits) != 0)
        ++bits;
    // as few passes as digits of at most 14 bits allow, the digits as even as can be
    constexpr int maxBits = 14;   // 64 KiB of counts
    const int passes = (bits + maxBits - 1) / maxBits;
    const int Bits = passes ? (bits + passes - 1) / passes : 1;
    const size_t Buckets = size_t(1) << Bits;
    std::vector<quint32> count(Buckets);
    for (int shift = 0; shift < bits; shift += Bits) {
        auto digit = [&](const Item &it) { return size_t((((it.key >> 16) - lo) >> shift) & (Buckets - 1)); };
        std::fill(count.begin(), count.end(), 0);
        for (size_t i = 0; i < n; ++i)
            ++count[digit(items[i])];
        if (count[digit(items[0])] == n)
            continue;
        quint32 sum = 0;
        for (quint32 &c : count) {
            const quint32 k = c;
            c = sum;
            sum += k;
        }
        for (size_t i = 0; i < n; ++i)
            tmp[count[digit(items[i])]++] = items[i];
        std::swap(items, tmp);
    }
    return items;
}

} // namespace

void ListingOrder::reserve(qsizetype n)
{
    if (n * qsizetype(sizeof(Item)) <= m_items.size())
        return;
    ScratchBuffer bigger(n * qsizetype(sizeof(Item)));
    if (m_count > 0)
        std::memcpy(bigger.as<Item>(), m_items.as<Item>(), size_t(m_count) * sizeof(Item));
    m_items.swap(bigger);
}

void ListingOrder::add(const char *row, qsizetype size, QByteArrayView sortCell, QByteArrayView refCell, const quint64 *key)
{
    if ((m_count + 1) * qsizetype(sizeof(Item)) > m_items.size())
        reserve(qMax<qsizetype>(m_count * 2, 1 << 16));
    Item &it = m_items.as<Item>()[m_count++];
    quint64 date = 0;
    if (key) {
        date = *key;
    } else if (m_allDates && !dateKeyOf(sortCell, date)) {
        m_allDates = false;   // the general sort decides
    }
    quint64 ref = 0;
    const quint16 refLen = !m_allDates || refCell.isEmpty() ? 0 : MessageGrid::cellKey(refCell, Qt::CaseInsensitive, ref);
    it.key = ((kDateTop - date) << 16) | refLen;   // newest first: ascending by the complement
    it.ref = ref;
    Q_ASSERT((quintptr(row) >> 48) == 0);
    it.loc = quint64(quintptr(row)) | (quint64(qMin<qsizetype>(size, 0xFFFF)) << 48);
    if (size >= 0xFFFF)
        m_bigRows.insert(row, size);
}

void ListingOrder::append(const ListingOrder &other, qsizetype begin, qsizetype end)
{
    const qsizetype n = end - begin;
    if (n <= 0)
        return;
    if ((m_count + n) * qsizetype(sizeof(Item)) > m_items.size())
        reserve(qMax<qsizetype>(m_count * 2, m_count + n));
    std::memcpy(m_items.as<Item>() + m_count, other.m_items.as<Item>() + begin, size_t(n) * sizeof(Item));
    m_count += n;
    m_allDates = m_allDates && other.m_allDates;
    for (auto it = other.m_bigRows.cbegin(); it != other.m_bigRows.cend(); ++it)
        m_bigRows.insert(it.key(), it.value());
}

const char *ListingOrder::rowEnd(qsizetype i) const
{
    const QByteArray row = rowOf(m_items.as<Item>()[i]);
    return row.constData() + row.size() + 1;
}

QByteArray ListingOrder::rowOf(const Item &it) const
{
    const char *row = reinterpret_cast<const char *>(quintptr(it.loc & ((quint64(1) << 48) - 1)));
    const qsizetype size = qsizetype(it.loc >> 48);
    return QByteArray::fromRawData(row, size == 0xFFFF ? m_bigRows.value(row) : size);
}

QVector<QByteArray> ListingOrder::takeSorted(qsizetype extra)
{
    const size_t n = size_t(m_count);
    QVector<QByteArray> out = MessageGrid::takeRowVector(qsizetype(n) + extra);
    adviseHugePages(out.constData(), qsizetype(n) * qsizetype(sizeof(QByteArray)));
    Item *items = m_items.as<Item>();
    if (n == 0) {
    } else if (!m_allDates) {
        // the general way
        QVector<QByteArray> rows;
        rows.reserve(qsizetype(n));
        for (size_t i = 0; i < n; ++i)
            rows.append(rowOf(items[i]));
        std::vector<MessageGrid::SortKey> keys;
        keys.reserve(n);
        for (size_t i = 0; i < n; ++i)
            keys.push_back(MessageGrid::sortKey(rows[qsizetype(i)], 6, 7, Qt::CaseInsensitive, quint32(i)));
        MessageGrid::sortKeys(keys, rows, 6, false, 7, Qt::CaseInsensitive);
        for (const MessageGrid::SortKey &k : keys)
            out.append(rows[k.idx]);
    } else {
        // equal dates: descending by the References
        auto refGreater = [&](const Item &x, const Item &y) {
            if (x.ref != y.ref)
                return x.ref > y.ref;
            const quint16 lx = quint16(x.key), ly = quint16(y.key);
            if (lx != 0xFFFF && ly != 0xFFFF)
                return lx > ly;
            return MessageGrid::compareCells(MessageGrid::cellView(rowOf(x), 7), MessageGrid::cellView(rowOf(y), 7),
                                             Qt::CaseInsensitive) > 0;
        };
        // a run sorted by date, then its equal dates by the References (both stable)
        auto sortRun = [&](Item *run, Item *tmp, size_t count) {
            Item *sorted = radixSort(run, tmp, count);
            for (size_t i = 0; i < count;) {
                const quint64 date = sorted[i].key >> 16;
                size_t j = i + 1;
                bool differ = false;
                while (j < count && (sorted[j].key >> 16) == date) {
                    if (sorted[j].ref != sorted[i].ref || sorted[j].key != sorted[i].key || quint16(sorted[j].key) == 0xFFFF)
                        differ = true;
                    ++j;
                }
                if (differ)
                    std::stable_sort(sorted + i, sorted + j, refGreater);
                i = j;
            }
            return sorted;
        };
        ScratchBuffer spare(qsizetype(n * sizeof(Item)));
        if (n < kSplitSort) {
            items = sortRun(items, spare.as<Item>(), n);
            for (size_t i = 0; i < n; ++i)
                out.append(rowOf(items[i]));
        } else {
            // Two halves sorted at once on two threads, then merged from both ends at once: the
            // first half's rows go first among equals, as they came first.
            const size_t half = n / 2;
            Item *a = nullptr, *b = nullptr;
            std::thread other([&] { b = sortRun(items + half, spare.as<Item>() + half, n - half); });
            a = sortRun(items, spare.as<Item>(), half);
            other.join();
            auto before = [&](const Item &x, const Item &y) {   // x strictly ahead of y
                if ((x.key >> 16) != (y.key >> 16))
                    return (x.key >> 16) < (y.key >> 16);
                return refGreater(x, y);
            };
            out.resize(qsizetype(n));
            QByteArray *o = out.data();
            const size_t front = half;   // the front merge fills [0, front), the back one the rest
            std::thread back([&] {
                qsizetype i = qsizetype(half) - 1, j = qsizetype(n - half) - 1;
                for (size_t k = n; k-- > front;) {
                    // from the end: b's item unless a's is strictly after it
                    if (j < 0 || (i >= 0 && before(b[j], a[i])))
                        o[k] = rowOf(a[i--]);
                    else
                        o[k] = rowOf(b[j--]);
                }
            });
            size_t i = 0, j = 0;
            for (size_t k = 0; k < front; ++k) {
                // from the start: a's item unless b's is strictly ahead of it
                if (j >= n - half || (i < half && !before(b[j], a[i])))
                    o[k] = rowOf(a[i++]);
                else
                    o[k] = rowOf(b[j++]);
            }
            back.join();
        }
    }
    ScratchBuffer().swap(m_items);
    m_count = 0;
    m_allDates = true;
    m_bigRows.clear();
    return out;
}

} // namespace listing
