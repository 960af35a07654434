#include "messages/RowArena.h"

#include <iterator>
#include <map>
#include <mutex>
#include <new>
#include <sys/mman.h>
#include <vector>

namespace {
constexpr qsizetype kHugePage = qsizetype(2) << 20;

// Chunks of arenas that are gone, kept for the next listing: memory the process has touched
// once costs no page faults (and no zeroing) when it is written again. The kernel may take the
// pages back at any time (MADV_FREE); then they simply fault in afresh. Kept chunks that touch
// are joined, and a request takes the smallest that holds it, splitting off the rest: so a
// listing whose rows, order and sort want other sizes than the last one's still finds them.
struct ChunkPool {
    std::mutex mx;
    std::map<char *, qsizetype> chunks;   // by address
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
        ChunkPool &p = pool();
        std::lock_guard<std::mutex> g(p.mx);
        auto best = p.chunks.end();
        for (auto it = p.chunks.begin(); it != p.chunks.end(); ++it)
            if (it->second >= bytes && (best == p.chunks.end() || it->second < best->second))
                best = it;
        if (best != p.chunks.end()) {
            char *const at = best->first;
            const qsizetype size = best->second;
            p.chunks.erase(best);
            if (size > bytes)
                p.chunks.emplace(at + bytes, size - bytes);
            p.bytes -= bytes;
            return {at, bytes};
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
            pl.bytes += bytes;
            auto next = pl.chunks.lower_bound(p);
            if (next != pl.chunks.end() && p + bytes == next->first) {
                bytes += next->second;
                next = pl.chunks.erase(next);
            }
            if (next != pl.chunks.begin()) {
                const auto before = std::prev(next);
                if (before->first + before->second == p) {
                    before->second += bytes;
                    return;
                }
            }
            pl.chunks.emplace_hint(next, p, bytes);
            return;
        }
    }
    ::munmap(p, size_t(bytes));
}

qsizetype RowArena::keptBytes()
{
    ChunkPool &p = pool();
    std::lock_guard<std::mutex> g(p.mx);
    return p.bytes;
}

void RowArena::releaseKept()
{
    ChunkPool &p = pool();
    std::lock_guard<std::mutex> g(p.mx);
    for (const auto &c : p.chunks)
        ::munmap(c.first, size_t(c.second));
    p.chunks.clear();
    p.bytes = 0;
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
