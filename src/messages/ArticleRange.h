// Article-number ranges in 64-bit integers throughout: servers number articles up to 2^63 - 1,
// where a double no longer holds every number and a difference no longer fits.
#pragma once

#include <QtGlobal>
#include <limits>

namespace nd {

struct ArticleRange {
    qint64 first = 0;
    qint64 last = -1;   // empty when last < first

    // last - first + 1, at most 2^63 - 1 (the full 64-bit range does not fit).
    qint64 count() const
    {
        if (last < first)
            return 0;
        const quint64 d = quint64(last) - quint64(first);
        return d >= quint64(std::numeric_limits<qint64>::max()) ? std::numeric_limits<qint64>::max()
                                                                 : qint64(d + 1);
    }

    // The range a group's "211" numbers give (in either order), cut to its newest newest
    // articles when newest > 0.
    static ArticleRange group(qint64 a, qint64 b, qint64 newest)
    {
        ArticleRange r{qMin(a, b), qMax(a, b)};
        if (newest > 0 && quint64(r.last) - quint64(r.first) >= quint64(newest))
            r.first = r.last - (newest - 1);
        return r;
    }
};

} // namespace nd
