#include "messages/MessageGrid.h"
#include "messages/RowArena.h"

#include <algorithm>
#include <mutex>
#include <cstring>
#include <numeric>

MessageGrid::MessageGrid(QObject *parent)
    : QAbstractTableModel(parent)
{
    m_rows.append(QByteArray(Cols - 1, Sep));
}

QString MessageGrid::heading(int col)
{
    static const char *h[Cols] = {"Message", "Date", "Subject", "Email", "Path", "MSGID", "MsgDate", "Ref", ""};
    return col >= 0 && col < Cols ? QString::fromLatin1(h[col]) : QString();
}

void MessageGrid::SetRows(int rows)
{
    const int want = qMax(1, rows) - 1;
    const int have = int(m_rows.size());
    if (want > have) {
        beginInsertRows(QModelIndex(), have, want - 1);
        m_rows.resize(want, QByteArray(Cols - 1, Sep));
        endInsertRows();
    } else if (want < have) {
        beginRemoveRows(QModelIndex(), want, have - 1);
        m_rows.resize(want);
        endRemoveRows();
    }
}

QByteArray MessageGrid::cellBytes(const QByteArray &row, int col)
{
    qsizetype start = 0;
    for (int c = 0; c < col; ++c) {
        const qsizetype p = row.indexOf(Sep, start);
        if (p < 0)
            return QByteArray();
        start = p + 1;
    }
    qsizetype end = row.indexOf(Sep, start);
    if (end < 0)
        end = row.size();
    return QByteArray(row.constData() + start, end - start);   // never a reference into an arena
}

QString MessageGrid::cell(int row, int col) const
{
    if (row == 0)
        return heading(col);
    if (row < 1 || row > int(m_rows.size()) || col < 0 || col >= Cols)
        return QString();
    return QString::fromUtf8(cellBytes(m_rows[row - 1], col));
}

QStringList MessageGrid::rowCells(int row) const
{
    QStringList out;
    if (row == 0) {
        for (int c = 0; c < Cols; ++c)
            out << heading(c);
        return out;
    }
    if (row < 1 || row > int(m_rows.size()))
        return QStringList(Cols, QString());
    const QList<QByteArray> parts = m_rows[row - 1].split(Sep);
    for (int c = 0; c < Cols; ++c)
        out << (c < parts.size() ? QString::fromUtf8(parts[c]) : QString());
    return out;
}

QByteArray MessageGrid::packRow(const QStringList &cells)
{
    QByteArray out;
    for (int c = 0; c < Cols; ++c) {
        if (c)
            out += Sep;
        if (c < cells.size()) {
            QByteArray b = cells[c].toUtf8();
            b.replace(Sep, ' ');
            out += b;
        }
    }
    return out;
}

void MessageGrid::setRowCells(int row, const QStringList &cells)
{
    if (row < 1 || row > int(m_rows.size()))
        return;
    m_rows[row - 1] = packRow(cells);
    emit dataChanged(index(row - 1, 0), index(row - 1, Cols - 1));
}

void MessageGrid::setCell(int row, int col, const QString &text)
{
    if (row < 1 || row > int(m_rows.size()) || col < 0 || col >= Cols)
        return;
    QStringList cells = rowCells(row);
    cells[col] = text;
    m_rows[row - 1] = packRow(cells);
    emit dataChanged(index(row - 1, col), index(row - 1, col));
}

void MessageGrid::appendRow(const QStringList &cells)
{
    const int n = int(m_rows.size());
    beginInsertRows(QModelIndex(), n, n);
    m_rows.append(packRow(cells));
    endInsertRows();
}

void MessageGrid::appendRows(const QVector<QByteArray> &packedRows)
{
    if (packedRows.isEmpty())
        return;
    const int n = int(m_rows.size());
    beginInsertRows(QModelIndex(), n, n + int(packedRows.size()) - 1);
    m_rows.append(packedRows);
    endInsertRows();
}

void MessageGrid::appendRows(QVector<QByteArray> &&packedRows)
{
    if (packedRows.isEmpty())
        return;
    const int n = int(m_rows.size());
    beginInsertRows(QModelIndex(), n, n + int(packedRows.size()) - 1);
    if (m_rows.isEmpty() && m_rows.capacity() < packedRows.size())
        m_rows = std::move(packedRows);
    else
        m_rows.append(std::move(packedRows));
    endInsertRows();
}

QByteArray MessageGrid::packedRow(int row) const
{
    if (row < 1 || row > int(m_rows.size()))
        return QByteArray();
    const QByteArray &r = m_rows[row - 1];
    return QByteArray(r.constData(), r.size());
}

void MessageGrid::keepArena(std::shared_ptr<const RowArena> arena)
{
    if (arena && std::find(m_arenas.begin(), m_arenas.end(), arena) == m_arenas.end())
        m_arenas.push_back(std::move(arena));
}

