#include "messages/RowArena.h"

#include <mutex>
#include <new>
#include <sys/mman.h>
#include <vector>

namespace {
constexpr qsizetype kHugePage = qsizetype(2) << 20;

// Chunks of arenas that are gone, kept for the next listing: memory the process has touched
// once costs no page faults (and no zeroing) when it is written again. The kernel may take the
// pages back at any time (MADV_FREE); then they simply fault in afresh.
struct ChunkPool {
    std::mutex mx;
    std::vector<std::pair<char *, qsizetype>> chunks;
    qsizetype bytes = 0;
    static constexpr qsizetype Limit = qsizetype(512) << 20;
};

ChunkPool &pool()
{
    static ChunkPool *p = new ChunkPool;   // outlives every arena, also at exit
    return *p;
}
} // namespace

void adviseHugePages(const void *p, qsizetype bytes)
{
#ifdef MADV_HUGEPAGE
    const quintptr b = (quintptr(p) + kHugePage - 1) & ~quintptr(kHugePage - 1);
    const quintptr e = (quintptr(p) + quintptr(bytes)) & ~quintptr(kHugePage - 1);
    if (e > b)
        ::madvise(reinterpret_cast<void *>(b), size_t(e - b), MADV_HUGEPAGE);
#else
    Q_UNUSED(p);
    Q_UNUSED(bytes);
#endif
}

RowArena::RowArena(qsizetype chunkBytes)
    : m_chunkBytes((qMax(chunkBytes, kHugePage) + kHugePage - 1) / kHugePage * kHugePage)
{
}

RowArena::~RowArena()
{
    for (const Chunk &c : m_chunks)
        freeChunk(c.data, c.capacity);
}

std::pair<char *, qsizetype> RowArena::allocChunk(qsizetype bytes)
{
    bytes = (bytes + kHugePage - 1) / kHugePage * kHugePage;
    {
        // the smallest kept chunk that holds it, unless it is far larger
        ChunkPool &p = pool();
        std::lock_guard<std::mutex> g(p.mx);
        size_t best = p.chunks.size();
        for (size_t i = 0; i < p.chunks.size(); ++i)
            if (p.chunks[i].second >= bytes && p.chunks[i].second <= 2 * bytes &&
                (best == p.chunks.size() || p.chunks[i].second < p.chunks[best].second))
                best = i;
        if (best < p.chunks.size()) {
            const auto c = p.chunks[best];
            p.chunks.erase(p.chunks.begin() + qptrdiff(best));
            p.bytes -= c.second;
            return c;
        }
    }
    // map a huge page more than needed, so the chunk can start on a huge-page boundary
    const size_t span = size_t(bytes + kHugePage);
    void *m = ::mmap(nullptr, span, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (m == MAP_FAILED)
        throw std::bad_alloc();
    char *base = static_cast<char *>(m);
    char *aligned = reinterpret_cast<char *>((quintptr(base) + kHugePage - 1) & ~quintptr(kHugePage - 1));
    if (aligned > base)
        ::munmap(base, size_t(aligned - base));
    char *end = base + span;
    if (end > aligned + bytes)
        ::munmap(aligned + bytes, size_t(end - (aligned + bytes)));
#ifdef MADV_HUGEPAGE
    ::madvise(aligned, size_t(bytes), MADV_HUGEPAGE);
#endif
    return {aligned, bytes};
}

void RowArena::freeChunk(char *p, qsizetype bytes)
{
    ChunkPool &pl = pool();
    {
        std::lock_guard<std::mutex> g(pl.mx);
        if (pl.bytes + bytes <= ChunkPool::Limit) {
#ifdef MADV_FREE
            ::madvise(p, size_t(bytes), MADV_FREE);
#endif
            pl.chunks.emplace_back(p, bytes);
            pl.bytes += bytes;
            return;
        }
    }
    ::munmap(p, size_t(bytes));
}

char *RowArena::allocSlow(qsizetype n)
{
    const auto c = allocChunk(qMax(n, m_chunkBytes));
    m_chunks.push_back(Chunk{c.first, c.second, n});
    return m_chunks.back().data;
}

qsizetype RowArena::bytesUsed() const
{
    qsizetype n = 0;
    for (const Chunk &c : m_chunks)
        n += c.used;
    return n;
}

ScratchBuffer::ScratchBuffer(qsizetype bytes)
{
    if (bytes > 0) {
        const auto c = RowArena::allocChunk(bytes);
        m_data = c.first;
        m_size = c.second;
    }
}

ScratchBuffer::~ScratchBuffer()
{
    if (m_data)
        RowArena::freeChunk(m_data, m_size);
}

void ScratchBuffer::swap(ScratchBuffer &other) noexcept
{
    std::swap(m_data, other.m_data);
    std::swap(m_size, other.m_size);
}
