#include "gui/groups/FavoriteViews.h"

#include "groups/Favorites.h"
#include "ui/ItemList.h"

#include <QDropEvent>
#include <QKeyEvent>
#include <QListView>

FavoriteViews::FavoriteViews(QListView *view, QListView *groupsView, ItemList &groups, Favorites &favorites)
    : QObject(&favorites), m_view(view), m_groupsView(groupsView), m_groups(groups), m_favorites(favorites)
{
    // groups are dragged from the group list and dropped here
    m_groupsView->setDragEnabled(true);
    m_groupsView->setDragDropMode(QAbstractItemView::DragOnly);
    m_view->setAcceptDrops(true);
    m_view->viewport()->setAcceptDrops(true);
    m_view->setDropIndicatorShown(false);
    m_view->setDragDropMode(QAbstractItemView::DropOnly);
    m_view->viewport()->installEventFilter(this);
    m_view->installEventFilter(this);

    connect(m_view, &QAbstractItemView::doubleClicked, this, [this] { m_favorites.openCurrent(); });
}

bool FavoriteViews::eventFilter(QObject *watched, QEvent *event)
{
    if (watched == m_view->viewport())
        return dragEvent(event);
    if (watched == m_view && event->type() == QEvent::KeyPress)
        return keyPress(static_cast<QKeyEvent *>(event));
    return false;
}

bool FavoriteViews::dragEvent(QEvent *event)
{
    switch (event->type()) {
    case QEvent::DragEnter:
    case QEvent::DragMove: {
        auto *e = static_cast<QDropEvent *>(event);
        if (e->source() == m_groupsView && m_favorites.acceptsChanges()) {
            e->setDropAction(Qt::CopyAction);
            e->accept();
        } else {
            e->ignore();
        }
        return true;
    }
    case QEvent::Drop: {
        auto *e = static_cast<QDropEvent *>(event);
        if (e->source() != m_groupsView || !m_favorites.acceptsChanges()) {
            e->ignore();
            return true;
        }
        QList<int> rows = m_groups.selectedIndexes();
        if (rows.isEmpty() && m_groups.currentIndex() >= 0)
            rows << m_groups.currentIndex();
        for (int r : rows)
            m_favorites.DropGroup(m_groups.text(r));
        e->setDropAction(Qt::CopyAction);
        e->accept();
        return true;
    }
    default:
        return false;
    }
}

bool FavoriteViews::keyPress(QKeyEvent *k)
{
    if (k->key() == Qt::Key_A && (k->modifiers() & Qt::ControlModifier)) {
        m_favorites.SelectAll();
        return true;
    }
    if (!m_favorites.acceptsChanges())
        return false;
    if (k->key() == Qt::Key_Delete) {
        if (m_favorites.DeleteSelected())
            m_view->setFocus();
        return true;
    }
    if (k->key() == Qt::Key_Return || k->key() == Qt::Key_Enter) {
        m_favorites.openCurrent();
        return true;
    }
    return false;
}
