#include "download/PartFinder.h"

namespace nd {

namespace {

bool isOpening(QChar c) { return c == QLatin1Char('(') || c == QLatin1Char('{') || c == QLatin1Char('['); }
bool isClosing(QChar c) { return c == QLatin1Char(')') || c == QLatin1Char('}') || c == QLatin1Char(']'); }

// The numeric value of the leading digits (spaces before them skipped), 0 when there are none.
qint64 leadingNumber(const QString &s)
{
    qint64 v = 0;
    int i = 0;
    while (i < s.size() && s.at(i) == QLatin1Char(' '))
        ++i;
    for (; i < s.size() && s.at(i).isDigit() && s.at(i).unicode() < 128; ++i) {
        v = v * 10 + (s.at(i).unicode() - '0');
        if (v > 1000000000)
            return v;
    }
    return v;
}

} // namespace

PartMarker findPartMarker(const QString &s)
{
    PartMarker m;
    int open = 0, close = 0, slash = 0;
    QChar closing;
    int i = int(s.size());   // 1-based position being looked at
    bool found = false;
    for (;;) {
        while (i >= 1) {
            const QChar c = s.at(i - 1);
            if (isOpening(c) && open == 0) {
                open = i;
                --i;
                break;
            }
            if (isClosing(c) && close == 0) {
                close = i;
                closing = c;
            } else if (c == QLatin1Char('/')) {
                slash = i;
            }
            --i;
        }
        if (slash != 0 && close - open <= 8) {
            found = true;
            break;
        }
        if (i >= 1) {
            open = close = 0;
            continue;
        }
        break;
    }
    if (!found)
        return m;
    m.open = open;
    m.slash = slash;
    m.close = close;
    m.closing = closing;
    m.usable = open >= 1 && open < slash && slash < close;
    if (!m.usable)
        return m;

    // From the opening bracket, as long as the closing bracket's position, cut after the first
    // closing character when that runs past the marker.
    QString t = s.mid(open - 1, close);
    if (!t.endsWith(closing)) {
        const qsizetype c = t.indexOf(closing);
        if (c >= 0)
            t = t.left(c + 1);
    }
    m.part = leadingNumber(t.mid(1, slash - open));
    m.total = leadingNumber(t.mid(slash - open + 1));
    return m;
}

namespace {

// Every row that holds a candidate holds its fixed text before and after the part number: those
// rows, in grid order, are all the part search has to look at. A set of m parts in a grid of n
// rows then costs n + m * m tests instead of m * n.
struct CandidateRows {
    QVector<int> rows;
    QStringList subjects;
};

CandidateRows candidateRows(PartRows &rows, const QString &head, const QString &tail)
{
    CandidateRows pool;
    const int last = rows.lastRow();
    for (int row = 1; row <= last; ++row) {
        const QString subj = rows.subject(row);
        if (subj.contains(tail) && subj.contains(head)) {
            pool.rows.append(row);
            pool.subjects.append(subj);
        }
    }
    return pool;
}

// The ways part number k is written: padded to the width of the total (with the extra zero some
// posts carry), then without leading zeros (as today's posting tools write it), then padded to
// the width the subject's own number has.
QStringList partNumberTexts(int k, int digits, bool extraZero, int subjectWidth)
{
    const QString padded = QString::number(k).rightJustified(digits, QLatin1Char('0'));
    QStringList texts{extraZero ? QLatin1String("0") + padded : padded};
    for (const QString &alt : {QString::number(k), padded,
                               QString::number(k).rightJustified(subjectWidth, QLatin1Char('0'))})
        if (!texts.contains(alt))
            texts.append(alt);
    return texts;
}

// The row of a part written one of the ways in texts: the row of exactly this post (the whole
// subject up to the number, the number, the rest) when there is one, else the first row that
// holds the pattern; 0 when no row does.
int findPartRow(const CandidateRows &pool, const QStringList &texts, const QString &head,
                const QString &before, const QString &tail)
{
    for (const QString &partText : texts) {
        const QString candidate = head + partText + tail;
        const QString exact = before + partText + tail;
        int first = 0;
        for (qsizetype i = 0; i < pool.rows.size(); ++i) {
            const QString &subj = pool.subjects.at(i);
            if (!subj.contains(candidate))
                continue;
            if (subj == exact)
                return pool.rows.at(i);
            if (first == 0)
                first = pool.rows.at(i);
        }
        if (first)
            return first;
    }
    return 0;
}

} // namespace

PartSearch FindAllParts(const QString &subject, PartRows &rows, const std::function<bool()> &stop,
                        const std::function<void()> &searching)
{
    PartSearch r;
    const PartMarker mk = findPartMarker(subject);
    if (!mk.usable)
        return r;

    // A space before the marker (the character right before the bracket is not looked at).
    bool space = false;
    for (int p = mk.open - 2; p >= 1; --p)
        if (subject.at(p - 1) == QLatin1Char(' ')) {
            space = true;
            break;
        }
    // One word and the marker ("ceo-uu.dat (01/12)"): the other parts differ only in the number,
    // so the whole text before the marker is matched.
    const bool oneWord = !space && mk.open >= 2 && subject.at(mk.open - 2) == QLatin1Char(' ');
    if (!space && !oneWord) {
        r.outcome = PartSearch::Incomplete;
        r.missing = 1;
        return r;
    }
    if ((stop && stop()) || mk.part == 0 || mk.part > mk.total || mk.total == 1)
        return r;
    if (mk.total > 200000) {   // more parts than any set can hold
        r.outcome = PartSearch::Incomplete;
        r.missing = 1;
        return r;
    }
    if (searching)
        searching();

    // Pattern: the subject up to the opening bracket, without its first word.
    QString pattern = subject.left(mk.open) + QLatin1String("?/") + QString::number(mk.total) + mk.closing;
    if (!oneWord)
        pattern = pattern.mid(pattern.indexOf(QLatin1Char(' ')) + 1);
    const QString head = pattern.left(pattern.indexOf(QLatin1Char('?')));
    const QString tail = subject.mid(mk.slash - 1);
    const int digits = int(QString::number(mk.total).size());
    const bool extraZero = mk.close - mk.slash > digits + 1;
    const QString before = subject.left(mk.open);     // the whole subject up to the marker's number

    const CandidateRows pool = candidateRows(rows, head, tail);
    r.total = mk.total;
    r.numbers.resize(int(mk.total) + 1);
    r.rows.resize(int(mk.total) + 1);

    for (int k = 1; k <= mk.total; ++k) {
        const QStringList texts = partNumberTexts(k, digits, extraZero, mk.slash - mk.open - 1);
        const int hit = findPartRow(pool, texts, head, before, tail);
        if (!hit) {
            r.outcome = PartSearch::Incomplete;
            r.missing = k;
            return r;
        }
        rows.mark(hit);
        r.numbers[k] = rows.articleNumber(hit);
        r.rows[k] = hit;
    }
    r.outcome = PartSearch::Complete;
    return r;
}

} // namespace nd
