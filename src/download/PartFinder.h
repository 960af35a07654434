#pragma once
#include <QString>
#include <QVector>
#include <functional>

namespace nd {

// The rows the part search looks through: message rows 1..lastRow() of the grid.
class PartRows {
public:
    virtual ~PartRows() = default;
    virtual int lastRow() const = 0;
    virtual QString subject(int row) const = 0;
    virtual qint64 articleNumber(int row) const = 0;
    virtual void mark(int row) = 0;          // the row was taken by a part search ("256")
};

// A part marker such as "(3/12)" found in a subject, with 1-based positions as in the subject.
struct PartMarker {
    int open = 0;          // the opening bracket
    int slash = 0;
    int close = 0;         // the closing bracket
    QChar closing;
    qint64 part = 0;
    qint64 total = 0;
    bool usable = false;   // open < slash < close
};

// Scans the subject from its end for the last marker whose brackets are at most 8 apart.
PartMarker findPartMarker(const QString &subject);

struct PartSearch {
    enum Outcome {
        Single,        // no usable marker, or one that names a single message: fetch the row itself
        Complete,      // every part was found: numbers[1..total]
        Incomplete     // a part is missing (or the marker has no space before it)
    };
    Outcome outcome = Single;
    qint64 total = 0;
    QVector<qint64> numbers;   // index 0 unused
    QVector<int> rows;         // grid rows of the parts found, index 0 unused
    int missing = 0;           // the first part not found (Incomplete)
};

// Finds every part of the post the subject belongs to among the rows, marking each row found.
// Beyond the classic rule, a part written without the leading zeros of the candidate (or with
// them) is found too, and among several rows holding the candidate the one whose subject equals
// the given subject with only the part number changed is taken.
// searching() is called once before the row search starts (for the status text); stop() is
// tested before it.
PartSearch FindAllParts(const QString &subject, PartRows &rows,
                        const std::function<bool()> &stop = {},
                        const std::function<void()> &searching = {});

} // namespace nd
