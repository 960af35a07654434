#pragma once
#include <QObject>

class frmMain;
class GridController;

// The message grid's view: heading clicks, double-click, Enter, the right button, F2 and F3,
// Ctrl+A/Home/End, the Find dialog and Find Next. The work is the GridController's.
class GridView : public QObject {
    Q_OBJECT
public:
    GridView(frmMain &m, GridController &grid);

    // Find over the grid, or over the group list (favourites when there are no groups) while a
    // list has the focus or the grid is empty.
    bool FindText(const QString &text, bool first);
    void showFind();

protected:
    bool eventFilter(QObject *watched, QEvent *event) override;

private:
    bool keyPressed(int key, Qt::KeyboardModifiers modifiers);
    // the group or favourites list has the focus, or no messages are listed
    bool listActive() const;
    frmMain &m;
    GridController &g;
    int m_findInList = -1;   // while the Find dialog is up: 1 the list, 0 the grid was active
};
