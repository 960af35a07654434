#pragma once
#include "messages/MessageGrid.h"
#include "news/transport/NewsMessage.h"

#include <QByteArray>
#include <QString>
#include <QVector>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <thread>
#include <vector>

// Builds grid rows from the transport's raw overview records on a thread of its own while the
// answer is still being read: each record becomes one packed row, its cache line goes to the
// group's cache file in large blocks, and its sort key is kept, so that once the answer has
// ended only the order of the rows is left to compute.
class RowBuilder {
public:
    // maxRows: rows beyond it are dropped (the requested range bounds a listing).
    RowBuilder(qint64 maxRows, const QString &cachePath);
    ~RowBuilder();   // stops and joins the thread; an unfinished cache file is dropped

    // Any thread except the builder's. Records as NewsTransport::TakeOverviewRecords gives them.
    void feed(QByteArray records, const OverviewFormat &fmt);
    // Rows built since the last call, in record order.
    QVector<QByteArray> takeRows();
    // No more input. keepCache: the cache file gets its empty last line and replaces the old
    // one; otherwise it is dropped. Then the listing's order is computed.
    void finish(bool keepCache);
    bool done() const;
    // After done(): the listing's order of all rows built (descending by column 6, then 7,
    // ignoring case, stable), and whether the cache file was written.
    std::vector<MessageGrid::SortKey> takeOrder();
    bool cacheWritten() const;
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
    bool m_finish = false, m_keepCache = false, m_done = false, m_quit = false, m_cacheWritten = false;
    QVector<QByteArray> m_ready;           // built, not yet taken
    std::vector<MessageGrid::SortKey> m_order;
    qint64 m_built = 0;
    const qint64 m_maxRows;
    const QString m_cachePath;
    std::function<void()> m_wake;
    std::thread m_thread;
};
