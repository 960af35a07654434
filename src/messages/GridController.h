#pragma once
#include <QDialog>
#include <QObject>

class frmMain;
class QLineEdit;
class QPushButton;

// Working on the message grid: heading sort, selection keys, opening and downloading messages,
// and Find / Find Next over the grid or the group list.
class GridController : public QObject {
    Q_OBJECT
public:
    explicit GridController(frmMain &m);

    void headingClicked(int col);
    void openMessage();                 // double-click / Enter
    void downloadSelection();           // right button and F2
    // Find over the grid (or the focused group / favourites list). False when nothing was found
    // (then "Not Found" was shown).
    bool FindText(const QString &text, bool first);
    void showFind();

    // Grid rows in the classic numbering (row 0 is the heading).
    int currentRow() const;             // the selection-end row, 0 when none
    int anchorRow() const;              // the other end of the selected block
    void selectRows(int from, int to, int lastCol = 7);
    int sortOrder() const { return m_sortOrder; }   // 0 unset, 1 ascending, 2 descending

protected:
    bool eventFilter(QObject *watched, QEvent *event) override;

private:
    bool findInList(const QString &text, bool first);
    frmMain &m;
    int m_sortOrder = 0;
    int m_anchor = 0;
    int m_findInList = -1;   // while the Find dialog is up: 1 the list, 0 the grid was active
};

// The Find dialog.
class frmFind : public QDialog {
    Q_OBJECT
public:
    frmFind(frmMain &m, GridController &grid);
    QLineEdit *txtSearch = nullptr;
    QPushButton *cmdOK = nullptr;
    void ok();

private:
    frmMain &m;
    GridController &g;
    QString m_previous;
};
