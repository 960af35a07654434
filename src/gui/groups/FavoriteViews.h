#pragma once
#include <QObject>

class Favorites;
class ItemList;
class QKeyEvent;
class QListView;

// The favourites' view: groups dropped from the group list become favourites; Enter or a
// double-click opens one, Delete removes the selected ones, Ctrl+A selects all.
class FavoriteViews : public QObject {
    Q_OBJECT
public:
    FavoriteViews(QListView *view, QListView *groupsView, ItemList &groups, Favorites &favorites);

protected:
    bool eventFilter(QObject *watched, QEvent *event) override;

private:
    bool dragEvent(QEvent *event);
    bool keyPress(QKeyEvent *event);

    QListView *m_view;
    QListView *m_groupsView;
    ItemList &m_groups;
    Favorites &m_favorites;
};
