#pragma once
#include <QByteArray>
#include <QString>
#include <QVector>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

class MessageGrid;
class RowArena;

// The message cache of one group: one line per grid row, each of the eight cells followed by
// 0x7F. Lines that begin with 0x7F (no article number) are not messages.
namespace listing {

// application directory + "/" + tag + "-" + tag + "-" + group + ".tmp"
QString messageCacheFile(const QString &serverTag, const QString &group);
// Writes a cache file on a thread of its own from pieces of text that stay where they are (the
// chunks of the arena a listing builds its rows in), so that the listing neither copies its rows
// again nor waits for the disk. The file replaces the old one when the write is finished.
class CacheWriter {
public:
    // Starts the thread; the writer keeps the arena alive until it is done.
    static std::shared_ptr<CacheWriter> start(const QString &path, std::shared_ptr<const RowArena> arena);
    ~CacheWriter();
    // Any thread: one more piece, written after those before it.
    void add(const char *data, qsizetype size);
    // No more pieces: keep commits the file, otherwise it is dropped. Does not wait.
    void finish(bool keep);
    // Blocks until the write has ended; true when the file was written.
    bool wait();
    bool done();
    QString path() const { return m_path; }
private:
    CacheWriter(const QString &path, std::shared_ptr<const RowArena> arena);
    void run();
    const QString m_path;
    std::shared_ptr<const RowArena> m_arena;
    std::mutex m_mx;
    std::condition_variable m_cv;
    std::vector<std::pair<const char *, qsizetype>> m_pieces;
    bool m_finish = false, m_keep = false, m_done = false, m_written = false;
    std::thread m_thread;
};
// Waits until the cache writes still running for path (for every path when it is empty) have
// ended: before a cache file is read or deleted.
void waitForCacheWrites(const QString &path = QString());

// Reads a cache file a block at a time (so that a long file can be read between yields),
// straight into an arena: a line that already has the row's form (eight cells, each followed by
// 0x7F) becomes a row in place, without a copy of its own; other lines are put into that form.
class ArenaCacheReader {
public:
    explicit ArenaCacheReader(const QString &path);
    ~ArenaCacheReader();
    bool isOpen() const { return m_fd >= 0; }
    bool atEnd() const { return m_fd < 0 || m_eof; }
    // Reads about blockBytes more and appends the message rows in it.
    void next(QVector<QByteArray> &rows, qint64 blockBytes = 4 << 20);
    // What the rows refer to: whoever keeps them keeps this.
    std::shared_ptr<const RowArena> arena() const { return m_arena; }
private:
    void line(const char *p, qsizetype n, QVector<QByteArray> &rows);
    int m_fd = -1;
    bool m_eof = false;
    std::shared_ptr<RowArena> m_arena;
    const char *m_carry = nullptr;   // the unfinished last line of the block before
    qsizetype m_carrySize = 0;
};

// One cache line of packed cells (8 cells each followed by 0x7F) -> packed row of 9 cells.
QByteArray cacheLineToRow(const QByteArray &line);

} // namespace listing