namespace {
std::mutex g_spareMx;
QVector<QByteArray> g_spareRows;   // empty, with the capacity of the last large listing
constexpr qsizetype kSpareFrom = 100000;
}

QVector<QByteArray> MessageGrid::takeRowVector(qsizetype capacity)
{
    QVector<QByteArray> v;
    {
        std::lock_guard<std::mutex> g(g_spareMx);
        if (g_spareRows.capacity() >= capacity && g_spareRows.capacity() <= 2 * capacity + kSpareFrom)
            v.swap(g_spareRows);
    }
    v.reserve(capacity);
    return v;
}

void MessageGrid::ResizeGrid()
{
    beginResetModel();
    m_rows.clear();   // keeps the capacity
    if (m_rows.capacity() >= kSpareFrom) {
        std::lock_guard<std::mutex> g(g_spareMx);
        if (m_rows.capacity() > g_spareRows.capacity())
            g_spareRows.swap(m_rows);
    }
    m_rows = QVector<QByteArray>();
    m_rows.append(QByteArray(Cols - 1, Sep));
    m_arenas.clear();
    endResetModel();
}

int MessageGrid::lastMessageRow() const
{
    for (int r = int(m_rows.size()); r >= 1; --r) {
        const QByteArray &row = m_rows[r - 1];
        if (!row.isEmpty() && row.at(0) != Sep)
            return r;
    }
    return 0;
}

QByteArrayView MessageGrid::cellView(const QByteArray &row, int col)
{
    const char *p = row.constData();
    const char *end = p + row.size();
    for (int c = 0; c < col; ++c) {
        const char *q = static_cast<const char *>(std::memchr(p, Sep, size_t(end - p)));
        if (!q)
            return QByteArrayView();
        p = q + 1;
    }
    const char *q = static_cast<const char *>(std::memchr(p, Sep, size_t(end - p)));
    return QByteArrayView(p, (q ? q : end) - p);
}

namespace {

// The byte order QByteArray::compare uses without regard to case: each byte mapped to its rank
// in that order (bytes that compare equal share a rank). Checked against compare itself; when
// it cannot be expressed so, keys stay empty and every comparison is a whole one.
struct Fold {
    uchar map[256];
    bool usable = true;
    static int cmp(int c, int d)
    {
        const char a = char(c), b = char(d);
        return QByteArrayView(&a, 1).compare(QByteArrayView(&b, 1), Qt::CaseInsensitive);
    }
    Fold()
    {
        int order[256];
        for (int c = 0; c < 256; ++c)
            order[c] = c;
        std::stable_sort(order, order + 256, [](int a, int b) { return cmp(a, b) < 0; });
        map[order[0]] = 0;
        for (int i = 1; i < 256; ++i)
            map[order[i]] = uchar(cmp(order[i - 1], order[i]) == 0 ? map[order[i - 1]] : map[order[i - 1]] + 1);
        for (int c = 0; c < 256 && usable; ++c)
            for (int d = 0; d < 256; ++d) {
                const int x = cmp(c, d);
                const int mine = int(map[c]) - int(map[d]);
                if ((x < 0) != (mine < 0) || (x > 0) != (mine > 0)) {
                    usable = false;
                    break;
                }
            }
    }
};

const Fold &fold()
{
    static const Fold f;
    return f;
}

} // namespace

namespace {

template <int Words>
quint16 packKey(QByteArrayView v, Qt::CaseSensitivity cs, quint64 *out)
{
    const uchar *p = reinterpret_cast<const uchar *>(v.data());
    const qsizetype n = qMin<qsizetype>(v.size(), Words * 8);
    uchar b[Words * 8] = {};
    if (cs == Qt::CaseInsensitive) {
        const uchar *map = fold().map;
        for (qsizetype i = 0; i < n; ++i)
            b[i] = map[p[i]];
    } else if (n > 0) {
        std::memcpy(b, p, size_t(n));
    }
    for (int w = 0; w < Words; ++w) {
        quint64 k = 0;
        for (int i = 0; i < 8; ++i)
            k = (k << 8) | b[w * 8 + i];
        out[w] = k;
    }
    return v.size() <= Words * 8 ? quint16(v.size()) : quint16(0xFFFF);
}

// Orders two cells by their keys; 0 when only the whole cells can tell (or they are equal).
template <int Words>
int byKey(const quint64 *x, quint16 lx, const quint64 *y, quint16 ly, bool &decided)
{
    for (int w = 0; w < Words; ++w)
        if (x[w] != y[w]) {
            decided = true;
            return x[w] < y[w] ? -1 : 1;
        }
    if (lx != 0xFFFF && ly != 0xFFFF) {   // both whole in the key: the shorter first
        decided = true;
        return lx == ly ? 0 : (lx < ly ? -1 : 1);
    }
    decided = false;
    return 0;
}

} // namespace

