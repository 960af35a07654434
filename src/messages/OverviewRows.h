#pragma once
#include "news/transport/NewsMessage.h"

#include <QByteArray>
#include <QHash>
#include <QList>
#include <QStringList>

class RowArena;

namespace listing {

class ListingOrder;

// Paths fetched apart (HDR Path) by article number, as UTF-8.
using PathMap = QHash<qint64, QByteArray>;

// Turns overview text as the server sent it into packed grid rows, a block at a time.
//
// One vector pass over the text finds every line end and tab, and whether a line holds a byte
// above 0x7E. A line of plain ASCII (nearly every line of a binaries group) is cut into its
// fields at those tabs and copied into the arena cell by cell, its date read by a parser of the
// common written forms; anything else (other bytes, odd dates, numbers too long) goes the general
// way, overviewToArena. Both give the same row for the same line.
class OverviewRows {
public:
    explicit OverviewRows(const OverviewFormat &fmt);

    // text: whole lines, each ending in LF (CR LF as on the wire), still dot-stuffed, without
    // the terminating line. Builds the row of each line that has an article number into arena
    // and adds each to order. paths: Paths fetched apart, or null. Returns the number of rows
    // built.
    qint64 build(const char *text, qsizetype size, const PathMap *paths, RowArena &arena, ListingOrder &order);

    // The date rule and both forms for a plain ASCII date in the common written forms (day,
    // month name, year, optional time; weekday and zone as the rule drops them): display
    // "mm/dd/yyyy" into display (10 bytes), sort "yyyy/mm/dd hh:mm:ss" into sort (19 bytes),
    // and the sortable date as a number. False for anything else (formatDateBytes decides).
    // readable: the bytes that may be read from p (at least n).
    static bool quickDate(const char *p, qsizetype n, qsizetype readable, char *display, char *sort, quint64 &key);

    // The vector kernels this processor runs ("avx512", "avx2", "sse2"), the best first; the
    // listing uses the best. useKernel picks another (for the tests).
    static QStringList kernels();
    static bool useKernel(const QString &name);

private:
    void line(const char *s, const char *e, const char *const *tabs, int tabCount, bool high);
    bool plainRow(const char *s, const char *e, const char *const *tabs, int tabCount);
    void generalRow(const char *s, const char *e);

    OverviewFormat m_fmt;
    QList<qint8> m_columns;
    struct Wanted {
        int field, col;
        bool full;
    };
    Wanted m_wanted[32];   // the fields that fill a column (the fast path takes at most 31 fields)
    int m_wantedCount = 0;
    bool m_plain = true;      // the format's fields fit the fast path
    // the last two dates read the quick way, and their forms
    struct KeptDate {
        char text[48] = {};
        qsizetype size = -1;
        char display[10], sort[19];
        quint64 key = 0;
    };
    KeptDate m_dates[2];
    int m_nextDate = 0;   // the one to replace
    // the block being built
    const PathMap *m_paths = nullptr;
    const char *m_textEnd = nullptr;   // short cells may be read past their line, not past this
    RowArena *m_arena = nullptr;
    ListingOrder *m_order = nullptr;
    qint64 m_built = 0;
};

} // namespace listing
