#pragma once
#include <QObject>

class Downloader;
class ItemList;
class MessageGrid;
class MessageList;
class QItemSelectionModel;
class Shell;

// Working on the message grid: heading sort, selection by rows, opening and downloading
// messages, and Find / Find Next over the grid or a group list.
class GridController : public QObject {
    Q_OBJECT
public:
    GridController(Shell &sh, MessageGrid &grid, QItemSelectionModel &gridSelection, MessageList &messages,
                   Downloader &downloader, QObject *parent = nullptr);

    void headingClicked(int col);
    void openMessage();                 // double-click / Enter
    void downloadSelection();           // right button
    void downloadAll();                 // F2
    // Find over the grid, or over list when one is given. False when nothing was found (then
    // "Not Found" was shown).
    bool FindText(const QString &text, bool first, ItemList *list = nullptr);

    // Grid rows in the classic numbering (row 0 is the heading).
    int currentRow() const;             // the selection-end row, 0 when none
    int anchorRow() const;              // the other end of the selected block
    void selectRows(int from, int to, int lastCol = 7);
    int sortOrder() const { return m_sortOrder; }   // 0 unset, 1 ascending, 2 descending

signals:
    // The view brings this grid row to its top.
    void rowShown(int row);
    // Find selected this item of a group list.
    void listItemFound(ItemList *list, int index);

private:
    bool findInList(ItemList &list, const QString &text, bool first);
    bool findInGrid(const QString &text, bool first);

    Shell &sh;
    MessageGrid &grid;
    QItemSelectionModel &gridSelection;
    MessageList &messages;
    Downloader &downloader;
    int m_sortOrder = 0;
};
