#include "messages/GridController.h"

#include "app/Shell.h"
#include "download/Downloader.h"
#include "messages/MessageGrid.h"
#include "messages/MessageList.h"
#include "ui/ItemList.h"
#include "ui/Prompter.h"

#include <QItemSelectionModel>

namespace {
const QString ViewCommand = QStringLiteral("menuView");
// Find looks at the article number, date, subject and sender.
constexpr int FindColumns = MessageGrid::ColFrom + 1;
} // namespace

GridController::GridController(Shell &shell, MessageGrid &messageGrid, QItemSelectionModel &selection,
                               MessageList &messageList, Downloader &dl, QObject *parent)
    : QObject(parent), sh(shell), grid(messageGrid), gridSelection(selection), messages(messageList),
      downloader(dl)
{
}

int GridController::currentRow() const
{
    const QModelIndex c = gridSelection.currentIndex();
    return c.isValid() ? c.row() + 1 : 0;
}

int GridController::anchorRow() const
{
    const QModelIndexList rows = gridSelection.selectedRows();
    if (rows.isEmpty())
        return currentRow();
    int lo = INT_MAX, hi = 0;
    for (const QModelIndex &i : rows) {
        lo = qMin(lo, i.row() + 1);
        hi = qMax(hi, i.row() + 1);
    }
    return currentRow() == lo ? hi : lo;
}

void GridController::selectRows(int from, int to, int lastCol)
{
    Q_UNUSED(lastCol);
    const int last = grid.Rows() - 1;
    if (last < 1)
        return;
    from = qBound(1, from, last);
    to = qBound(1, to, last);
    const QModelIndex a = grid.index(from - 1, 0);
    const QModelIndex b = grid.index(to - 1, MessageGrid::Cols - 1);
    gridSelection.select(QItemSelection(a, b), QItemSelectionModel::ClearAndSelect | QItemSelectionModel::Rows);
    gridSelection.setCurrentIndex(grid.index(to - 1, 0), QItemSelectionModel::NoUpdate);
    emit rowShown(to);
}

void GridController::headingClicked(int col)
{
    m_sortOrder = m_sortOrder == 1 ? 2 : 1;
    if (grid.Rows() <= 2 && grid.lastMessageRow() == 0)
        return;
    if (grid.Rows() > 1) {
        grid.sortRows(col, m_sortOrder == 1, -1, Qt::CaseInsensitive);
        selectRows(1, 1);
    }
}

void GridController::openMessage()
{
    const int row = currentRow();
    if (row < 1)
        return;
    if (messages.listingInProgress()) {
        sh.setStatus(nd::PanelDetail, QStringLiteral("Please wait until current transaction is finished"));
        return;
    }
    if (grid.cell(row, MessageGrid::ColArticle).isEmpty())
        return;
    if (sh.commandBuilt(ViewCommand) && sh.menuState(nd::Cmd::View))
        sh.handler(ViewCommand)();
}

void GridController::downloadSelection()
{
    if (grid.lastMessageRow() == 0 || !sh.viewEnabled(nd::View::Messages))
        return;
    if (messages.listingInProgress())
        return;
    downloader.DownloadSelected();
}

void GridController::downloadAll()
{
    if (grid.lastMessageRow() > 0 && sh.viewEnabled(nd::View::Messages))
        downloader.DownloadAll();
}

bool GridController::findInList(ItemList &list, const QString &text, bool first)
{
    const QList<int> sel = list.selectedIndexes();
    const int start = first || sel.isEmpty() ? 0 : sel.last() + 1;
    int hit = -1;
    const QString up = text.toUpper();
    for (int i = start; i < list.count() && hit < 0; ++i)
        if (ItemList::withoutMarker(list.text(i)).toUpper() == up)
            hit = i;
    for (int i = start; i < list.count() && hit < 0; ++i)
        if (ItemList::withoutMarker(list.text(i)).toUpper().contains(up))
            hit = i;
    if (hit < 0)
        return false;
    list.clearSelection();
    list.setSelected(hit, true);
    list.setCurrentIndex(hit);
    emit listItemFound(&list, hit);
    return true;
}

bool GridController::findInGrid(const QString &text, bool first)
{
    const int start = first ? 1 : currentRow() + 1;
    const QString up = text.toUpper();
    const int rows = grid.Rows();
    for (int r = qMax(1, start); r < rows; ++r) {
        for (int c = 0; c < FindColumns; ++c) {
            if (grid.cell(r, c).toUpper().contains(up)) {
                selectRows(r, r, MessageGrid::ColFrom);
                return true;
            }
        }
    }
    return false;
}

bool GridController::FindText(const QString &text, bool first, ItemList *list)
{
    if (text.isEmpty())
        return false;
    const bool found = list ? findInList(*list, text, first) : findInGrid(text, first);
    if (!found)
        sh.prompter().message(QStringLiteral("Not Found"), Prompter::Exclamation, Prompter::Ok,
                              QStringLiteral("Newsdredge!"));
    return found;
}
