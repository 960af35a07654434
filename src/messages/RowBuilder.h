#pragma once
#include "messages/MessageGrid.h"
#include "messages/RowArena.h"
#include "news/transport/NewsMessage.h"

#include <QByteArray>
#include <QString>
#include <QVector>
#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

namespace listing {

class CacheWriter;

// What the listing's order (descending by column 6, then by column 7, ignoring case, stable)
// needs of each row, gathered while the rows are built. When every sortable date has the one
// form "yyyy/mm/dd hh:mm:ss" (the usual case), the order is a radix sort of the dates as numbers
// with the References breaking ties; otherwise it is the general key sort of the grid.
class ListingOrder {
public:
    void add(QByteArrayView sortCell, QByteArrayView refCell);
    // rows: the rows added, in order of adding. Gives indexes into them.
    std::vector<quint32> order(const QVector<QByteArray> &rows);
    void reserve(qsizetype n);

    struct Item {
        quint64 key;      // descending date as an ascending number
        quint64 ref;      // the References' key, for ties
        quint32 idx;
        quint16 refLen;
    };

private:
    ScratchBuffer m_items;   // one Item per row, while every date has the one form
    qsizetype m_count = 0;
    bool m_allDates = true;
};

} // namespace listing

// Builds grid rows from the transport's raw overview records on a thread of its own while the
// answer is still being read: each record becomes one packed row in an arena (followed by a line
// end, so the arena's chunks are the group's cache file as it goes to disk), and what the order
// needs of it is kept, so that once the answer has ended only the order is left to compute.
class RowBuilder {
public:
    // maxRows: rows beyond it are dropped (the requested range bounds a listing).
    RowBuilder(qint64 maxRows, const QString &cachePath);
    ~RowBuilder();   // stops and joins the thread; an unfinished cache file is dropped

    // Any thread except the builder's. Records as NewsTransport::TakeOverviewRecords gives them.
    void feed(QList<QByteArray> blocks, const OverviewFormat &fmt);
    // The memory the rows live in: whoever keeps rows keeps this too.
    std::shared_ptr<const RowArena> arena() const { return m_arena; }
    // Spent record blocks, for the reader to fill again.
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
    // Bytes of records fed and not yet built. waitBelow blocks the caller until they are at
    // most bytes, or at most ms milliseconds (the reader's back-pressure).
    qint64 pendingBytes() const;
    void waitBelow(qint64 bytes, int ms);
    // Called on the builder's thread whenever rows are ready or the work is done (to wake a wait).
    void setWake(std::function<void()> wake) { m_wake = std::move(wake); }

private:
    void run();
    struct Batch {
        QByteArray records;
        OverviewFormat fmt;
    };
    mutable std::mutex m_mx;
    std::condition_variable m_cv;
    std::condition_variable m_progress;
    qint64 m_pending = 0;
    std::vector<Batch> m_queue;
    bool m_finish = false, m_keepCache = false, m_done = false, m_quit = false;
    QVector<QByteArray> m_sorted;
    QList<QByteArray> m_spent;
    std::shared_ptr<listing::CacheWriter> m_writer;
    std::shared_ptr<RowArena> m_arena;
    qint64 m_built = 0;
    const qint64 m_maxRows;
    const QString m_cachePath;
    std::function<void()> m_wake;
    std::thread m_thread;
};
