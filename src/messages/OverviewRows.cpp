#include "messages/OverviewRows.h"

#include "messages/HeaderRows.h"
#include "messages/MessageGrid.h"
#include "messages/RowArena.h"
#include "messages/RowBuilder.h"

#include <algorithm>
#include <cstring>
#include <immintrin.h>

namespace listing {

namespace {

constexpr int kMaxTabs = 32;   // tabs of a line kept; a format needing more goes the general way

// Two-digit numbers as text.
struct Pairs {
    char d[200];
    constexpr Pairs() : d()
    {
        for (int i = 0; i < 100; ++i) {
            d[2 * i] = char('0' + i / 10);
            d[2 * i + 1] = char('0' + i % 10);
        }
    }
};
constexpr Pairs kPairs;

inline void put2(char *d, int v) { std::memcpy(d, kPairs.d + 2 * v, 2); }

// Digits only, at most 9 of them.
inline bool digits(const char *p, qsizetype n, int &v)
{
    if (n < 1 || n > 9)
        return false;
    v = 0;
    for (qsizetype i = 0; i < n; ++i) {
        const unsigned d = unsigned(p[i]) - '0';
        if (d > 9)
            return false;
        v = v * 10 + int(d);
    }
    return true;
}

inline bool isWs(char c) { return c == ' ' || (c >= '\t' && c <= '\r'); }

// ---------------------------------------------------------------- the vector pass

// Calls onLine for every whole line of [p, end) with the line's tabs (the first kMaxTabs)
// and whether it holds a byte above 0x7E. Masks(w, tab, nl, high) fills bit masks for the
// Masks::Width bytes at w. Returns where the unfinished last line starts.
template <class Masks>
inline const char *scanWith(const char *p, const char *end, Masks masks,
                            void (*onLine)(void *, const char *, const char *, const char *const *, int, bool), void *ctx)
{
    constexpr int W = Masks::Width;
    const char *lineStart = p;
    const char *tabs[kMaxTabs];
    int nt = 0;
    bool high = false;
    for (const char *w = p; w < end; w += W) {
        quint64 mt = 0, mn = 0, mh = 0;
        if (end - w >= W) {
            masks(w, mt, mn, mh);
        } else {
            for (qsizetype i = 0; i < end - w; ++i) {
                const unsigned char c = static_cast<unsigned char>(w[i]);
                mt |= quint64(c == '\t') << i;
                mn |= quint64(c == '\n') << i;
                mh |= quint64(c >= 0x7F) << i;
            }
        }
        // line ends are rare in a window: the tabs before each are taken in one tight loop
        quint64 done = 0;   // bits of the window that belong to lines already ended
        while (mn) {
            const quint64 nlBit = mn & (0 - mn);
            mn ^= nlBit;
            const quint64 mine = (nlBit - 1) & ~done;   // this line's part of the window
            for (quint64 t = mt & mine; t; t &= t - 1) {
                if (nt < kMaxTabs)
                    tabs[nt] = w + __builtin_ctzll(t);
                ++nt;
            }
            const char *at = w + __builtin_ctzll(nlBit);
            onLine(ctx, lineStart, at, tabs, nt, high || (mh & mine) != 0);
            lineStart = at + 1;
            nt = 0;
            high = false;
            done |= mine | nlBit;
        }
        for (quint64 t = mt & ~done; t; t &= t - 1) {
            if (nt < kMaxTabs)
                tabs[nt] = w + __builtin_ctzll(t);
            ++nt;
        }
        high = high || (mh & ~done) != 0;
    }
    return lineStart;
}

struct MasksSse2 {
    static constexpr int Width = 16;
    void operator()(const char *w, quint64 &mt, quint64 &mn, quint64 &mh) const
    {
        const __m128i x = _mm_loadu_si128(reinterpret_cast<const __m128i *>(w));
        mt = unsigned(_mm_movemask_epi8(_mm_cmpeq_epi8(x, _mm_set1_epi8('\t'))));
        mn = unsigned(_mm_movemask_epi8(_mm_cmpeq_epi8(x, _mm_set1_epi8('\n'))));
        mh = unsigned(_mm_movemask_epi8(_mm_or_si128(x, _mm_cmpeq_epi8(x, _mm_set1_epi8(0x7F)))));
    }
};

struct MasksAvx2 {
    static constexpr int Width = 32;
    __attribute__((target("avx2"))) void operator()(const char *w, quint64 &mt, quint64 &mn, quint64 &mh) const
    {
        const __m256i x = _mm256_loadu_si256(reinterpret_cast<const __m256i *>(w));
        mt = unsigned(_mm256_movemask_epi8(_mm256_cmpeq_epi8(x, _mm256_set1_epi8('\t'))));
        mn = unsigned(_mm256_movemask_epi8(_mm256_cmpeq_epi8(x, _mm256_set1_epi8('\n'))));
        mh = unsigned(_mm256_movemask_epi8(_mm256_or_si256(x, _mm256_cmpeq_epi8(x, _mm256_set1_epi8(0x7F)))));
    }
};

struct MasksAvx512 {
    static constexpr int Width = 64;
    __attribute__((target("avx512f,avx512bw"))) void operator()(const char *w, quint64 &mt, quint64 &mn, quint64 &mh) const
    {
        const __m512i x = _mm512_loadu_si512(w);
        mt = _mm512_cmpeq_epi8_mask(x, _mm512_set1_epi8('\t'));
        mn = _mm512_cmpeq_epi8_mask(x, _mm512_set1_epi8('\n'));
        mh = _mm512_cmpge_epu8_mask(x, _mm512_set1_epi8(0x7F));
    }
};

using OnLine = void (*)(void *, const char *, const char *, const char *const *, int, bool);

// Each kernel is compiled whole for its instruction set (flatten): the generic loop and the mask
// step are inlined into it, not called 64 bytes at a time.
__attribute__((target("avx512f,avx512bw"), flatten)) const char *scanAvx512(const char *p, const char *end, OnLine f, void *c)
{
    return scanWith(p, end, MasksAvx512(), f, c);
}

__attribute__((target("avx2"), flatten)) const char *scanAvx2(const char *p, const char *end, OnLine f, void *c)
{
    return scanWith(p, end, MasksAvx2(), f, c);
}

const char *scanSse2(const char *p, const char *end, OnLine f, void *c)
{
    return scanWith(p, end, MasksSse2(), f, c);
}

using ScanFn = const char *(*)(const char *, const char *, OnLine, void *);

struct Kernel {
    const char *name;
    ScanFn scan;
    bool (*usable)();
};

const Kernel kKernels[] = {
    {"avx512", scanAvx512, [] { return __builtin_cpu_supports("avx512f") && __builtin_cpu_supports("avx512bw"); }},
    {"avx2", scanAvx2, [] { return bool(__builtin_cpu_supports("avx2")); }},
    {"sse2", scanSse2, [] { return true; }},
};

ScanFn pickScan()
{
    __builtin_cpu_init();
    for (const Kernel &k : kKernels)
        if (k.usable())
            return k.scan;
    return scanSse2;
}

ScanFn g_scan = pickScan();

} // namespace

// ---------------------------------------------------------------- dates

namespace {

// Bit i set where p[i] == c, for the 48 bytes at p (SSE2: there on every x86-64).
struct Marks48 {
    static constexpr qsizetype Width = 48;
    __m128i v0, v1, v2;
    explicit Marks48(const char *p)
        : v0(_mm_loadu_si128(reinterpret_cast<const __m128i *>(p))),
          v1(_mm_loadu_si128(reinterpret_cast<const __m128i *>(p + 16))),
          v2(_mm_loadu_si128(reinterpret_cast<const __m128i *>(p + 32)))
    {
    }
    quint64 operator()(char c) const
    {
        const __m128i x = _mm_set1_epi8(c);
        return quint64(unsigned(_mm_movemask_epi8(_mm_cmpeq_epi8(v0, x)))) |
               (quint64(unsigned(_mm_movemask_epi8(_mm_cmpeq_epi8(v1, x)))) << 16) |
               (quint64(unsigned(_mm_movemask_epi8(_mm_cmpeq_epi8(v2, x)))) << 32);
    }
};

inline quint64 below(qsizetype i) { return i >= 64 ? ~quint64(0) : (quint64(1) << i) - 1; }

// Digits only, at most 9 of them (the usual one to four without a loop).
inline bool smallNumber(const char *p, qsizetype n, int &v)
{
    const unsigned a = unsigned(p[0]) - '0';
    switch (n) {
    case 1:
        v = int(a);
        return a <= 9;
    case 2: {
        const unsigned b = unsigned(p[1]) - '0';
        v = int(a * 10 + b);
        return !((a > 9) | (b > 9));
    }
    case 4: {
        const unsigned b = unsigned(p[1]) - '0', c = unsigned(p[2]) - '0', d = unsigned(p[3]) - '0';
        v = int(a * 1000 + b * 100 + c * 10 + d);
        return !((a > 9) | (b > 9) | (c > 9) | (d > 9));
    }
    default:
        return digits(p, n, v);
    }
}

// 1 to 12 for a word whose first three letters name a month, ignoring case; else 0.
inline int monthOf(const char *w)
{
    const unsigned c0 = static_cast<unsigned char>(w[0]), c1 = static_cast<unsigned char>(w[1]),
                   c2 = static_cast<unsigned char>(w[2]);
    auto letter = [](unsigned c) { return ((c | 0x20) - 'a') < 26; };
    if (!letter(c0) || !letter(c1) || !letter(c2))
        return 0;
    switch (((c0 | 0x20) << 16) | ((c1 | 0x20) << 8) | (c2 | 0x20)) {
    case 0x6a616e: return 1;
    case 0x666562: return 2;
    case 0x6d6172: return 3;
    case 0x617072: return 4;
    case 0x6d6179: return 5;
    case 0x6a756e: return 6;
    case 0x6a756c: return 7;
    case 0x617567: return 8;
    case 0x736570: return 9;
    case 0x6f6374: return 10;
    case 0x6e6f76: return 11;
    case 0x646563: return 12;
    default: return 0;
    }
}

// "h:m" or "h:m:s", each of one to nine digits, within the day's ranges.
inline bool timeOf(const char *q, qsizetype n, int &h, int &mi, int &s)
{
    if (n == 8 && q[2] == ':' && q[5] == ':') {   // hh:mm:ss
        const unsigned a = unsigned(q[0]) - '0', b = unsigned(q[1]) - '0', c = unsigned(q[3]) - '0',
                       d = unsigned(q[4]) - '0', e = unsigned(q[6]) - '0', f = unsigned(q[7]) - '0';
        if ((a > 9) | (b > 9) | (c > 9) | (d > 9) | (e > 9) | (f > 9))
            return false;
        h = int(a * 10 + b);
        mi = int(c * 10 + d);
        s = int(e * 10 + f);
        return h <= 23 && mi <= 59 && s <= 60;
    }
    int v[3] = {0, 0, 0}, k = 0, nd = 0;
    for (const char *qe = q + n; q < qe; ++q) {
        if (*q == ':') {
            if (nd == 0 || nd > 9 || ++k > 2)
                return false;
            nd = 0;
            continue;
        }
        const unsigned d = unsigned(*q) - '0';
        if (d > 9)
            return false;
        v[k] = v[k] * 10 + int(d);
        ++nd;
    }
    if (k == 0 || nd == 0 || nd > 9)
        return false;
    h = v[0];
    mi = v[1];
    s = v[2];
    return h <= 23 && mi <= 59 && s <= 60;
}

inline bool isZone(const char *p, qsizetype i)
{
    const char c = p[i], x = p[i + 1], y = p[i + 2];
    return (c == 'G' && x == 'M' && y == 'T') || (c == 'E' && (x == 'S' || x == 'D') && y == 'T') || (c == 'P' && x == 'S' && y == 'T');
}

} // namespace

bool OverviewRows::quickDate(const char *p, qsizetype n, qsizetype readable, char *display, char *sort, quint64 &key)
{
    // The date rule in one pass: it cuts at the first "-" or zone name; before that cut, text up
    // to the first "," goes, then the rest is cut at the first "+". Then the text is trimmed and
    // split at runs of spaces into day, month name, year and an optional time.
    const char *tok[4];
    qsizetype len[4];
    int t = 0;
    if (n <= Marks48::Width && readable >= Marks48::Width) {
        // the usual length: every mark at once (those past n masked off)
        const Marks48 at(p);
        const quint64 inside = below(n);
        qsizetype cut = n;
        if (const quint64 dash = at('-') & inside)
            cut = __builtin_ctzll(dash);
        for (quint64 z = (at('G') | at('E') | at('P')) & below(cut); z; z &= z - 1) {
            const qsizetype i = __builtin_ctzll(z);
            if (i + 2 >= n)
                break;
            if (isZone(p, i)) {
                cut = i;
                break;
            }
        }
        qsizetype b = 0, e = cut;
        const quint64 commas = at(',') & below(cut);
        quint64 pluses = at('+') & below(cut);
        if (commas) {
            b = __builtin_ctzll(commas) + 1;
            pluses &= ~below(b);
        }
        if (pluses)
            e = __builtin_ctzll(pluses);
        while (b < e && isWs(p[b]))
            ++b;
        while (e > b && isWs(p[e - 1]))
            --e;
        // the words: runs of anything but a space inside [b, e)
        const quint64 word = ~at(' ') & below(e) & ~below(b);
        quint64 starts = word & ~(word << 1);
        if (starts == 0)
            return false;
        const quint64 ends = word & ~(word >> 1);   // the last byte of each word
        quint64 stops = ends;
        for (; starts; starts &= starts - 1, stops &= stops - 1) {
            if (t == 4)
                return false;
            const qsizetype i = __builtin_ctzll(starts), j = __builtin_ctzll(stops);
            tok[t] = p + i;
            len[t] = j - i + 1;
            ++t;
        }
    } else {
        qsizetype cut = n, comma = -1, plus = -1, plusAfterComma = -1;
        for (qsizetype i = 0; i < n; ++i) {
            const char c = p[i];
            if (c == '-') {
                cut = i;
                break;
            }
            if (c == ',') {
                if (comma < 0)
                    comma = i;
            } else if (c == '+') {
                if (plus < 0)
                    plus = i;
                if (comma >= 0 && plusAfterComma < 0)
                    plusAfterComma = i;
            } else if ((c == 'G' || c == 'E' || c == 'P') && i + 2 < n && isZone(p, i)) {
                cut = i;
                break;
            }
        }
        qsizetype b = 0, e = cut;
        if (comma >= 0) {
            b = comma + 1;
            plus = plusAfterComma;
        }
        if (plus >= 0)
            e = plus;
        while (b < e && isWs(p[b]))
            ++b;
        while (e > b && isWs(p[e - 1]))
            --e;
        for (qsizetype i = b; i < e;) {
            if (p[i] == ' ') {
                ++i;
                continue;
            }
            if (t == 4)
                return false;
            qsizetype j = i;
            while (j < e && p[j] != ' ')
                ++j;
            tok[t] = p + i;
            len[t] = j - i;
            ++t;
            i = j;
        }
    }
    int day, year, month = 0, h = 0, mi = 0, s = 0;
    if (t < 3 || len[1] < 3 || !smallNumber(tok[0], len[0], day) || !smallNumber(tok[2], len[2], year) || day < 1 || day > 31)
        return false;
    month = monthOf(tok[1]);
    if (month == 0)
        return false;
    if (len[2] <= 2)
        year += year < 70 ? 2000 : 1900;
    if (year > 9999)
        return false;
    if (t == 4 && !timeOf(tok[3], len[3], h, mi, s))
        return false;
    put2(display, month);
    display[2] = '/';
    put2(display + 3, day);
    display[5] = '/';
    put2(display + 6, year / 100);
    put2(display + 8, year % 100);
    put2(sort, year / 100);
    put2(sort + 2, year % 100);
    sort[4] = '/';
    put2(sort + 5, month);
    sort[7] = '/';
    put2(sort + 8, day);
    sort[10] = ' ';
    put2(sort + 11, h);
    sort[13] = ':';
    put2(sort + 14, mi);
    sort[16] = ':';
    put2(sort + 17, s);
    key = ListingOrder::dateKey(year, month, day, h, mi, s);
    return true;
}

QStringList OverviewRows::kernels()
{
    QStringList out;
    for (const Kernel &k : kKernels)
        if (k.usable())
            out << QString::fromLatin1(k.name);
    return out;
}

bool OverviewRows::useKernel(const QString &name)
{
    for (const Kernel &k : kKernels)
        if (name == QLatin1String(k.name) && k.usable()) {
            g_scan = k.scan;
            return true;
        }
    return false;
}

// ---------------------------------------------------------------- rows

OverviewRows::OverviewRows(const OverviewFormat &fmt)
    : m_fmt(fmt), m_columns(overviewColumns(fmt))
{
    const qsizetype fields = qMin(m_fmt.names.size(), m_columns.size());   // those read
    m_plain = fields + 1 <= kMaxTabs && m_fmt.full.size() >= fields;
    // the fields that fill a column, in field order (a later one wins)
    for (qsizetype f = 0; m_plain && f < fields; ++f)
        if (m_columns.at(f) >= 0)
            m_wanted[m_wantedCount++] = Wanted{int(f), int(m_columns.at(f)), m_fmt.full.at(f)};
}

qint64 OverviewRows::build(const char *text, qsizetype size, const PathMap *paths, RowArena &arena, ListingOrder &order)
{
    m_paths = paths && !paths->isEmpty() && !m_fmt.hasPath ? paths : nullptr;
    m_arena = &arena;
    m_order = &order;
    m_built = 0;
    m_textEnd = text + size;
    if (size <= 0)
        return 0;
    g_scan(text, text + size,
          [](void *self, const char *s, const char *e, const char *const *tabs, int nt, bool high) {
              static_cast<OverviewRows *>(self)->line(s, e, tabs, nt, high);
          },
          this);
    return m_built;
}

void OverviewRows::line(const char *s, const char *e, const char *const *tabs, int tabCount, bool high)
{
    if (s < e && *s == '.')   // dot-stuffed
        ++s;
    if (e > s && e[-1] == '\r')
        --e;
    if (s == e)
        return;
    if (high || !m_plain || !plainRow(s, e, tabs, tabCount))
        generalRow(s, e);
}

void OverviewRows::generalRow(const char *s, const char *e)
{
    const char *path = nullptr;
    qsizetype pathSize = 0;
    if (m_paths) {
        qint64 n = 0;
        qsizetype i = 0;
        for (; s + i < e && i < 19 && s[i] >= '0' && s[i] <= '9'; ++i)
            n = n * 10 + (s[i] - '0');
        if (i > 0 && (s + i == e || s[i] == '\t')) {
            const auto it = m_paths->constFind(n);
            if (it != m_paths->constEnd() && !it->isEmpty()) {
                path = it->constData();
                pathSize = it->size();
            }
        }
    }
    ArenaRow r;
    if (!overviewToArena(s, e - s, m_fmt, m_columns, path, pathSize, *m_arena, r))
        return;
    m_order->add(r.row.constData(), r.row.size(), r.sortCell, r.refCell, nullptr);
    ++m_built;
}

// A line of plain ASCII (no byte above 0x7E, so no 0x7F either: every cell is copied as it is).
// False when the general way has to decide.
bool OverviewRows::plainRow(const char *s, const char *e, const char *const *tabs, int nt)
{
    const char *numEnd = nt ? tabs[0] : e;
    const qsizetype nd = numEnd - s;
    if (nd < 1 || nd > 18)
        return false;
    qint64 number = 0;
    for (const char *q = s; q < numEnd; ++q) {
        const unsigned d = unsigned(*q) - '0';
        if (d > 9)
            return false;
        number = number * 10 + d;
    }
    const bool numberAsWritten = *s != '0' || nd == 1;   // else it is written anew, without the zeros
    // the value of each column: the last field that fills it (empty fields past the seventh fill none)
    const char *cell[8] = {};
    qsizetype len[8] = {};
    bool hasDate = false;
    for (int w = 0; w < m_wantedCount; ++w) {
        const Wanted &want = m_wanted[w];
        const int f = want.field;
        if (f >= nt)
            break;   // the line ends before this field
        const char *v = tabs[f] + 1;
        const char *fe = f + 1 < nt ? tabs[f + 1] : e;
        if (want.full) {
            // "Name: value" (the name is short: a loop beats a call)
            while (v < fe && *v != ':')
                ++v;
            if (v < fe) {
                ++v;
                while (v < fe && *v == ' ')
                    ++v;
            }
        }
        if (f < 7 || v < fe) {
            cell[want.col] = v;
            len[want.col] = fe - v;
            hasDate |= want.col == 1;
        }
    }
    if (m_paths) {
        const auto it = m_paths->constFind(number);
        if (it != m_paths->constEnd() && !it->isEmpty()) {
            if (!isAscii(it->constData(), it->size()) || std::memchr(it->constData(), MessageGrid::Sep, size_t(it->size())))
                return false;
            cell[4] = it->constData();
            len[4] = it->size();
        }
    }
    // the date's two forms
    char display[10], sort[19];
    QByteArray bigDisplay, bigSort;
    const char *dp = display, *sp = sort;
    qsizetype dl = 0, sl = 0;
    quint64 key = 0;
    bool keyKnown = false;
    if (hasDate) {
        // articles posted together often carry the very same Date: the last two dates' forms
        // are kept (two, for posters that take turns)
        int hit = -1;
        const bool wide = len[1] <= 32 && cell[1] + 32 <= e;   // compared 32 bytes at a time
        const __m128i d0 = wide ? _mm_loadu_si128(reinterpret_cast<const __m128i *>(cell[1])) : _mm_setzero_si128();
        const __m128i d1 = wide ? _mm_loadu_si128(reinterpret_cast<const __m128i *>(cell[1] + 16)) : _mm_setzero_si128();
        for (int k = 0; k < 2; ++k) {
            if (len[1] != m_dates[k].size)
                continue;
            bool same;
            if (wide) {
                const quint32 eq = unsigned(_mm_movemask_epi8(_mm_cmpeq_epi8(d0, _mm_loadu_si128(reinterpret_cast<const __m128i *>(m_dates[k].text))))) |
                                   (unsigned(_mm_movemask_epi8(_mm_cmpeq_epi8(d1, _mm_loadu_si128(reinterpret_cast<const __m128i *>(m_dates[k].text + 16))))) << 16);
                const quint32 need = len[1] == 32 ? ~0u : (quint32(1) << len[1]) - 1;
                same = (eq & need) == need;
            } else {
                same = std::memcmp(cell[1], m_dates[k].text, size_t(len[1])) == 0;
            }
            if (same)
                hit = k;
        }
        if (hit >= 0 || (len[1] <= qsizetype(sizeof m_dates[0].text) && quickDate(cell[1], len[1], e - cell[1], display, sort, key))) {
            if (hit >= 0) {
                std::memcpy(display, m_dates[hit].display, 10);
                std::memcpy(sort, m_dates[hit].sort, 19);
                key = m_dates[hit].key;
            } else {
                KeptDate &k = m_dates[m_nextDate];
                m_nextDate ^= 1;
                std::memcpy(k.text, cell[1], size_t(len[1]));
                k.size = len[1];
                std::memcpy(k.display, display, 10);
                std::memcpy(k.sort, sort, 19);
                k.key = key;
            }
            dl = 10;
            sl = 19;
            keyKnown = true;
        } else {
            formatDateBytes(cell[1], len[1], bigDisplay, bigSort);
            // a date the rule leaves as text is still plain ASCII; 0x7F cannot be in it
            dp = bigDisplay.constData();
            dl = bigDisplay.size();
            sp = bigSort.constData();
            sl = bigSort.size();
        }
    }
    if (sl == 0) {   // no date: the Message-ID sorts in its place
        sp = cell[5];
        sl = len[5];
    }
    char num[20];
    int k = sizeof num;
    if (numberAsWritten) {
        k -= int(nd);   // copied from the line below
    } else {
        do {
            num[--k] = char('0' + number % 10);
            number /= 10;
        } while (number > 0);
    }
    const qsizetype numLen = qsizetype(sizeof num) - k;
    const qsizetype total = numLen + dl + len[2] + len[3] + len[4] + len[5] + sl + len[7] + 8;
    // room for the row, its line end and the slack the short copies below may write into
    constexpr qsizetype kSlack = 64;
    char *const row = m_arena->alloc(total + 1 + kSlack);
    m_arena->unuse(kSlack);
    char *d = row;
    // A cell of the text: short ones are moved 16 bytes at a time, up to 64, which may read past
    // the cell (not past the block) and write past it (into the slack, or what comes next anyway).
    const char *const textEnd = m_textEnd;
    auto putText = [&d, textEnd](const char *p, qsizetype n) {
        if (n <= 0) {
        } else if (n <= 32 && p + 32 <= textEnd) {
            const __m128i a = _mm_loadu_si128(reinterpret_cast<const __m128i *>(p));
            const __m128i b = _mm_loadu_si128(reinterpret_cast<const __m128i *>(p + 16));
            _mm_storeu_si128(reinterpret_cast<__m128i *>(d), a);
            _mm_storeu_si128(reinterpret_cast<__m128i *>(d + 16), b);
        } else if (n <= 64 && p + 64 <= textEnd) {
            const __m128i a = _mm_loadu_si128(reinterpret_cast<const __m128i *>(p));
            const __m128i b = _mm_loadu_si128(reinterpret_cast<const __m128i *>(p + 16));
            const __m128i c = _mm_loadu_si128(reinterpret_cast<const __m128i *>(p + 32));
            const __m128i e = _mm_loadu_si128(reinterpret_cast<const __m128i *>(p + 48));
            _mm_storeu_si128(reinterpret_cast<__m128i *>(d), a);
            _mm_storeu_si128(reinterpret_cast<__m128i *>(d + 16), b);
            _mm_storeu_si128(reinterpret_cast<__m128i *>(d + 32), c);
            _mm_storeu_si128(reinterpret_cast<__m128i *>(d + 48), e);
        } else {
            std::memcpy(d, p, size_t(n));
        }
        d += n;
        *d++ = MessageGrid::Sep;
    };
    auto put = [&d](const char *p, qsizetype n) {
        if (n > 0)
            std::memcpy(d, p, size_t(n));
        d += n;
        *d++ = MessageGrid::Sep;
    };
    if (numberAsWritten)
        putText(s, nd);
    else
        put(num + k, numLen);
    if (dl == 10)
        std::memcpy(d, dp, 10), d += 10, *d++ = MessageGrid::Sep;
    else
        put(dp, dl);
    putText(cell[2], len[2]);
    putText(cell[3], len[3]);
    if (cell[4] && cell[4] >= s && cell[4] < e)
        putText(cell[4], len[4]);
    else
        put(cell[4], len[4]);   // the Path fetched apart
    putText(cell[5], len[5]);
    const QByteArrayView sortCell(d, sl);
    if (sl == 19)
        std::memcpy(d, sp, 19), d += 19, *d++ = MessageGrid::Sep;
    else
        put(sp, sl);
    const QByteArrayView refCell(d, len[7]);
    putText(cell[7], len[7]);
    *d = '\n';   // after the empty download mark: the row is its own cache line
    m_order->add(row, total, sortCell, refCell, keyKnown ? &key : nullptr);
    ++m_built;
    return true;
}

} // namespace listing
