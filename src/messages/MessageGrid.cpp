#include "messages/MessageGrid.h"

#include <algorithm>
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
    return row.mid(start, end - start);
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

QByteArray MessageGrid::packedRow(int row) const
{
    if (row < 1 || row > int(m_rows.size()))
        return QByteArray();
    return m_rows[row - 1];
}

void MessageGrid::ResizeGrid()
{
    beginResetModel();
    m_rows.clear();
    m_rows.squeeze();
    m_rows.append(QByteArray(Cols - 1, Sep));
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

void MessageGrid::sortRows(int col, bool ascending, int secondCol, Qt::CaseSensitivity cs)
{
    if (m_rows.size() < 2)
        return;
    emit layoutAboutToBeChanged({}, QAbstractItemModel::VerticalSortHint);
    struct Key {
        QByteArray a, b;
        int idx;
    };
    std::vector<Key> keys;
    keys.reserve(m_rows.size());
    for (int i = 0; i < int(m_rows.size()); ++i)
        keys.push_back({cellBytes(m_rows[i], col), secondCol >= 0 ? cellBytes(m_rows[i], secondCol) : QByteArray(), i});
    // UTF-8 byte order equals code-point order, so this sorts as the texts do
    std::stable_sort(keys.begin(), keys.end(), [&](const Key &x, const Key &y) {
        int c = x.a.compare(y.a, cs);
        if (c == 0 && secondCol >= 0)
            c = x.b.compare(y.b, cs);
        return ascending ? c < 0 : c > 0;
    });
    QVector<QByteArray> sorted;
    sorted.reserve(m_rows.size());
    for (const Key &k : keys)
        sorted.append(std::move(m_rows[k.idx]));
    m_rows = std::move(sorted);
    const QModelIndexList from = persistentIndexList();
    QModelIndexList to;
    for (int i = 0; i < from.size(); ++i)
        to << QModelIndex();
    changePersistentIndexList(from, to);
    emit layoutChanged({}, QAbstractItemModel::VerticalSortHint);
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
        return QString::fromUtf8(cellBytes(m_rows[index.row()], index.column()));
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
