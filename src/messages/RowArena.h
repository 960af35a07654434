#pragma once
#include <QtGlobal>
#include <memory>
#include <utility>
#include <vector>

// Append-only memory for the text of many grid rows. Memory comes in large chunks that never
// move, so a row, once written, can be referred to in place (QByteArray::fromRawData) for as
// long as the arena lives. Chunks ask the kernel for huge pages: a listing of a million rows
// then costs a few hundred page faults instead of a hundred thousand.
//
// One writer at a time; what has been written may be read from other threads once it was
// handed over under a lock.
// Asks for huge pages for the whole 2 MiB pages inside [p, p + bytes) that nothing has touched
// yet (large arrays of rows fault in a few hundred pages instead of thousands).
void adviseHugePages(const void *p, qsizetype bytes);

class RowArena {
public:
    explicit RowArena(qsizetype chunkBytes = 8 << 20);
    ~RowArena();
    RowArena(const RowArena &) = delete;
    RowArena &operator=(const RowArena &) = delete;

    // n contiguous bytes; a new chunk is started when the current one cannot hold them.
    char *alloc(qsizetype n)
    {
        if (!m_chunks.empty()) {
            Chunk &c = m_chunks.back();
            if (c.capacity - c.used >= n) {
                char *p = c.data + c.used;
                c.used += n;
                return p;
            }
        }
        return allocSlow(n);
    }
    // Gives back the last n bytes of the latest alloc (when less was written than asked for).
    void unuse(qsizetype n) { m_chunks.back().used -= n; }

    struct Chunk {
        char *data;
        qsizetype capacity;
        qsizetype used;
    };
    qsizetype chunkCount() const { return qsizetype(m_chunks.size()); }
    const Chunk &chunk(qsizetype i) const { return m_chunks[size_t(i)]; }
    qsizetype bytesUsed() const;
    // Keeps another arena alive as long as this one (rows built beside these on another thread).
    void adopt(std::shared_ptr<const RowArena> other) { m_adopted.push_back(std::move(other)); }

    // Memory of the arenas' kind (huge pages, kept for reuse when let go): at least bytes.
    static std::pair<char *, qsizetype> allocChunk(qsizetype bytes);
    static void freeChunk(char *p, qsizetype bytes);
    // The memory kept for reuse, and letting all of it go.
    static qsizetype keptBytes();
    static void releaseKept();

private:
    char *allocSlow(qsizetype n);
    qsizetype m_chunkBytes;
    std::vector<Chunk> m_chunks;
    std::vector<std::shared_ptr<const RowArena>> m_adopted;
};

// Working memory of a large sort, from the arenas' pool: nothing is zeroed, and a second listing
// of the same size writes over pages the first one faulted in.
class ScratchBuffer {
public:
    ScratchBuffer() = default;
    explicit ScratchBuffer(qsizetype bytes);
    ~ScratchBuffer();
    ScratchBuffer(const ScratchBuffer &) = delete;
    ScratchBuffer &operator=(const ScratchBuffer &) = delete;
    void swap(ScratchBuffer &other) noexcept;
    template <class T>
    T *as() const { return reinterpret_cast<T *>(m_data); }
    qsizetype size() const { return m_size; }

private:
    char *m_data = nullptr;
    qsizetype m_size = 0;
};
