#include "gui/messages/GridView.h"

#include "app/Core.h"
#include "gui/app/frmMain.h"
#include "download/Downloader.h"
#include "gui/messages/frmFind.h"
#include "messages/GridController.h"
#include "messages/MessageGrid.h"
#include "messages/MessageList.h"
#include "ui/ItemList.h"

#include <QAction>
#include <QHeaderView>
#include <QKeyEvent>
#include <QListView>
#include <QMouseEvent>
#include <QTableView>

GridView::GridView(frmMain &main, GridController &grid)
    : QObject(&main), m(main), g(grid)
{
    QTableView *view = m.MSHResults;
    connect(view->horizontalHeader(), &QHeaderView::sectionClicked, this, [this, view](int col) {
        view->setUpdatesEnabled(false);
        g.headingClicked(col);
        view->setUpdatesEnabled(true);
    });
    connect(view, &QTableView::doubleClicked, this, [this] { g.openMessage(); });
    view->installEventFilter(this);
    view->viewport()->installEventFilter(this);
    connect(&g, &GridController::rowShown, this, [this](int row) {
        m.MSHResults->scrollTo(m.grid->index(row - 1, 0), QAbstractItemView::PositionAtTop);
    });
    connect(&g, &GridController::listItemFound, this, [this](ItemList *list, int index) {
        QListView *lv = list == m.lstGroups ? m.lstGroupsView : m.lstFavoritesView;
        if (lv)
            lv->scrollTo(list->index(index));
    });
    if (m.messages)
        connect(m.messages, &MessageList::listingEnded, this,
                [this] { m.MSHResults->setColumnHidden(MessageGrid::ColArticle, m.opt.ShowMNumbers == 0); });
    if (m.downloader)
        connect(m.downloader, &Downloader::gridMarking, this,
                [this](bool marking) { m.MSHResults->setUpdatesEnabled(!marking); });

    m.shell().wireCommand(QStringLiteral("menuFind"), [this] { showFind(); });
    m.shell().wireCommand(QStringLiteral("menuFindNext"), [this] { FindText(m.opt.LastFind, false); });
    if (QAction *a = m.action(QStringLiteral("menuFindNext")))
        a->setShortcut(QKeySequence(Qt::Key_F3));
}

bool GridView::listActive() const
{
    return m.lstGroupsView->hasFocus() || m.lstFavoritesView->hasFocus() || m.grid->lastMessageRow() == 0;
}

bool GridView::FindText(const QString &text, bool first)
{
    const bool inList = m_findInList >= 0 ? m_findInList == 1 : listActive();
    ItemList *list = nullptr;
    if (inList)
        list = m.lstGroups->count() > 0 ? m.lstGroups : m.lstFavorites;
    return g.FindText(text, first, list);
}

void GridView::showFind()
{
    // the dialog's own box takes the focus: search what was active when it was opened
    m_findInList = listActive() ? 1 : 0;
    frmFind dlg(m, *this);
    dlg.exec();
    m_findInList = -1;
}

bool GridView::keyPressed(int key, Qt::KeyboardModifiers modifiers)
{
    const int last = m.grid->lastMessageRow();
    const bool shift = modifiers & Qt::ShiftModifier;
    switch (key) {
    case Qt::Key_Return:
    case Qt::Key_Enter:
        g.openMessage();
        return true;
    case Qt::Key_A:
        if (!(modifiers & Qt::ControlModifier))
            return false;
        if (last > 0)
            g.selectRows(last, 1);
        return true;
    case Qt::Key_Home:
        if (last > 0)
            g.selectRows(shift ? qMax(g.anchorRow(), 1) : 1, 1);
        return true;
    case Qt::Key_End:
        if (last > 0)
            g.selectRows(shift ? qMax(g.anchorRow(), 1) : last, last);
        return true;
    case Qt::Key_F2:
        g.downloadAll();
        return true;
    case Qt::Key_F3:
        FindText(m.opt.LastFind, false);
        return true;
    default:
        return false;
    }
}

bool GridView::eventFilter(QObject *watched, QEvent *event)
{
    if (watched == m.MSHResults->viewport() && event->type() == QEvent::MouseButtonPress) {
        auto *me = static_cast<QMouseEvent *>(event);
        if (me->button() == Qt::RightButton) {
            if (m.core().gridSelection->hasSelection())
                g.downloadSelection();
            return true;
        }
    }
    if (watched == m.MSHResults && event->type() == QEvent::KeyPress) {
        auto *k = static_cast<QKeyEvent *>(event);
        if (keyPressed(k->key(), k->modifiers()))
            return true;
    }
    return QObject::eventFilter(watched, event);
}
