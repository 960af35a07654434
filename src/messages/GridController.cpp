#include "messages/GridController.h"

#include "app/frmMain.h"
#include "download/Downloader.h"
#include "messages/MessageGrid.h"
#include "messages/MessageList.h"
#include "ui/ItemList.h"
#include "ui/Prompter.h"

#include <QAction>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QKeyEvent>
#include <QLineEdit>
#include <QListView>
#include <QMouseEvent>
#include <QPushButton>
#include <QTableView>
#include <QVBoxLayout>

GridController::GridController(frmMain &main)
    : QObject(&main), m(main)
{
    connect(m.MSHResults->horizontalHeader(), &QHeaderView::sectionClicked, this, &GridController::headingClicked);
    connect(m.MSHResults, &QTableView::doubleClicked, this, [this] { openMessage(); });
    m.MSHResults->installEventFilter(this);
    m.MSHResults->viewport()->installEventFilter(this);
    m.wireCommand(QStringLiteral("menuFind"), [this] { showFind(); });
    m.wireCommand(QStringLiteral("menuFindNext"), [this] { FindText(m.opt.LastFind, false); });
    if (QAction *a = m.action(QStringLiteral("menuFindNext")))
        a->setShortcut(QKeySequence(Qt::Key_F3));
}

int GridController::currentRow() const
{
    const QModelIndex c = m.MSHResults->currentIndex();
    return c.isValid() ? c.row() + 1 : 0;
}

int GridController::anchorRow() const
{
    const QModelIndexList rows = m.MSHResults->selectionModel()->selectedRows();
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
    const int last = m.grid->Rows() - 1;
    if (last < 1)
        return;
    from = qBound(1, from, last);
    to = qBound(1, to, last);
    auto *sel = m.MSHResults->selectionModel();
    const QModelIndex a = m.grid->index(from - 1, 0);
    const QModelIndex b = m.grid->index(to - 1, MessageGrid::Cols - 1);
    sel->select(QItemSelection(a, b), QItemSelectionModel::ClearAndSelect | QItemSelectionModel::Rows);
    sel->setCurrentIndex(m.grid->index(to - 1, 0), QItemSelectionModel::NoUpdate);
    m.MSHResults->scrollTo(m.grid->index(to - 1, 0), QAbstractItemView::PositionAtTop);
}

void GridController::headingClicked(int col)
{
    m_sortOrder = m_sortOrder == 1 ? 2 : 1;
    if (m.grid->Rows() <= 2 && m.grid->lastMessageRow() == 0)
        return;
    if (m.grid->Rows() > 1) {
        m.MSHResults->setUpdatesEnabled(false);
        m.grid->sortRows(col, m_sortOrder == 1, -1, Qt::CaseInsensitive);
        m.MSHResults->setUpdatesEnabled(true);
        selectRows(1, 1);
    }
}

void GridController::openMessage()
{
    const int row = currentRow();
    if (row < 1)
        return;
    if (m.messages && m.messages->listingInProgress()) {
        m.setStatus(2, QStringLiteral("Please wait until current transaction is finished"));
        return;
    }
    if (m.grid->cell(row, 0).isEmpty())
        return;
    if (QAction *view = m.action(QStringLiteral("menuView")); view && m.commandBuilt(QStringLiteral("menuView")))
        view->trigger();
}

void GridController::downloadSelection()
{
    if (!m.downloader || m.grid->lastMessageRow() == 0 || !m.MSHResults->isEnabled())
        return;
    if (m.messages && m.messages->listingInProgress())
        return;
    m.downloader->DownloadSelected();
}

bool GridController::eventFilter(QObject *watched, QEvent *event)
{
    if (watched == m.MSHResults->viewport() && event->type() == QEvent::MouseButtonPress) {
        auto *me = static_cast<QMouseEvent *>(event);
        if (me->button() == Qt::RightButton) {
            if (m.MSHResults->selectionModel()->hasSelection())
                downloadSelection();
            return true;
        }
    }
    if (watched == m.MSHResults && event->type() == QEvent::KeyPress) {
        auto *k = static_cast<QKeyEvent *>(event);
        const int last = m.grid->lastMessageRow();
        const bool shift = k->modifiers() & Qt::ShiftModifier;
        switch (k->key()) {
        case Qt::Key_Return:
        case Qt::Key_Enter:
            openMessage();
            return true;
        case Qt::Key_A:
            if (k->modifiers() & Qt::ControlModifier) {
                if (last > 0)
                    selectRows(last, 1);
                return true;
            }
            break;
        case Qt::Key_Home:
            if (last > 0)
                selectRows(shift ? qMax(anchorRow(), 1) : 1, 1);
            return true;
        case Qt::Key_End:
            if (last > 0)
                selectRows(shift ? qMax(anchorRow(), 1) : last, last);
            return true;
        case Qt::Key_F2:
            if (last > 0 && m.MSHResults->isEnabled() && m.downloader) {
                m.downloader->DownloadAll();
            }
            return true;
        case Qt::Key_F3:
            FindText(m.opt.LastFind, false);
            return true;
        default:
            break;
        }
    }
    return QObject::eventFilter(watched, event);
}

