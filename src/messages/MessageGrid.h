#pragma once
#include <QAbstractTableModel>
#include <QByteArray>
#include <QStringList>
#include <QVector>
#include <memory>
#include <vector>

class RowArena;

// The message grid MSHResults. Rows keep the classic numbering: row 0 is the heading row,
// message rows start at 1. Nine columns: 0 article number, 1 date, 2 subject, 3 sender,
// 4 Path, 5 Message-ID, 6 sortable date, 7 References, 8 download mark (hidden).
//
// Each row is stored compactly as one UTF-8 byte string with the cells separated by 0x7F,
// so a million rows cost little more than their text. Rows of a listing refer in place to the
// text in the arena that built them (kept alive here until the grid is reset); a changed row
// gets a string of its own.
class MessageGrid : public QAbstractTableModel {
    Q_OBJECT
public:
    // The columns, in the classic numbering.
    enum Column : int {
        ColArticle = 0,     // article number
        ColDate = 1,        // "mm/dd/yyyy"
        ColSubject = 2,
        ColFrom = 3,        // the whole From value
        ColPath = 4,
        ColMessageId = 5,
        ColSortDate = 6,    // "yyyy/mm/dd hh:mm:ss", or the Message-ID when there is no date
        ColReferences = 7,
        ColMark = 8,        // the download mark: "" or MarkDownloaded
    };
    static inline const QString MarkDownloaded = QStringLiteral("256");
    static constexpr int Cols = 9;
    static constexpr char Sep = '\x7f';

    explicit MessageGrid(QObject *parent = nullptr);

    // Classic interface (row 0 = headings).
    int Rows() const { return int(m_rows.size()) + 1; }
    void SetRows(int rows);                       // keeps the heading row; adds empty rows or drops rows at the end
    QString cell(int row, int col) const;
    void setCell(int row, int col, const QString &text);
    QStringList rowCells(int row) const;
    void setRowCells(int row, const QStringList &cells);
    void appendRow(const QStringList &cells);      // appended after the last row
    void appendRows(const QVector<QByteArray> &packedRows);  // bulk, packed as packRow() makes them
    void appendRows(QVector<QByteArray> &&packedRows);
    QByteArray packedRow(int row) const;           // the row's cells joined by 0x7F (a copy of its own)
    // Keeps the memory that rows appended in place refer to until the next ResizeGrid.
    void keepArena(std::shared_ptr<const RowArena> arena);
    static QByteArray packRow(const QStringList &cells);
    // The storage of a large row vector a grid has let go, kept (empty) for the next listing to
    // fill: the memory it has touched once costs no page faults again. Any thread.
    static QVector<QByteArray> takeRowVector(qsizetype capacity);

    // Resets to the heading row and one empty row.
    void ResizeGrid();
    // The last row whose column 0 is not empty; 0 when there is none.
    int lastMessageRow() const;

    // Stable whole-row sort of rows 1..Rows()-1 by one column, or by two (second as tie-break).
    void sortRows(int col, bool ascending, int secondCol = -1, Qt::CaseSensitivity cs = Qt::CaseSensitive);
    // The order sortRows gives (indexes into rows), by precomputed keys: the first 24 bytes of
    // the column and 8 of the second, case-folded as the comparison folds them, with their
    // lengths; only cells longer than that are compared whole.
    struct SortKey {
        quint64 a[3];
        quint64 b;
        quint32 idx;
        quint16 lenA, lenB;   // 0xFFFF: longer than the key holds
    };
    static SortKey sortKey(const QByteArray &packedRow, int col, int secondCol, Qt::CaseSensitivity cs, quint32 idx);
    // The 8-byte key of one cell as SortKey::b holds it; returns its length (0xFFFF: longer).
    static quint16 cellKey(QByteArrayView cell, Qt::CaseSensitivity cs, quint64 &key);
    static int compareCells(QByteArrayView a, QByteArrayView b, Qt::CaseSensitivity cs) { return a.compare(b, cs); }
    static void sortKeys(std::vector<SortKey> &keys, const QVector<QByteArray> &rows, int col, bool ascending,
                         int secondCol, Qt::CaseSensitivity cs);
    // Puts rows 1..n in the given order (indexes of the current rows 1..n, from 0). False, and
    // nothing changed, when the order does not fit.
    bool applyOrder(const std::vector<quint32> &order);
    // Replaces every row below the headings at once (a model reset, which views take far faster
    // than an insertion of a million rows).
    void resetRows(QVector<QByteArray> &&packedRows);
    // One cell of a packed row.
    static QByteArrayView cellView(const QByteArray &packedRow, int col);
    static QByteArray cellOf(const QByteArray &packedRow, int col) { return cellBytes(packedRow, col); }

    static QString heading(int col);

    // QAbstractTableModel: model row r is grid row r + 1; headings come from headerData.
    int rowCount(const QModelIndex &parent = QModelIndex()) const override;
    int columnCount(const QModelIndex &parent = QModelIndex()) const override;
    QVariant data(const QModelIndex &index, int role) const override;
    QVariant headerData(int section, Qt::Orientation orientation, int role) const override;

private:
    static QByteArray cellBytes(const QByteArray &row, int col);
    QVector<QByteArray> m_rows;   // grid rows 1..n
    std::vector<std::shared_ptr<const RowArena>> m_arenas;
};