MessageGrid::SortKey MessageGrid::sortKey(const QByteArray &row, int col, int secondCol, Qt::CaseSensitivity cs, quint32 idx)
{
    SortKey k{{0, 0, 0}, 0, idx, 0xFFFF, 0xFFFF};
    if (cs == Qt::CaseInsensitive && !fold().usable)
        return k;   // every comparison a whole one
    k.lenA = packKey<3>(cellView(row, col), cs, k.a);
    if (secondCol >= 0)
        k.lenB = packKey<1>(cellView(row, secondCol), cs, &k.b);
    else
        k.lenB = 0;
    return k;
}

quint16 MessageGrid::cellKey(QByteArrayView cell, Qt::CaseSensitivity cs, quint64 &key)
{
    key = 0;
    if (cs == Qt::CaseInsensitive && !fold().usable)
        return 0xFFFF;
    return packKey<1>(cell, cs, &key);
}

void MessageGrid::sortKeys(std::vector<SortKey> &keys, const QVector<QByteArray> &rows, int col, bool ascending,
                           int secondCol, Qt::CaseSensitivity cs)
{
    // a total order: the cell, the second cell, then the original position (stable)
    std::sort(keys.begin(), keys.end(), [&](const SortKey &x, const SortKey &y) {
        bool decided = false;
        int c = byKey<3>(x.a, x.lenA, y.a, y.lenA, decided);
        if (!decided)
            c = compareCells(cellView(rows[x.idx], col), cellView(rows[y.idx], col), cs);
        if (c == 0 && secondCol >= 0) {
            c = byKey<1>(&x.b, x.lenB, &y.b, y.lenB, decided);
            if (!decided)
                c = compareCells(cellView(rows[x.idx], secondCol), cellView(rows[y.idx], secondCol), cs);
        }
        if (c != 0)
            return ascending ? c < 0 : c > 0;
        return x.idx < y.idx;
    });
}

bool MessageGrid::applyOrder(const std::vector<quint32> &order)
{
    if (order.size() != size_t(m_rows.size()))
        return false;
    std::vector<char> seen(order.size(), 0);
    for (const quint32 k : order) {
        if (k >= order.size() || seen[k])
            return false;
        seen[k] = 1;
    }
    emit layoutAboutToBeChanged({}, QAbstractItemModel::VerticalSortHint);
    QVector<QByteArray> sorted;
    sorted.reserve(m_rows.size());
    for (const quint32 k : order)
        sorted.append(std::move(m_rows[k]));
    m_rows = std::move(sorted);
    const QModelIndexList from = persistentIndexList();
    QModelIndexList to;
    for (int i = 0; i < from.size(); ++i)
        to << QModelIndex();
    changePersistentIndexList(from, to);
    emit layoutChanged({}, QAbstractItemModel::VerticalSortHint);
    return true;
}

void MessageGrid::resetRows(QVector<QByteArray> &&packedRows)
{
    beginResetModel();
    m_rows.swap(packedRows);
    packedRows = QVector<QByteArray>();
    endResetModel();
}

void MessageGrid::sortRows(int col, bool ascending, int secondCol, Qt::CaseSensitivity cs)
{
    if (m_rows.size() < 2)
        return;
    std::vector<SortKey> keys;
    keys.reserve(m_rows.size());
    for (int i = 0; i < int(m_rows.size()); ++i)
        keys.push_back(sortKey(m_rows[i], col, secondCol, cs, quint32(i)));
    sortKeys(keys, m_rows, col, ascending, secondCol, cs);
    std::vector<quint32> order(keys.size());
    for (size_t i = 0; i < keys.size(); ++i)
        order[i] = keys[i].idx;
    applyOrder(order);
}

int MessageGrid::rowCount(const QModelIndex &parent) const
{
    return parent.isValid() ? 0 : int(m_rows.size());
}

int MessageGrid::columnCount(const QModelIndex &parent) const
{
    return parent.isValid() ? 0 : Cols;
}

QVariant MessageGrid::data(const QModelIndex &index, int role) const
{
    if (!index.isValid() || index.row() >= int(m_rows.size()))
        return QVariant();
    if (role == Qt::DisplayRole || role == Qt::ToolTipRole)
        return QString::fromUtf8(cellView(m_rows[index.row()], index.column()));
    return QVariant();
}

QVariant MessageGrid::headerData(int section, Qt::Orientation orientation, int role) const
{
    if (orientation == Qt::Horizontal && role == Qt::DisplayRole)
        return heading(section);
    if (orientation == Qt::Vertical && role == Qt::DisplayRole)
        return section + 1;
    return QAbstractTableModel::headerData(section, orientation, role);
}
