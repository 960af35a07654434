#pragma once
#include "messages/MessageGrid.h"
#include "messages/RowArena.h"
#include "news/transport/NewsMessage.h"
#include "news/transport/NewsTransport.h"

#include <QByteArray>
#include <QHash>
#include <QString>
#include <QVector>
#include <condition_variable>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

namespace listing {

class CacheWriter;
class OverviewRows;

// The listing's order (descending by column 6, then by column 7, ignoring case, stable), from what
// is noted of each row as it is built. When every sortable date has the one form
// "yyyy/mm/dd hh:mm:ss" (the usual case), it is a radix sort of the dates as numbers with the
// References breaking ties; otherwise it is the general key sort of the grid.
class ListingOrder {
public:
    // A sortable date as a number that orders as its text does (fields within their ranges).
    static quint64 dateKey(int year, int month, int day, int h, int mi, int s)
    {
        return ((((quint64(year) * 13 + quint64(month)) * 32 + quint64(day)) * 24 + quint64(h)) * 60 + quint64(mi)) * 61 +
               quint64(s);
    }
    // row: a row of size bytes that stays where it is; sortCell and refCell: its columns 6 and 7;
    // key: the number of its sortable date when the builder knows it, else null (it is read from
    // sortCell).
    void add(const char *row, qsizetype size, QByteArrayView sortCell, QByteArrayView refCell, const quint64 *key);
    // The items [begin, end) of another order, as they were added there.
    void append(const ListingOrder &other, qsizetype begin, qsizetype end);
    qsizetype count() const { return m_count; }
    // Where the row of item i ends (after its line end).
    const char *rowEnd(qsizetype i) const;
    void reserve(qsizetype n);
    // The rows added, in the listing's order, with room for extra more; the order starts anew.
    QVector<QByteArray> takeSorted(qsizetype extra);

    struct Item {
        quint64 key;   // the date's number << 16 | the References' length as cellKey gives it
        quint64 ref;   // the References' key, for ties
        quint64 loc;   // the row's address | its size (0xFFFF: look it up) << 48
    };

private:
    QByteArray rowOf(const Item &it) const;

    ScratchBuffer m_items;   // one Item per row
    qsizetype m_count = 0;
    bool m_allDates = true;
    QHash<const char *, qsizetype> m_bigRows;   // sizes of rows of 0xFFFF bytes and more
};

} // namespace listing

// Builds grid rows from the transport's overview text on a thread of its own while the answer is
// still being read: each line becomes one packed row in an arena (followed by a line end, so the
// arena's bytes are the group's cache file), and what the order needs of it is kept, so that
// once the answer has ended only the order is left to compute. The reader may build blocks too
// while it has nothing to read (helpOnce): each block is built whole by one of the two, into an
// arena and an order of its own, and the blocks are put together in the order they came. The
// cache file is written once the rows are handed over.
class RowBuilder {
public:
    // maxRows: rows beyond it are dropped (the requested range bounds a listing).
    RowBuilder(qint64 maxRows, const QString &cachePath);
    ~RowBuilder();   // stops and joins the thread; an unfinished cache file is dropped

    // Any thread except the builder's. Text as NewsTransport::TakeOverviewRecords gives it.
    void feed(QList<NewsTransport::OverviewText> blocks, const OverviewFormat &fmt);
    // One thread only (the reader's): builds one waiting block when the builder is behind.
    // False when there was none to take.
    bool helpOnce();
    // The memory the rows live in: whoever keeps rows keeps this too.
    std::shared_ptr<const RowArena> arena() const { return m_lanes[0].arena; }
    // Spent text blocks, for the reader to fill again.
    QList<QByteArray> takeSpentBlocks();
    // No more input. keepCache: the cache file gets its empty last line and replaces the old
    // one; otherwise it is dropped. Then the listing's order is computed.
    void finish(bool keepCache);
    bool done() const;
    // After done(): all rows built in the listing's order (descending by column 6, then 7,
    // ignoring case, stable; they refer to arena() in place). The cache file may still be
    // being written: listing::waitForCacheWrites.
    QVector<QByteArray> takeSortedRows();
    qint64 rowsBuilt() const;
    // Bytes of text fed and not yet built (the reader's back-pressure).
    qint64 pendingBytes() const;
    // Called on the builder's thread when the work is done, and once the text waiting has come
    // below wakeBelow(bytes) (to wake a wait).
    void setWake(std::function<void()> wake) { m_wake = std::move(wake); }
    void wakeBelow(qint64 bytes);

private:
    void run();
    struct Batch {
        qsizetype seq;
        NewsTransport::OverviewText text;
        OverviewFormat fmt;
    };
    // Where a builder's rows go: the builder's thread is lane 0, the helping reader lane 1.
    struct Lane {
        std::shared_ptr<RowArena> arena;
        listing::ListingOrder order;
        std::unique_ptr<listing::OverviewRows> rows;
        OverviewFormat fmt;
    };
    // A block built: by which lane, its items there, and where its rows lie in that lane's arena
    // (chunk, offset) from first to last.
    struct Built {
        int lane = -1;
        qsizetype itemBegin = 0, itemEnd = 0;
        qsizetype chunkBegin = 0, usedBegin = 0, chunkEnd = 0, usedEnd = 0;
    };
    bool build(int lane, Batch &b);
    // The cache file's pieces of block b's rows, up to end (null: all of them).
    void writeBlock(const Built &b, const char *end);

    mutable std::mutex m_mx;
    std::condition_variable m_cv;
    qint64 m_pending = 0;
    qint64 m_wakeBelow = -1;   // none
    std::deque<Batch> m_queue;
    qsizetype m_nextSeq = 0;
    int m_helping = 0;            // blocks the reader is building now
    std::vector<Built> m_blocks;  // by seq
    bool m_finish = false, m_keepCache = false, m_done = false, m_quit = false;
    bool m_writerDone = false;   // builder's thread only
    QVector<QByteArray> m_sorted;
    QList<QByteArray> m_spent;
    std::shared_ptr<listing::CacheWriter> m_writer;
    Lane m_lanes[2];
    qint64 m_built = 0;
    const qint64 m_maxRows;
    std::function<void()> m_wake;
    std::thread m_thread;
};
