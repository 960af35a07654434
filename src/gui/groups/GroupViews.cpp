#include "gui/groups/GroupViews.h"

#include "groups/GroupList.h"

#include <QEvent>
#include <QKeyEvent>
#include <QListView>

GroupViews::GroupViews(QListView *view, GroupList &groups) : QObject(&groups), m_view(view), m_groups(groups)
{
    connect(m_view, &QListView::doubleClicked, this, [this] { m_groups.openSelectedGroup(); });
    m_view->installEventFilter(this);
    m_view->setDragEnabled(true);
    m_view->setDragDropMode(QAbstractItemView::DragOnly);
}

bool GroupViews::eventFilter(QObject *watched, QEvent *event)
{
    if (watched == m_view && event->type() == QEvent::KeyPress) {
        auto *k = static_cast<QKeyEvent *>(event);
        if (k->key() == Qt::Key_Return || k->key() == Qt::Key_Enter) {
            m_groups.openSelectedGroup();
            return true;
        }
    }
    return QObject::eventFilter(watched, event);
}