bool GridController::findInList(const QString &text, bool first)
{
    ItemList *list = m.lstGroups->count() > 0 ? m.lstGroups : m.lstFavorites;
    QListView *view = list == m.lstGroups ? m.lstGroupsView : m.lstFavoritesView;
    const QList<int> sel = list->selectedIndexes();
    const int start = first || sel.isEmpty() ? 0 : sel.last() + 1;
    int hit = -1;
    const QString up = text.toUpper();
    for (int i = start; i < list->count() && hit < 0; ++i)
        if (ItemList::withoutMarker(list->text(i)).toUpper() == up)
            hit = i;
    for (int i = start; i < list->count() && hit < 0; ++i)
        if (ItemList::withoutMarker(list->text(i)).toUpper().contains(up))
            hit = i;
    if (hit < 0)
        return false;
    list->clearSelection();
    list->setSelected(hit, true);
    list->setCurrentIndex(hit);
    view->scrollTo(list->index(hit));
    return true;
}

bool GridController::FindText(const QString &text, bool first)
{
    if (text.isEmpty())
        return false;
    bool found = false;
    const bool inList = m_findInList >= 0
        ? m_findInList == 1
        : m.lstGroupsView->hasFocus() || m.lstFavoritesView->hasFocus() || m.grid->lastMessageRow() == 0;
    if (inList) {
        found = findInList(text, first);
    } else {
        const int start = first ? 1 : currentRow() + 1;
        const QString up = text.toUpper();
        const int rows = m.grid->Rows();
        for (int r = qMax(1, start); r < rows; ++r) {
            bool hit = false;
            for (int c = 0; c < 4 && !hit; ++c)
                hit = m.grid->cell(r, c).toUpper().contains(up);
            if (hit) {
                selectRows(r, r, 3);
                found = true;
                break;
            }
        }
    }
    if (!found)
        m.prompter().message(QStringLiteral("Not Found"), Prompter::Exclamation, Prompter::Ok, QStringLiteral("Newsdredge!"));
    return found;
}

void GridController::showFind()
{
    // the dialog's own box takes the focus: search what was active when it was opened
    m_findInList = m.lstGroupsView->hasFocus() || m.lstFavoritesView->hasFocus() || m.grid->lastMessageRow() == 0;
    frmFind dlg(m, *this);
    dlg.exec();
    m_findInList = -1;
}

frmFind::frmFind(frmMain &main, GridController &grid)
    : QDialog(&main), m(main), g(grid)
{
    setObjectName(QStringLiteral("frmFind"));
    setWindowTitle(QStringLiteral("Find"));
    auto *l = new QVBoxLayout(this);
    txtSearch = new QLineEdit(m.opt.LastFind, this);
    txtSearch->setObjectName(QStringLiteral("txtSearch"));
    txtSearch->selectAll();
    l->addWidget(txtSearch);
    auto *buttons = new QHBoxLayout;
    cmdOK = new QPushButton(QStringLiteral("OK"), this);
    cmdOK->setObjectName(QStringLiteral("cmdOK"));
    cmdOK->setDefault(true);
    auto *cancel = new QPushButton(QStringLiteral("Cancel"), this);
    buttons->addStretch();
    buttons->addWidget(cmdOK);
    buttons->addWidget(cancel);
    l->addLayout(buttons);
    connect(txtSearch, &QLineEdit::textChanged, this, [this](const QString &t) {
        m.opt.LastFind = t;
        m.store().save(QStringLiteral("LastFind"), t);
    });
    connect(cmdOK, &QPushButton::clicked, this, &frmFind::ok);
    connect(cancel, &QPushButton::clicked, this, &QDialog::reject);
    move(main.geometry().topLeft() + QPoint(500 / 15, 500 / 15));
}

void frmFind::ok()
{
    const QString text = txtSearch->text();
    if (text != m_previous) {
        cmdOK->setText(QStringLiteral("OK"));
        m_previous = text;
    }
    const bool first = cmdOK->text() != QLatin1String("Next");
    if (g.FindText(text, first))
        cmdOK->setText(QStringLiteral("Next"));
    else
        reject();
}
