#pragma once
#include <QObject>

class GroupList;
class QListView;

// The group list's view: a double-click or Enter opens the group, and groups are dragged from
// it to the favourites.
class GroupViews : public QObject {
    Q_OBJECT
public:
    GroupViews(QListView *view, GroupList &groups);

protected:
    bool eventFilter(QObject *watched, QEvent *event) override;

private:
    QListView *m_view;
    GroupList &m_groups;
};
